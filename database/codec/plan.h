// What the codec makes of a descriptor table when it first follows it: a step for each field, with
// everything about the field checked and the bytes of its head ready to compare and to write.
//
// A plan is found by its table's address, so only tables get one whose memory can't come to hold
// another table or other fields: those in the read-only parts of the program and of shared objects,
// which then stay loaded. Every other table is followed field by field, checked as it is used.
// Either way the result is the same. Plans are never given up; there are as many as have room.
#ifndef DATABASE_CODEC_PLAN_H
#define DATABASE_CODEC_PLAN_H

#include <atomic>
#include <cstdint>

#include "rov_types.h"

namespace tlv {

enum class Follow : uint32_t {
  kInt4,  // an integer of 4 bytes
  kInt8,
  kRecord,
  kValue,
  kList,
  kOther,  // as the descriptor says: an integer of 1 or 2 bytes
  kEnd
};

inline bool is_integer(Follow follow) {
  return follow <= Follow::kInt8;
}

// Whether others are called for what the attribute holds.
inline bool is_called(Follow follow) {
  return follow >= Follow::kRecord && follow <= Follow::kList;
}

struct Step {
  uint64_t head;  // of the attribute as it stands in the data; without a length but for integers
  Follow follow;
  uint32_t position;  // of the field in its record
  uint32_t run;       // bytes of attributes from here on that are integers of 4 or 8 bytes
  uint64_t whole;     // the same if they are all there is from here on, else kMore
  const tlvo_field_t* field;
  const tlvo_table_t* table;
};

inline constexpr uint64_t kMore = UINT64_MAX;
inline constexpr uint32_t kPlanSlots = 256;  // a power of two

// Where a plan is found. Filled once: the table last, by which others see that it is there.
struct PlanSlot {
  std::atomic<const tlvo_table_t*> table{nullptr};
  const Step* steps = nullptr;
};

extern constinit PlanSlot plan_slots[kPlanSlots];

// Tables of one object lie near each other and are longer than what a slot stands for.
inline uint32_t plan_slot_of(const tlvo_table_t* table) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(table) / 32 % kPlanSlots);
}

// The steps of a table's plan, one for each field and one for the end; nullptr when it has no plan,
// or none yet.
inline const Step* ready_plan(const tlvo_table_t* table) {
  for (uint32_t i = plan_slot_of(table);; i = (i + 1) % kPlanSlots) {
    const PlanSlot& slot = plan_slots[i];
    const tlvo_table_t* there = slot.table.load(std::memory_order_acquire);
    if (there == table) [[likely]]
      return slot.steps;
    if (there == nullptr) return nullptr;
  }
}

// The same, and makes the plan if there can be one.
const Step* make_plan(const tlvo_table_t* table);

}  // namespace tlv

#endif
