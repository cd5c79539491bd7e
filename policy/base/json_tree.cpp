// JSON documents in memory.
#include "policy/base/json_tree.h"

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "policy/base/json_text.h"
#include "policy/base/text.h"

namespace qimctl {

namespace {

bool is_container(JsonKind kind) {
  return kind == JsonKind::array || kind == JsonKind::object;
}

}  // namespace

// Takes what the parser meets. Each returns false to end it.
class JsonTreeBuilder {
 public:
  JsonTreeBuilder(JsonTree& tree, const rapidjson::MemoryStream& stream)
      : tree_(tree), stream_(stream) {}

  // NOLINTBEGIN(readability-identifier-naming): the parser calls these names
  bool Null() { return value(JsonKind::null); }
  bool Bool(bool yes) { return value(yes ? JsonKind::yes : JsonKind::no); }
  bool Int(int) { return number(JsonKind::whole); }
  bool Uint(unsigned) { return number(JsonKind::count); }
  bool Int64(int64_t) { return number(JsonKind::whole); }
  bool Uint64(uint64_t) { return number(JsonKind::count); }
  bool Double(double) { return number(JsonKind::real); }
  bool String(const char* text, rapidjson::SizeType size, bool) { return text_value(text, size); }
  bool Key(const char* text, rapidjson::SizeType size, bool) { return text_value(text, size); }
  bool StartObject() { return open(JsonKind::object); }
  bool StartArray() { return open(JsonKind::array); }
  bool EndArray(rapidjson::SizeType count) { return close(count); }
  bool EndObject(rapidjson::SizeType count) {
    return close(count) && are_names_unique(open_cell_, count);
  }
  bool RawNumber(const char*, rapidjson::SizeType, bool) { return false; }
  // NOLINTEND(readability-identifier-naming)

 private:
  // Where the parser is, behind the value.
  uint32_t end() const { return static_cast<uint32_t>(stream_.Tell()); }

  JsonCell& add(JsonKind kind) {
    if ((tree_.count_ & 0xffff) == 0)
      tree_.chunks_.push_back(std::make_unique_for_overwrite<JsonCell[]>(0x10000));
    JsonCell& cell = tree_.chunks_.back()[tree_.count_++ & 0xffff];
    cell = {end() - 1, 0, 0, kind};
    return cell;
  }

  bool value(JsonKind kind) {
    add(kind);
    return true;
  }

  bool number(JsonKind kind) {
    const auto is_part = [](char c) {
      return (c >= '0' && c <= '9') || std::string_view("+-.eE").find(c) != std::string_view::npos;
    };
    JsonCell& cell = add(kind);
    uint32_t begin = end();
    while (begin > 0 && is_part(tree_.text_[begin - 1])) begin--;
    cell.size = end() - begin;
    cell.at = begin;
    return true;
  }

  // A text without escapes stands in the document as it is.
  bool text_value(const char* text, rapidjson::SizeType size) {
    JsonCell& cell = add(JsonKind::text);
    const uint32_t behind = end() - 1;
    cell.size = size;
    if (size < behind && tree_.text_[behind - size - 1] == '"' &&
        memcmp(&tree_.text_[behind - size], text, size) == 0) {
      cell.at = behind - size - 1;
      return true;
    }
    std::string unescaped(text, size);
    if (!is_utf8(unescaped)) return false;  // half of a surrogate pair
    cell.kind = JsonKind::escaped;
    cell.link = static_cast<uint32_t>(tree_.unescaped_.size());
    tree_.unescaped_.push_back(std::move(unescaped));
    return true;
  }

  bool open(JsonKind kind) {
    if (open_.size() == max_json_depth) return false;
    open_.push_back(tree_.count_);
    add(kind);
    return true;
  }

  bool close(rapidjson::SizeType count) {
    open_cell_ = open_.back();
    open_.pop_back();
    JsonCell& cell = tree_.chunks_[open_cell_ >> 16][open_cell_ & 0xffff];
    cell.size = count;
    cell.link = tree_.count_;
    return true;
  }

