#include "tests/fuzz/image_edits.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "database/base/tables.h"
#include "database/record/checksum.h"
#include "database/store/store.h"

namespace fuzz {
namespace {

using rov::kWord;
using rov::Word;

constexpr uint32_t kMostEdits = 32;
constexpr uint32_t kMostBytes = 16;  // that one edit puts in

// The bytes of a fuzzer, from the front; zeros behind their end.
class Input {
 public:
  Input(const uint8_t* bytes, size_t size) : at_(bytes), end_(bytes + size) {}
  bool empty() const { return at_ == end_; }
  uint8_t byte() { return empty() ? 0 : *at_++; }
  uint32_t half() {
    const uint32_t low = byte();
    return low | uint32_t{byte()} << 8;
  }
  int32_t number() {
    const uint32_t low = half();
    return static_cast<int32_t>(low | half() << 16);
  }
  void take(std::vector<uint8_t>* to) {
    to->resize(1 + byte() % kMostBytes);
    for (uint8_t& one : *to) one = byte();
  }

 private:
  const uint8_t* at_;
  const uint8_t* end_;
};

// A record in an image that may be damaged.
struct Found {
  rov::Bytes key;
  uint8_t* value = nullptr;
  uint32_t len = 0;  // 0 = there is no record any more
};

// A number in the file.
struct Field {
  size_t at;
  uint32_t width;
};

class Editor {
 public:
  Editor(const Anatomy& anatomy, Image& image)
      : page_size_(anatomy.page_size), anatomy_(anatomy), image_(image) {}

  // False for what needs an image that is larger.
  bool edit(Input& input, Damage* damage) {
    if (image_.size() < page_size_) return false;
    const uint32_t kind = input.byte() % uint32_t{std::size(kEdits)};
    (this->*kEdits[kind])(input);
    if (kind >= kFirstMending && kind <= kLastMending) damage->mended = true;
    return true;
  }

 private:
  using Edit = void (Editor::*)(Input&);
  static const Edit kEdits[12];
  static constexpr uint32_t kFirstMending = 5;
  static constexpr uint32_t kLastMending = 7;

  size_t page_start(uint32_t number) const {
    return number % (image_.size() / page_size_) * page_size_;
  }
  size_t place(Input& input) {
    const size_t start = page_start(input.byte());
    return start + input.half() % page_size_;
  }

  void put(size_t at, const void* bytes, size_t size) {
    memcpy(&image_[at], bytes, std::min(size, image_.size() - at));
  }
  void put_as(size_t at, uint32_t width, int32_t value) {
    const auto half = static_cast<uint16_t>(value);
    const auto word = static_cast<Word>(value);
    if (width % 3 == 0) put(at, &half, sizeof half);
    if (width % 3 == 1) put(at, &value, sizeof value);
    if (width % 3 == 2) put(at, &word, sizeof word);
  }

  void put_bytes(Input& input) {
    const size_t at = place(input);
    std::vector<uint8_t> bytes;
    input.take(&bytes);
    put(at, bytes.data(), bytes.size());
  }

  void put_number(Input& input) {
    const size_t at = place(input);
    const uint32_t width = input.byte();
    put_as(at, width, input.number());
  }

  void copy_page(Input& input) {
    const size_t from = page_start(input.byte());
    const size_t to = page_start(input.byte());
    memmove(&image_[to], &image_[from], page_size_);
  }

  void exchange_pages(Input& input) {
    const size_t one = page_start(input.byte());
    const size_t other = page_start(input.byte());
    if (one == other) return;
    std::swap_ranges(image_.begin() + static_cast<ptrdiff_t>(one),
                     image_.begin() + static_cast<ptrdiff_t>(one + page_size_),
                     image_.begin() + static_cast<ptrdiff_t>(other));
  }

  void cut(Input& input) {
    const size_t pages = page_start(input.byte());
    image_.resize(std::min(image_.size(), pages + input.half()));
  }

  Found find(const RecordPlace& place) {
    const size_t page = place.page * page_size_;
    if (page + page_size_ > image_.size()) return {};
    const size_t offset = rov::entry_offset(&image_[page], place.index);
    if (offset + rov::kEntryHead > page_size_) return {};
    const rov::Entry entry = rov::read_entry(&image_[page + offset]);
    const bool far = (entry.flags & rov::kOnOverflow) != 0;
    const size_t data = offset + rov::kEntryHead + entry.key.len;
    if (data + (far ? kWord : 0) > page_size_) return {};
    const size_t start =
        far ? rov::load<Word>(entry.data) * page_size_ + rov::kPageHead : page + data;
    if (start >= image_.size() || entry.size < 4 || entry.size > image_.size() - start) return {};
    return {entry.key, &image_[start], entry.size};
  }

  static void mend(const RecordPlace& place, const Found& record) {
    if (record.len == 0) return;
    rov::Bytes key = record.key;
    uint8_t node[4];
    if (rov::kTableRows[static_cast<uint32_t>(place.table)].integer_keys) {
      if (key.len != sizeof node) return;
      rov::store_be32(node, rov::load<uint32_t>(key.data));
      key = {node, sizeof node};
    }
    rov::store(record.value, rov::record_crc(key, {record.value, record.len}));
  }

  void put_into_record(Input& input) {
    const RecordPlace& place = anatomy_.records[input.half() % anatomy_.records.size()];
    const uint32_t offset = input.half();
    std::vector<uint8_t> bytes;
    input.take(&bytes);
    put_and_mend(place, offset, bytes.data(), bytes.size());
  }

  void put_field(Input& input) {
    const RecordPlace& place = anatomy_.records[input.half() % anatomy_.records.size()];
    const uint32_t offset = input.half();
    const int32_t value = input.number();
    put_and_mend(place, offset, &value, sizeof value);
  }

