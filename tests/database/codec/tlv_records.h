// Records with every kind of field that a descriptor table can describe, and their tables.
#ifndef TESTS_DATABASE_CODEC_TLV_RECORDS_H
#define TESTS_DATABASE_CODEC_TLV_RECORDS_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "rov.h"
#include "tests/database/codec/tlv_builder.h"
#include "tests/database/codec/tlv_tables.h"
#include "tlvo.h"

namespace tlv_test {

// Integers of every width; the table's order is not that of the ids. Struct id 0x21.
struct Ints {
  uint8_t one;         // field 4
  uint16_t two;        // field 1
  uint32_t four;       // field 3
  uint64_t eight;      // field 2
  uint32_t untouched;  // of no field
};

// An embedded record between integers. Struct id 0x22.
struct Outer {
  uint32_t before;  // field 1
  Ints inner;       // field 2
  uint32_t after;   // field 3
};

// An element with a byte string. Struct id 0x23.
struct Item {
  Item* next;
  uint32_t type;      // field 1
  uint32_t args_len;  // of field 2
  void* args;         // field 2
};

// Two lists. Struct id 0x24.
struct Owner {
  uint32_t flags;   // field 3
  uint32_t count;   // elements of `items` that were decoded
  uint32_t count2;  // the same of `others`
  Item* items;      // field 4
  Item* others;     // field 5
};

// A union and its discriminator. Struct id 0x25.
struct Any {
  uint32_t group;  // field 1
  uint32_t type;   // with field 3
  uint32_t flags;  // field 2
  alignas(8) unsigned char body
      [64];  // field 3: Ints (1), Outer (2), Item (3), Owner (4), nothing (5 to 10)
};

// The tables of these records and what their callbacks go by.
struct Tables {
  Table<4> ints;
  Table<3> outer;
  Table<2> item;
  Table<3> owner;
  Table<0> empty;
  Table<3> any;
  tlvo_list_t item_link;
  tlvo_list_t items;
  tlvo_list_t others;
  tlvo_union_t members[TLVO_UNION_MEMBERS];
};

// In memory that is only read, so that the codec makes plans of them.
extern const Tables constant_tables;
// The same in memory that could change: the codec follows them field by field.
extern Tables writable_tables;

// Has the callbacks go by those tables.
bool use_tables(const Tables& tables);

// The tests are built once for each.
#ifdef TLV_TESTS_WITHOUT_PLANS
inline const Tables& tables = writable_tables;
#else
inline const Tables& tables = constant_tables;
#endif
inline const bool tables_are_used = use_tables(tables);

inline const Table<4>& ints_table = tables.ints;
inline const Table<3>& outer_table = tables.outer;
inline const Table<2>& item_table = tables.item;
inline const Table<3>& owner_table = tables.owner;
inline const Table<0>& empty_table = tables.empty;
inline const Table<3>& any_table = tables.any;
inline const tlvo_union_t (&any_members)[TLVO_UNION_MEMBERS] = tables.members;
inline const tlvo_list_t& items_list = tables.items;

// Decoded records are given back with these, whole or as a failed decode left them.
void release(Item* item);
void release_list(Item* first);
void release(Owner* owner);
void release(Any* any);

// An item that is not in a list, from the pool.
Item* new_item(uint32_t type, const std::string& args, Item* next = nullptr);
std::string args_of(const Item* item);

// Decodes into a record of the caller's.
inline uint32_t decode(void* record, const Bytes& tlva, const tlvo_table_t* table) {
  return tlvo_dec_tlva_to_struct(&record, tlva.data(), static_cast<uint32_t>(tlva.size()), table,
                                 TLVO_DEC_IN_PLACE);
}

}  // namespace tlv_test

#endif
