// Descriptor tables, piece by piece.
#ifndef TESTS_DATABASE_CODEC_TLV_TABLES_H
#define TESTS_DATABASE_CODEC_TLV_TABLES_H

#include <cstddef>
#include <cstdint>

#include "rov_types.h"

namespace tlv_test {

// A table as a client lays it out: the head, the fields and the terminator behind one another.
template <size_t kFields>
struct Table {
  tlvo_table_t head;
  tlvo_field_t field[kFields + 1];
};

constexpr tlvo_table_t table_head(const char* name, uint32_t struct_id, size_t record_size) {
  tlvo_table_t head{};
  head.record_size = static_cast<uint32_t>(record_size);
  head.name = name;
  head.struct_id = struct_id;
  return head;
}

constexpr tlvo_field_t int_field(uint32_t id, size_t width, size_t position) {
  tlvo_field_t field{};
  field.id = id;
  field.width = static_cast<uint32_t>(width);
  field.position = static_cast<uint32_t>(position);
  field.kind = TLVO_KIND_INT;
  return field;
}

constexpr tlvo_field_t record_field(uint32_t id, size_t position, size_t width,
                                    const tlvo_table_t* record) {
  tlvo_field_t field = int_field(id, width, position);
  field.kind = TLVO_KIND_RECORD;
  field.record = record;
  return field;
}

constexpr tlvo_field_t value_field(uint32_t id, size_t position, tlvo_encode_fn encode,
                                   tlvo_decode_fn decode, tlvo_size_fn size) {
  tlvo_field_t field = int_field(id, sizeof(void*), position);
  field.kind = TLVO_KIND_VALUE;
  field.encode = encode;
  field.decode = decode;
  field.size = size;
  return field;
}

constexpr tlvo_field_t list_field(uint32_t id, tlvo_count_fn count, tlvo_encode_fn encode,
                                  tlvo_decode_fn decode, tlvo_size_fn size) {
  tlvo_field_t field = value_field(id, 0, encode, decode, size);
  field.width = 0;
  field.kind = TLVO_KIND_LIST;
  field.count = count;
  return field;
}

constexpr tlvo_field_t end_field() {
  tlvo_field_t field{};
  field.position = TLVO_FIELD_END;
  return field;
}

}  // namespace tlv_test

#endif
