// The codec's inside: what the entry points (tlvo.h) and the helpers of field callbacks (rov.h) are
// made of. Records nest through callbacks, which can't hand a depth on: each thread counts the
// levels it is in.
#ifndef DATABASE_CODEC_CODEC_H
#define DATABASE_CODEC_CODEC_H

#include <cstdint>

#include "database/base/bytes.h"
#include "database/codec/plan.h"
#include "database/codec/wire.h"
#include "rov.h"
#include "tlvo.h"

namespace tlv {

inline constexpr uint32_t kMaxDepth = 8;    // records within one another, the outermost included
inline constexpr uint32_t kMaxFields = 64;  // of a table
inline constexpr uint32_t kMaxFieldId = 0xffff;

// While it lives, records that are coded lie within one more record.
class Level {
 public:
  Level() { ++depth_; }
  ~Level() { --depth_; }
  Level(const Level&) = delete;
  Level& operator=(const Level&) = delete;

  // Whether a record would be nested too deep.
  static bool is_last() { return depth_ >= kMaxDepth; }

 private:
  static constinit thread_local uint32_t depth_ __attribute__((tls_model("initial-exec")));
};

// The field descriptors that follow a table's head.
inline const tlvo_field_t* fields_of(const tlvo_table_t* table) {
  return reinterpret_cast<const tlvo_field_t*>(table + 1);
}

inline bool is_end(const tlvo_field_t& field) {
  return field.position == TLVO_FIELD_END;
}

// For messages; a table may be damaged.
inline const char* name_of(const tlvo_table_t& table) {
  return table.name != nullptr ? table.name : "a record";
}

// Whether the field has a place in its record, and a tag.
inline bool has_place(const tlvo_field_t& field, const tlvo_table_t& table) {
  return uint64_t{field.position} + field.width <= table.record_size && field.id <= kMaxFieldId;
}

inline bool has_callbacks(const tlvo_field_t& field) {
  return field.id <= kMaxFieldId && field.encode != nullptr && field.decode != nullptr &&
         field.size != nullptr;
}

// Whether the codec can follow the field.
inline bool is_sound(const tlvo_field_t& field, const tlvo_table_t& table) {
  switch (field.kind) {
    case TLVO_KIND_INT:
      return has_place(field, table) && is_int_width(field.width);
    case TLVO_KIND_RECORD:
      return has_place(field, table) && field.record != nullptr &&
             field.record->record_size <= field.width;
    case TLVO_KIND_VALUE:
      return has_callbacks(field);
    case TLVO_KIND_LIST:
      return has_callbacks(field) && field.count != nullptr;
    default:
      return false;
  }
}

// By a plan; by one that is made first, or without one, or not at all; and of an array as long as a
// plan of integers has it.
uint32_t decode_planned(void* record, const uint8_t* begin, const uint8_t* end, const Step* step);
uint32_t decode_unplanned(void* record, const uint8_t* begin, const uint8_t* end,
                          const tlvo_table_t* table);
uint32_t decode_run(void* record, const uint8_t* begin, const uint8_t* end, const Step* step);

// Decodes the attributes in `len` bytes at `tlva` into `record`.
inline uint32_t decode_record(void* record, const void* tlva, uint32_t len,
                              const tlvo_table_t* table) {
  const auto* const begin = static_cast<const uint8_t*>(tlva);
  const Step* const step = Level::is_last() || table == nullptr ? nullptr : ready_plan(table);
  if (step == nullptr) return decode_unplanned(record, begin, begin + len, table);
  if (step->whole == len) return decode_run(record, begin, begin + len, step);
  return decode_planned(record, begin, begin + len, step);
}

// The end of what was encoded, and how that went; after a failure only the latter counts.
struct Encoded {
  uint8_t* end;
  size_t status;
};

// As those of decoding; the last one with the room that a plan of integers takes.
Encoded encode_planned(uint8_t* at, const uint8_t* end, const Step* step, const void* record);
Encoded encode_unplanned(uint8_t* at, const uint8_t* end, const tlvo_table_t* table,
                         const void* record);
Encoded encode_run(uint8_t* at, const Step* step, const void* record);

// Encodes `record` at `at`, not beyond `end`.
inline Encoded encode_record(uint8_t* at, const uint8_t* end, const tlvo_table_t* table,
                             const void* record) {
  const Step* const step = Level::is_last() || table == nullptr ? nullptr : ready_plan(table);
  if (step == nullptr) [[unlikely]]
    return encode_unplanned(at, end, table, record);
  if (step->whole <= bytes_between(at, end)) return encode_run(at, step, record);
  return encode_planned(at, end, step, record);
}

// Reports an argument, counted from 1, that is missing or out of its range: ROV_ERR_INVALID.
uint32_t missing(uint32_t argument);

// Reports a record that is nested too deep, or has no table, and returns the status of that.
uint32_t refuse_record(const tlvo_table_t* table);

// Bytes that encode_record would write, or TLVO_SIZE_FAILED.
uint32_t encoded_size(const tlvo_table_t* table, const void* record);

// A pointer that lies in a record, whatever it points to and however the record is aligned.
inline void* load_pointer(const void* from) {
  return rov::load<void*>(from);
}
inline void store_pointer(void* to, void* pointer) {
  rov::store(to, pointer);
}

}  // namespace tlv

#endif
