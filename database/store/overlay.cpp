#include "database/store/overlay.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "database/base/crc32c.h"
#include "database/store/large_memory.h"

namespace rov {
namespace {

constexpr uint32_t kFirstCells = 64;
constexpr uint32_t kNeighbours = 8;

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

Wanted wanted_of(const Overlay::Edit* edit) {
  return {edit->key(), edit->prefix};
}

// What an entry is sorted by, so that most comparisons need not look at the entry.
struct Waiting {
  uint64_t prefix;
  Overlay::Edit* edit;
};

bool operator<(const Waiting& a, const Waiting& b) {
  if (a.prefix != b.prefix) return a.prefix < b.prefix;
  return compare(a.edit, wanted_of(b.edit)) < 0;
}

uint32_t mixed(uint32_t hash) {
  // The finaliser of MurmurHash3 (Appleby).
  hash ^= hash >> 16;
  hash *= 0x85ebca6bU;
  hash ^= hash >> 13;
  hash *= 0xc2b2ae35U;
  return hash ^ hash >> 16;
}

// Nodes that lie close together are mostly looked for one after the other, and a node together with
// the first chunk of its referrers: they come into neighbouring cells.
uint32_t hash_of_node(uint32_t node, uint32_t second, uint32_t table) {
  return mixed(node / kNeighbours + 0x9e3779b1U * second) + node % kNeighbours * 2 + table;
}

uint32_t hash_of(Table table, Bytes key) {
  const auto number = static_cast<uint32_t>(table);
  if (key.len == 4) return hash_of_node(load_be32(key.data), 0, number);
  if (key.len == 8) return hash_of_node(load_be32(key.data), load_be32(key.data + 4), number);
  return mixed(crc32c(number, key.data, key.len));
}

}  // namespace

Overlay::Overlay() {
  for (List& list : lists_) {
    for (uint32_t level = 0; level < kLevels; ++level) {
      list.head[level] = nullptr;
      list.last[level] = list.head;
    }
    list.waiting = nullptr;
    list.waits = 0;
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
  return descend(in_order(table), key, nullptr);
}

Overlay::Edit* Overlay::le(Table table, Bytes key) const {
  const Wanted wanted = {key, prefix_of(key)};
  Edit* last = nullptr;
  Edit* const* links = in_order(table).head;
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
  auto* cells = static_cast<Cell*>(zeroed_memory(count * sizeof(Cell)));
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

// An entry and the buffer of its first value lie together.
Overlay::Edit* Overlay::make(Table table, Bytes key, uint32_t room) {
  const uint32_t height = random_height();
  const size_t own = offsetof(Edit, next) + height * sizeof(Edit*) + key.len;
  if (room > SIZE_MAX / 2 - own) return nullptr;
  auto* edit = static_cast<Edit*>(arena_.take(own + room));
  if (edit == nullptr) return nullptr;
  edit->prefix = prefix_of(key);
  edit->value = reinterpret_cast<uint8_t*>(edit) + own;
  edit->len = 0;
  edit->room = room;
  edit->key_len = static_cast<uint16_t>(key.len);
  edit->height = static_cast<uint8_t>(height);
  edit->table = table;
  memcpy(reinterpret_cast<uint8_t*>(edit->next + height), key.data, key.len);
  return edit;
}

namespace {

// Moves a path on to a key that is above the one that it belongs to: first up, as far as there is
// anything to pass, then down again.
void advance(const Wanted& wanted, Overlay::Edit*** path) {
  const auto passes = [&](Overlay::Edit* const* links, uint32_t level) {
    return links[level] != nullptr && compare(links[level], wanted) < 0;
  };
  uint32_t levels = 0;
  while (levels < Overlay::kLevels && passes(path[levels], levels)) ++levels;
  if (levels == 0) return;
  Overlay::Edit** links = path[levels - 1];
  for (uint32_t level = levels; level-- > 0;) {
    while (passes(links, level)) links = links[level]->next;
    path[level] = links;
  }
}

}  // namespace

// Links an entry in behind the links of `path`, and moves the path behind the entry.
void Overlay::link(List& list, Edit* edit, Edit*** path) {
  for (uint32_t level = 0; level < edit->height; ++level) {
    Edit** const links = path[level];
    edit->next[level] = links[level];
    links[level] = edit;
    if (edit->next[level] == nullptr) list.last[level] = edit->next;
    path[level] = edit->next;
  }
}

// Keys that come in ascending order get their places at once.
void Overlay::add(List& list, Edit* edit) {
  const Edit* last = nullptr;
  if (list.last[0] != list.head) {
    last = reinterpret_cast<const Edit*>(reinterpret_cast<const char*>(list.last[0]) -
                                         offsetof(Edit, next));
  }
  if (last == nullptr || compare(last, wanted_of(edit)) < 0) {
    Edit** path[kLevels];
    memcpy(path, list.last, sizeof path);
    link(list, edit, path);
    return;
  }
  edit->next[0] = list.waiting;
  list.waiting = edit;
  ++list.waits;
}

void Overlay::settle(List& list) {
  Edit* next = list.waiting;
  const uint32_t count = list.waits;
  list.waiting = nullptr;
  list.waits = 0;
  // Without memory to sort them in, each one is searched for.
  auto* sorted = static_cast<Waiting*>(count == 1 ? nullptr : malloc(count * sizeof(Waiting)));
  Edit** path[kLevels];
  for (Edit**& links : path) links = list.head;
  if (sorted == nullptr) {
    for (Edit* edit = next; edit != nullptr; edit = next) {
      next = edit->next[0];
      descend(list, edit->key(), path);
      link(list, edit, path);
    }
    return;
  }
  for (uint32_t at = 0; at < count; ++at, next = next->next[0]) sorted[at] = {next->prefix, next};
  std::sort(sorted, sorted + count);
  for (uint32_t at = 0; at < count; ++at) {
    advance(wanted_of(sorted[at].edit), path);
    link(list, sorted[at].edit, path);
  }
  free(sorted);
}

const Overlay::List& Overlay::in_order(Table table) const {
  List& list = lists_[static_cast<uint32_t>(table)];
  if (list.waiting != nullptr) settle(list);
  return list;
}

// A new entry for a key that has none.
Overlay::Edit* Overlay::insert(Table table, Bytes key, uint32_t hash, uint32_t room) {
  if (entries_ >= mask_ / 2 && !grow()) return nullptr;
  Edit* edit = make(table, key, room);
  if (edit == nullptr) return nullptr;
  add(lists_[static_cast<uint32_t>(table)], edit);
  place(edit, hash);
  ++entries_;
  bytes_ += key.len;
  return edit;
}

uint8_t* Overlay::replace(Table table, Bytes key, uint32_t len, uint32_t room) {
  const uint32_t hash = hash_of(table, key);
  Edit* edit = lookup(table, key, hash);
  if (edit != nullptr) {
    auto* value = static_cast<uint8_t*>(arena_.take(room));
    if (value == nullptr) return nullptr;
    edit->value = value;
    edit->room = room;
  } else {
    edit = insert(table, key, hash, room);
    if (edit == nullptr) return nullptr;
  }
  bytes_ += len;
  edit->len = len;
  return edit->value;
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
  const uint32_t hash = hash_of(table, key);
  Edit* edit = lookup(table, key, hash);
  if (edit == nullptr) edit = insert(table, key, hash, 0);
  if (edit == nullptr) return false;
  erased_ |= 1U << static_cast<uint32_t>(table);
  edit->value = nullptr;
  edit->len = 0;
  edit->room = 0;
  return true;
}

}  // namespace rov
