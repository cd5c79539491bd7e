// Records with every kind of field that a descriptor table can describe, and their tables.
#ifndef TESTS_PLATFORM_TLV_RECORDS_H
#define TESTS_PLATFORM_TLV_RECORDS_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "rov.h"
#include "tlvo.h"

namespace tlv_test {

// A table as a client lays it out: the head, the fields and the terminator behind one another.
template <size_t kFields>
struct Table {
  tlvo_table_t head;
  tlvo_field_t field[kFields + 1];
};

tlvo_table_t table_head(const char* name, uint32_t struct_id, size_t record_size);
tlvo_field_t int_field(uint32_t id, size_t width, size_t position);
tlvo_field_t record_field(uint32_t id, size_t position, const tlvo_table_t* record);
tlvo_field_t value_field(uint32_t id, size_t position, tlvo_encode_fn encode, tlvo_decode_fn decode,
                         tlvo_size_fn size);
tlvo_field_t list_field(uint32_t id, tlvo_count_fn count, tlvo_encode_fn encode,
                        tlvo_decode_fn decode, tlvo_size_fn size);
tlvo_field_t end_field();

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

extern const Table<4> ints_table;
extern const Table<3> outer_table;
extern const Table<2> item_table;
extern const Table<3> owner_table;
extern const Table<0> empty_table;
extern const Table<3> any_table;
extern const tlvo_union_t any_members[TLVO_UNION_MEMBERS];
extern const tlvo_list_t items_list;

// Decoded records are given back with these, whole or as a failed decode left them.
void release(Item* item);
void release_list(Item* first);
void release(Owner* owner);
void release(Any* any);

// An item that is not in a list, from the pool.
Item* new_item(uint32_t type, const std::string& args, Item* next = nullptr);
std::string args_of(const Item* item);

}  // namespace tlv_test

#endif