  void put_and_mend(const RecordPlace& place, uint32_t offset, const void* bytes, size_t size) {
    const Found record = find(place);
    if (record.len == 0) return;
    const size_t at = offset % record.len;
    memcpy(record.value + at, bytes, std::min<size_t>(size, record.len - at));
    mend(place, record);
  }

  void mend_all(Input&) {
    for (const RecordPlace& place : anatomy_.records) mend(place, find(place));
  }

  // ---- What the engine keeps ----

  // The value that the input gives for a field: as it is, or added to what is there.
  void set(const Field& field, bool add, int32_t value) {
    if (field.at + field.width > image_.size()) return;
    uint8_t* to = &image_[field.at];
    if (field.width == sizeof(uint16_t)) {
      const uint32_t before = add ? rov::load<uint16_t>(to) : 0;
      rov::store(to, static_cast<uint16_t>(before + static_cast<uint32_t>(value)));
    } else if (field.width == sizeof(uint32_t)) {
      const uint32_t before = add ? rov::load<uint32_t>(to) : 0;
      rov::store(to, before + static_cast<uint32_t>(value));
    } else {
      const uint64_t before = add ? rov::load<uint64_t>(to) : 0;
      rov::store(to, before + static_cast<uint64_t>(int64_t{value}));
    }
  }

  template <size_t N>
  void put_one_of(const Field (&fields)[N], Input& input, uint32_t which) {
    set(fields[which % 128 % N], which >= 128, input.number());
  }

  void put_into_tree(Input& input) {
    const size_t at = anatomy_.trees[input.byte() % anatomy_.trees.size()];
    const size_t words = at + 8;
    const Field fields[] = {{at, 4},
                            {at + 4, 2},
                            {at + 6, 2},
                            {words, kWord},
                            {words + kWord, kWord},
                            {words + size_t{2} * kWord, kWord},
                            {words + size_t{3} * kWord, kWord},
                            {words + size_t{4} * kWord, kWord}};
    put_one_of(fields, input, input.byte());
  }

  void put_into_head(Input& input) {
    const size_t at = page_start(input.byte());
    const Field fields[] = {{at, kWord},
                            {at + kWord + 2, 2},
                            {at + kWord + 4, 2},
                            {at + kWord + 6, 2},
                            {at + kWord + 4, 4}};
    put_one_of(fields, input, input.byte());
  }

  void put_into_entry(Input& input) {
    const size_t page = page_start(input.byte());
    const size_t slot = page + rov::kPageHead + size_t{2} * (input.byte() % 128);
    const size_t at = page + rov::load<uint16_t>(&image_[slot]) % (page_size_ - rov::kEntryHead);
    const size_t key = at + rov::kEntryHead;
    const size_t data = key + rov::load<uint16_t>(&image_[at + 6]);
    const Field fields[] = {{slot, 2}, {at, 4}, {at + 4, 2}, {at + 6, 2}, {key, 4}, {data, kWord}};
    put_one_of(fields, input, input.byte());
  }

  // Bytes that an entry takes in its page; 0 when it does not end in it.
  size_t entry_bytes(const uint8_t* page, size_t offset) const {
    if (offset + rov::kEntryHead > page_size_) return 0;
    const rov::Entry entry = rov::read_entry(page + offset);
    uint64_t bytes = uint64_t{rov::kEntryHead} + entry.key.len;
    if (rov::page_flags(page) == rov::kLeafPage) {
      bytes += (entry.flags & rov::kOnOverflow) != 0 ? uint64_t{kWord} : uint64_t{entry.size};
    }
    bytes += bytes % 2;
    return offset + bytes > page_size_ ? 0 : static_cast<size_t>(bytes);
  }

  void take_entry(Input& input) {
    uint8_t* page = &image_[page_start(input.byte())];
    const uint32_t lower = rov::page_lower(page);
    const uint32_t upper = rov::page_upper(page);
    if (lower < rov::kPageHead + 2 || lower > upper || upper > page_size_) return;
    const uint32_t count = (lower - rov::kPageHead) / 2;
    const uint32_t index = input.byte() % count;
    const uint32_t offset = rov::entry_offset(page, index);
    const size_t gone = entry_bytes(page, offset);
    if (gone == 0 || offset < upper) return;
    memmove(page + upper + gone, page + upper, offset - upper);
    for (uint32_t from = 0, to = 0; from < count; ++from) {
      const uint32_t other = rov::entry_offset(page, from);
      if (from == index) continue;
      const auto moved = static_cast<uint16_t>(other < offset ? other + gone : other);
      rov::store(page + rov::kPageHead + size_t{2} * to++, moved);
    }
    rov::store(page + kWord + 4, static_cast<uint16_t>(lower - 2));
    rov::store(page + kWord + 6, static_cast<uint16_t>(upper + gone));
  }

  uint32_t page_size_;
  const Anatomy& anatomy_;
  Image& image_;
};

const Editor::Edit Editor::kEdits[12] = {&Editor::put_bytes,
                                         &Editor::put_number,
                                         &Editor::copy_page,
                                         &Editor::exchange_pages,
                                         &Editor::cut,
                                         &Editor::put_into_record,
                                         &Editor::put_field,
                                         &Editor::mend_all,
                                         &Editor::put_into_tree,
                                         &Editor::put_into_head,
                                         &Editor::put_into_entry,
                                         &Editor::take_entry};

}  // namespace

Damage apply_edits(const uint8_t* bytes, size_t size, const Anatomy& anatomy, Image* image) {
  Input input(bytes, size);
  Editor editor(anatomy, *image);
  Damage damage;
  while (!input.empty() && damage.edits < kMostEdits && editor.edit(input, &damage)) {
    ++damage.edits;
  }
  return damage;
}

}  // namespace fuzz
