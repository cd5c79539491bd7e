// The codec's inside: what the entry points (tlvo.h) and the helpers of field callbacks (rov.h) are
// made of. Records nest through callbacks, which can't hand a depth on: each thread counts the
// levels it is in.
#pragma once

#include <cstdint>

#include "database/base/bytes.h"
#include "database/codec/plan.h"
#include "database/codec/wire.h"
#include "rov.h"
#include "tlvo.h"

namespace tlv {

// ---- Journals -----------------------------------------------------------------------------------
//
// What a decode allocated, so that it can be given back or added up.
//
// A decoded record owns memory that only its callbacks can reach. Where the codec itself makes the
// record, nobody else could free what a failed decode leaves; and how much memory a decoded record
// takes is known to nobody but who allocates it. The helpers of field callbacks therefore enter
// their blocks here while a Journal lives on the thread.

class Journal {
 public:
  Journal();
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  // Gives back the blocks that were entered since this journal began.
  void undo();
  // Bytes of those blocks.
  uint64_t bytes() const;

  // Whether there is a journal on the thread.
  static bool is_kept() { return journals_ != 0; }
  // Makes room for one more entry, so that enter() can't fail. False when there is no memory. Does
  // nothing on a thread without a journal.
  static bool reserve() { return journals_ == 0 || reserve_one(); }
  static void enter(void* block, uint32_t size) {
    if (journals_ != 0) enter_one(block, size);
  }

 private:
  static bool reserve_one();
  static void enter_one(void* block, uint32_t size);

  // Those of the thread lie within one another.
  static constinit thread_local uint32_t journals_;
  uint32_t begin_;
};

// ---- Coding -------------------------------------------------------------------------------------

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
  static constinit thread_local uint32_t depth_;
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

// decode_planned follows a plan that is ready. decode_unplanned makes the table's plan first, where it
// can have one, and follows the table itself where it can't; it refuses what is nested too deep.
// decode_run decodes an array that is as long as a plan of nothing but integers says, all at once.
[[nodiscard]] uint32_t decode_planned(void* record, const uint8_t* begin, const uint8_t* end,
                                      const Step* step);
[[nodiscard]] uint32_t decode_unplanned(void* record, const uint8_t* begin, const uint8_t* end,
                                        const tlvo_table_t* table);
[[nodiscard]] uint32_t decode_run(void* record, const uint8_t* begin, const uint8_t* end,
                                  const Step* step);

// Decodes the attributes in `len` bytes at `tlva` into `record`.
[[nodiscard]] inline uint32_t decode_record(void* record, const void* tlva, uint32_t len,
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

// Each does for encoding what its namesake does for decoding. encode_run needs room for all integers
// of its plan.
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

// Reports a record that is nested too deep, or has no table, and returns the status of that.
[[nodiscard]] uint32_t refuse_record(const tlvo_table_t* table);

// Bytes that encode_record would write, or TLVO_SIZE_FAILED.
[[nodiscard]] uint32_t encoded_size(const tlvo_table_t* table, const void* record);

// A pointer that lies in a record, whatever it points to and however the record is aligned.
inline void* load_pointer(const void* from) {
  return rov::load<void*>(from);
}
inline void store_pointer(void* to, void* pointer) {
  rov::write_value(to, pointer);
}

}  // namespace tlv
