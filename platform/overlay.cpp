#include "platform/overlay.h"

#include <cstddef>
#include <cstdlib>

#include "platform/crc32c.h"

namespace rov {
namespace {

constexpr uint32_t kFirstCells = 64;

// The key's first eight bytes as a number: its order is that of the keys, as far as it goes.
uint64_t prefix_of(Bytes key) {
  uint8_t bytes[8] = {};
  memcpy(bytes, key.data, key.len < sizeof bytes ? key.len : sizeof bytes);
  return uint64_t{load_be32(bytes)} << 32 | load_be32(bytes + 4);
}

// A key that is looked for.
struct Wanted {
  Bytes key;
  uint64_t prefix;
};

int compare(const Overlay::Edit* edit, const Wanted& wanted) {
  if (edit->prefix != wanted.prefix) return edit->prefix < wanted.prefix ? -1 : 1;
  return compare(edit->key(), wanted.key);
}

uint32_t hash_of(Table table, Bytes key) {
  return crc32c(static_cast<uint32_t>(table), key.data, key.len);
}

}  // namespace

Overlay::Overlay() {
  for (List& list : lists_) {
    for (uint32_t level = 0; level < kLevels; ++level) {
      list.head[level] = nullptr;
      list.last[level] = list.head;
    }
  }
}

Overlay::~Overlay() {
  free(cells_);
}

Overlay::Edit* Overlay::descend(const List& list, Bytes key, Edit*** path) {
  const Wanted wanted = {key, prefix_of(key)};
  Edit** links = const_cast<Edit**>(list.head);
  for (uint32_t level = kLevels; level-- > 0;) {
    while (links[level] != nullptr && compare(links[level], wanted) < 0) links = links[level]->next;
    if (path != nullptr) path[level] = links;
  }
  return links[0];
}

Overlay::Edit* Overlay::ge(Table table, Bytes key) const {
  return descend(lists_[static_cast<uint32_t>(table)], key, nullptr);
}

Overlay::Edit* Overlay::le(Table table, Bytes key) const {
  const Wanted wanted = {key, prefix_of(key)};
  Edit* last = nullptr;
  Edit* const* links = lists_[static_cast<uint32_t>(table)].head;
  for (uint32_t level = kLevels; level-- > 0;) {
    while (links[level] != nullptr && compare(links[level], wanted) <= 0) {
      last = links[level];
      links = last->next;
    }
  }
  return last;
}

Overlay::Edit* Overlay::lookup(Table table, Bytes key, uint32_t hash) const {
  if (mask_ == 0) return nullptr;
  for (uint32_t at = hash;; ++at) {
    const Cell& cell = cells_[at & mask_];
    if (cell.edit == nullptr) return nullptr;
    if (cell.hash != hash || cell.edit->table != table) continue;
    if (rov::compare(cell.edit->key(), key) == 0) return cell.edit;
  }
}

Overlay::Edit* Overlay::find(Table table, Bytes key) const {
  return lookup(table, key, hash_of(table, key));
}

void Overlay::place(Edit* edit, uint32_t hash) {
  uint32_t at = hash;
  while (cells_[at & mask_].edit != nullptr) ++at;
  cells_[at & mask_] = {edit, hash};
}

bool Overlay::grow() {
  const uint32_t count = mask_ == 0 ? kFirstCells : (mask_ + 1) * 2;
  auto* cells = static_cast<Cell*>(calloc(count, sizeof(Cell)));
  if (cells == nullptr) return false;
  Cell* old = cells_;
  const uint32_t old_count = old == nullptr ? 0 : mask_ + 1;
  cells_ = cells;
  mask_ = count - 1;
  for (uint32_t at = 0; at < old_count; ++at) {
    if (old[at].edit != nullptr) place(old[at].edit, old[at].hash);
  }
  free(old);
  return true;
}

uint32_t Overlay::random_height() {
  // Xorshift (Marsaglia 2003); a quarter of the entries of a level reach the next one.
  random_ ^= random_ << 13;
  random_ ^= random_ >> 17;
  random_ ^= random_ << 5;
  uint32_t height = 1;
  for (uint32_t bits = random_; height < kLevels && (bits & 3) == 0; bits >>= 2) ++height;
  return height;
}

Overlay::Edit* Overlay::make(Table table, Bytes key) {
  const uint32_t height = random_height();
  auto* edit =
      static_cast<Edit*>(arena_.take(offsetof(Edit, next) + height * sizeof(Edit*) + key.len));
  if (edit == nullptr) return nullptr;
  edit->prefix = prefix_of(key);
  edit->value = nullptr;
  edit->len = 0;
  edit->room = 0;
  edit->key_len = static_cast<uint16_t>(key.len);
  edit->height = static_cast<uint8_t>(height);
  edit->table = table;
  memcpy(reinterpret_cast<uint8_t*>(edit->next + height), key.data, key.len);
  return edit;
}

void Overlay::link(List& list, Edit* edit) {
  Edit** path[kLevels];
  const Edit* last = nullptr;
  if (list.last[0] != list.head) {
    last = reinterpret_cast<const Edit*>(reinterpret_cast<const char*>(list.last[0]) -
                                         offsetof(Edit, next));
  }
  // Keys that come in ascending order need no search.
  const bool append = last == nullptr || compare(last, {edit->key(), edit->prefix}) < 0;
  if (!append) descend(list, edit->key(), path);
  Edit*** const before = append ? list.last : path;
  for (uint32_t level = 0; level < edit->height; ++level) {
    Edit** const links = before[level];
    // NOLINTNEXTLINE(clang-analyzer-core.*): set on success, which the analyser does not follow
    edit->next[level] = links[level];
    links[level] = edit;
    if (edit->next[level] == nullptr) list.last[level] = edit->next;
  }
}

Overlay::Edit* Overlay::insert(Table table, Bytes key) {
  const uint32_t hash = hash_of(table, key);
  Edit* edit = lookup(table, key, hash);
  if (edit != nullptr) return edit;
  if (entries_ >= mask_ / 2 && !grow()) return nullptr;
  edit = make(table, key);
  if (edit == nullptr) return nullptr;
  link(lists_[static_cast<uint32_t>(table)], edit);
  place(edit, hash);
  ++entries_;
  bytes_ += key.len;
  return edit;
}

uint8_t* Overlay::replace(Table table, Bytes key, uint32_t len, uint32_t room) {
  // The buffer first: without memory for it no entry may appear, for an entry without value
  // deletes.
  auto* value = static_cast<uint8_t*>(arena_.take(room));
  Edit* edit = value == nullptr ? nullptr : insert(table, key);
  if (edit == nullptr) return nullptr;
  bytes_ += len;
  edit->value = value;
  edit->len = len;
  edit->room = room;
  return value;
}

uint8_t* Overlay::put(Table table, Bytes key, uint32_t len, uint32_t room) {
  Edit* edit = find(table, key);
  if (edit == nullptr || edit->value == nullptr) return replace(table, key, len, room);
  if (len > edit->room) {
    auto* value = static_cast<uint8_t*>(arena_.take(room));
    if (value == nullptr) return nullptr;
    memcpy(value, edit->value, edit->len);
    edit->value = value;
    edit->room = room;
  }
  if (len > edit->len) bytes_ += len - edit->len;
  edit->len = len;
  return edit->value;
}

bool Overlay::erase(Table table, Bytes key) {
  Edit* edit = insert(table, key);
  if (edit == nullptr) return false;
  edit->value = nullptr;
  edit->len = 0;
  edit->room = 0;
  return true;
}

}  // namespace rov
