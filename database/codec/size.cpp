#include "database/codec/codec.h"

namespace tlv {
namespace {

// Bytes of a field's attributes, heads and padding included; TLVO_SIZE_FAILED or more for a
// failure.
uint64_t field_size(const tlvo_field_t& field, const uint8_t* record) {
  switch (field.kind) {
    case TLVO_KIND_INT:
      return kHeadBytes + padded(field.width);
    case TLVO_KIND_RECORD: {
      const uint32_t size = encoded_size(field.record, record + field.position);
      return size == TLVO_SIZE_FAILED ? size : kHeadBytes + padded(size);
    }
    case TLVO_KIND_VALUE: {
      const uint32_t size = field.size(record);
      return size == 0 || size == TLVO_SIZE_FAILED ? size : kHeadBytes + padded(size);
    }
    default:
      return field.size(record);
  }
}

}  // namespace

uint32_t encoded_size(const tlvo_table_t* table, const void* record) {
  if (Level::is_last() || table == nullptr) return TLVO_SIZE_FAILED;
  const Level level;
  uint64_t sum = 0;
  const tlvo_field_t* field = fields_of(table);
  for (uint32_t i = 0; i < kMaxFields; ++i, ++field) {
    if (is_end(*field)) return static_cast<uint32_t>(sum);
    if (!is_sound(*field, *table)) return TLVO_SIZE_FAILED;
    sum += field_size(*field, static_cast<const uint8_t*>(record));
    if (sum >= TLVO_SIZE_FAILED) return TLVO_SIZE_FAILED;
  }
  return is_end(*field) ? static_cast<uint32_t>(sum) : TLVO_SIZE_FAILED;
}

}  // namespace tlv
