// What was applied last, as marks of the database: "qim-0000" and on, each with a part of it.
#include "policy/store/applied.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

#include "policy/store/database.h"
#include "rov.h"
#include "rov_edit.h"

namespace qimctl {

namespace {

// The first bytes of what this source can read.
constexpr std::string_view layout = "applied 1\n";
// 1 MB: some three million entries in few files.
constexpr size_t most_marks = 256;

using MarkName = std::array<char, ROV_MARK_NAME>;

MarkName mark_name(size_t number) {
  MarkName name;
  snprintf(name.data(), name.size(), "qim-%04u", static_cast<unsigned>(number));
  return name;
}

// Numbers with their high byte first.
class MarkWriter {
 public:
  void number(uint64_t value) {
    for (int shift = 56; shift >= 0; shift -= 8) bytes_ += static_cast<char>(value >> shift & 0xff);
  }
  void digest(const Digest& digest) { bytes_.append(digest.begin(), digest.end()); }
  void text(std::string_view text) {
    number(text.size());
    bytes_ += text;
  }
  void plain(std::string_view text) { bytes_ += text; }
  const std::string& bytes() const { return bytes_; }

 private:
  std::string bytes_;
};

// What is not there reads as zeros, and is_good() says so.
class MarkReader {
 public:
  explicit MarkReader(std::string_view bytes) : bytes_(bytes) {}

  bool is_good() const { return good_; }
  bool is_at_end() const { return good_ && bytes_.empty(); }

  std::string_view take(uint64_t count) {
    if (count > bytes_.size()) good_ = false;
    if (!good_) return {};
    const std::string_view taken = bytes_.substr(0, static_cast<size_t>(count));
    bytes_.remove_prefix(taken.size());
    return taken;
  }
  uint64_t number() {
    uint64_t value = 0;
    for (const char c : take(8)) value = value << 8 | static_cast<unsigned char>(c);
    return value;
  }
  Digest digest() {
    Digest digest{};
    const std::string_view bytes = take(digest.size());
    std::copy(bytes.begin(), bytes.end(), digest.begin());
    return digest;
  }
  // Calls `read` as often as a number says, but not once nothing is left.
  template <typename Read>
  void each(Read read) {
    for (uint64_t left = number(); left != 0 && good_; left--) read();
  }

 private:
  std::string_view bytes_;
  bool good_ = true;
};

std::string to_bytes(const Applied& applied) {
  MarkWriter writer;
  writer.plain(layout);
  writer.number(applied.revision);
  writer.digest(applied.key);
  writer.digest(applied.context);
  writer.number((applied.pruned ? 1u : 0u) | (applied.by_entry ? 2u : 0u));
  writer.number(applied.names.size());
  for (const std::string& name : applied.names) writer.text(name);
  writer.number(applied.texts.size());
  for (const AppliedText& text : applied.texts) {
    writer.digest(text.frame);
    writer.number(text.lists.size());
    for (const auto& runs : text.lists) {
      writer.number(runs.size());
      for (const AppliedRun& run : runs) {
        writer.number(run.entries);
        writer.digest(run.digest);
      }
    }
  }
  return writer.bytes();
}

std::optional<Applied> from_bytes(std::string_view bytes) {
  MarkReader reader(bytes);
  if (reader.take(layout.size()) != layout) return {};
  Applied applied;
  applied.revision = reader.number();
  applied.key = reader.digest();
  applied.context = reader.digest();
  const uint64_t flags = reader.number();
  applied.pruned = (flags & 1) != 0;
  applied.by_entry = (flags & 2) != 0;
  reader.each([&] { applied.names.emplace_back(reader.take(reader.number())); });
  reader.each([&] {
    AppliedText& text = applied.texts.emplace_back();
    text.frame = reader.digest();
    reader.each([&] {
      std::vector<AppliedRun>& runs = text.lists.emplace_back();
      reader.each([&] {
        AppliedRun& run = runs.emplace_back();
        run.entries = static_cast<uint32_t>(reader.number());
        run.digest = reader.digest();
      });
    });
  });
  if (!reader.is_at_end()) return {};
  return applied;
}

}  // namespace

std::optional<Applied> read_applied(uint32_t session, uint64_t newest) {
  std::string bytes;
  std::array<char, ROV_MARK_BYTES> part;
  for (size_t i = 0; i < most_marks; i++) {
    uint32_t length = 0;
    const uint32_t status =
        rov_mark_get(session, mark_name(i).data(), part.size(), part.data(), &length);
    if (status == ROV_ERR_NO_VALUE) break;
    require(status, "read what was applied last");
    bytes.append(part.data(), length);
  }
  std::optional<Applied> applied = from_bytes(bytes);
  if (applied && applied->revision != newest) applied.reset();
  return applied;
}

// Marks that are not needed any more go.
void write_applied(uint32_t session, const Applied& applied) {
  std::string bytes = to_bytes(applied);
  if (bytes.size() > most_marks * ROV_MARK_BYTES) bytes.clear();
  for (size_t i = 0; i < most_marks; i++) {
    const std::string_view rest =
        std::string_view(bytes).substr(std::min(i * ROV_MARK_BYTES, bytes.size()));
    const std::string_view part = rest.substr(0, ROV_MARK_BYTES);
    const MarkName name = mark_name(i);
    if (part.empty()) {
      uint32_t length = 0;
      const uint32_t status = rov_mark_get(session, name.data(), 0, nullptr, &length);
      if (status == ROV_ERR_NO_VALUE) return;
    }
    require(
        rov_edit_mark_put(session, name.data(), part.data(), static_cast<uint32_t>(part.size())),
        "remember what was applied");
  }
}

}  // namespace qimctl