  bool are_names_unique(uint32_t object, uint32_t count) {
    names_.clear();
    uint32_t at = object + 1;
    for (uint32_t i = 0; i < count; i++) {
      names_.push_back(tree_.text(at));
      at = tree_.behind(at + 1);
    }
    constexpr uint32_t few = 8;
    if (count > few) {
      std::sort(names_.begin(), names_.end());
      return std::adjacent_find(names_.begin(), names_.end()) == names_.end();
    }
    for (size_t i = 1; i < names_.size(); i++)
      if (std::find(names_.begin(), names_.begin() + static_cast<std::ptrdiff_t>(i), names_[i]) !=
          names_.begin() + static_cast<std::ptrdiff_t>(i))
        return false;
    return true;
  }

  JsonTree& tree_;
  const rapidjson::MemoryStream& stream_;
  std::vector<uint32_t> open_;
  uint32_t open_cell_ = 0;
  std::vector<std::string_view> names_;
};

// The parser takes NUL for the end of the text.
bool JsonTree::parse() {
  constexpr uint64_t largest = UINT32_MAX;
  if (uint64_t{text_.size()} > largest) return false;  // GCOVR_EXCL_BR_LINE: no test has 4 GB
  if (text_.find('\0') != std::string::npos || !is_utf8(text_)) return false;
  rapidjson::MemoryStream stream(text_.data(), text_.size());
  if (text_.starts_with("\xef\xbb\xbf"))
    while (stream.Tell() < 3) stream.Take();
  rapidjson::Reader reader;
  JsonTreeBuilder builder(*this, stream);
  return !reader.Parse<rapidjson::kParseDefaultFlags>(stream, builder).IsError();
}

std::string_view JsonTree::text(uint32_t index) const {
  const JsonCell& found = cell(index);
  if (found.kind == JsonKind::escaped) return unescaped_[found.link];
  return std::string_view(text_).substr(found.at + 1, found.size);
}

std::string_view JsonTree::digits(uint32_t index) const {
  return std::string_view(text_).substr(cell(index).at, cell(index).size);
}

uint32_t JsonTree::behind(uint32_t index) const {
  return is_container(kind(index)) ? cell(index).link : index + 1;
}

uint32_t JsonTree::element(uint32_t array, uint32_t index) const {
  Position& position = positions_[array];
  if (position.cell == 0 || position.child > index) position = {0, array + 1};
  for (; position.child < index; position.child++) position.cell = behind(position.cell);
  return position.cell;
}

// The child that is or holds a cell, whose name or number is added to `path`.
uint32_t JsonTree::child_with(uint32_t container, uint32_t index, std::string& path) const {
  if (kind(container) == JsonKind::object) {
    uint32_t name = container + 1;
    while (behind(name + 1) <= index) name = behind(name + 1);
    path = pointer_to(path, std::string(text(name)));
    return name + 1;
  }
  Position& position = positions_[container];
  if (position.cell == 0 || position.cell > index) position = {0, container + 1};
  for (uint32_t next; (next = behind(position.cell)) <= index; position.child++)
    position.cell = next;
  path += '/' + std::to_string(position.child);
  return position.cell;
}

// One path is mostly that of a neighbour of the one before.
std::string JsonTree::path(uint32_t index) const {
  const bool near = index > parent_ && parent_ != 0 && index < behind(parent_);
  uint32_t at = near ? parent_ : 0;
  std::string path = near ? parent_path_ : "";
  while (at != index) {
    if (at != parent_) {
      parent_ = at;
      parent_path_ = path;
    }
    at = child_with(at, index, path);
  }
  return path;
}

unsigned JsonTree::line(uint32_t index) const {
  if (lines_.empty()) {
    lines_.push_back(0);
    for (size_t end; (end = text_.find('\n', lines_.back())) != std::string::npos;)
      lines_.push_back(static_cast<uint32_t>(end) + 1);
  }
  // Mostly the value is not far behind the last one that was asked about.
  const uint32_t at = cell(index).at;
  auto from = lines_.begin() + static_cast<std::ptrdiff_t>(line_);
  if (*from > at) from = lines_.begin();
  const auto near = std::min(lines_.end() - from, std::ptrdiff_t{64});
  auto end = from + near;
  if (end != lines_.end() && *end <= at) end = lines_.end();
  const auto behind = std::upper_bound(from, end, at);
  line_ = static_cast<size_t>(behind - lines_.begin()) - 1;
  return static_cast<unsigned>(line_ + 1);
}

}  // namespace qimctl
