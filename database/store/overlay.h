// Edits that are not in the store yet: what a write session has put and deleted.
//
// A hash table finds one key, and a skip list a table keeps them in order; all memory of entries
// comes from one arena. Values stay where they are until the overlay goes, or until `put` needs
// more room for the same key.
//
// An entry whose key is not behind all others waits, without order, until somebody asks for the
// order: a policy that is imported links to nodes far apart, and sorting what waits costs much less
// than a search for each.
#ifndef DATABASE_STORE_OVERLAY_H
#define DATABASE_STORE_OVERLAY_H

#include "database/base/bytes.h"
#include "database/base/tables.h"
#include "database/store/arena.h"

namespace rov {

class Overlay {
 public:
  static constexpr uint32_t kLevels = 16;

  // One edited key. `value` is NULL when the key is deleted.
  struct Edit {
    uint64_t prefix;  // of the key, so that most comparisons need no other cache line
    uint8_t* value;
    uint32_t len;
    uint32_t room;
    uint16_t key_len;
    uint8_t height;
    Table table;
    Edit* next[1];  // `height` of them, then the key

    Bytes key() const { return {reinterpret_cast<const uint8_t*>(next + height), key_len}; }
  };

  Overlay();
  ~Overlay();
  Overlay(const Overlay&) = delete;
  Overlay& operator=(const Overlay&) = delete;

  // The key's value, to be written by the caller: `len` bytes, of which as many as the overlay had
  // for the key keep their contents. `room` (>= len) is what a new buffer has space for. NULL = no
  // memory, nothing changed.
  uint8_t* put(Table table, Bytes key, uint32_t len, uint32_t room);
  // Same, in a new buffer always, so that the old value can be read while the new one is made.
  uint8_t* replace(Table table, Bytes key, uint32_t len, uint32_t room);
  // Marks the key as deleted. False = no memory.
  bool erase(Table table, Bytes key);

  // The edit of exactly that key, of the first key not below it, of the last key not above it; NULL
  // when there is none.
  Edit* find(Table table, Bytes key) const;
  Edit* ge(Table table, Bytes key) const;
  Edit* le(Table table, Bytes key) const;
  Edit* first(Table table) const { return in_order(table).head[0]; }

  bool empty() const { return entries_ == 0; }
  // Whether any key of the table was ever marked as deleted.
  bool erased(Table table) const { return (erased_ >> static_cast<uint32_t>(table) & 1) != 0; }
  // Bytes of all keys and values that were put.
  size_t bytes() const { return bytes_; }

 private:
  struct List {
    Edit* head[kLevels];
    Edit** last[kLevels];  // on each level, the links of the last entry
    Edit* waiting;         // entries that wait for their place, linked by next[0]
    uint32_t waits;        // their number
  };
  struct Cell {
    Edit* edit;
    uint32_t hash;
  };
  // Fills `path` with the links after which the key belongs on each level; returns what follows
  // there.
  static Edit* descend(const List& list, Bytes key, Edit*** path);
  Edit* lookup(Table table, Bytes key, uint32_t hash) const;
  Edit* insert(Table table, Bytes key, uint32_t hash, uint32_t room);
  Edit* make(Table table, Bytes key, uint32_t room);
  // The table's list with all its entries in their places.
  const List& in_order(Table table) const;
  static void settle(List& list);
  static void add(List& list, Edit* edit);
  static void link(List& list, Edit* edit, Edit*** path);
  bool grow();
  void place(Edit* edit, uint32_t hash);
  uint32_t random_height();

  Arena arena_;
  mutable List lists_[kTables];  // what waits is put into its place by who only looks, too
  Cell* cells_ = nullptr;
  uint32_t mask_ = 0;  // cells - 1, 0 while there are none
  uint32_t entries_ = 0;
  uint32_t random_ = 0x9e3779b9;
  size_t bytes_ = 0;
  uint32_t erased_ = 0;  // a bit for each table
};

}  // namespace rov

#endif
