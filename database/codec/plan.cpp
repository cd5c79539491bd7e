#include "database/codec/plan.h"

#include "database/codec/codec.h"
#include "database/codec/constant_memory.h"

namespace tlv {

constinit PlanSlot plan_slots[kPlanSlots];

namespace {

// Half of the slots stay empty, so that looking for a table ends soon.
constexpr uint32_t kMostPlans = kPlanSlots / 2;
constexpr uint32_t kMostSteps = 1024;

// The thread that makes a plan. Others don't wait for it: they do without the plan until it is
// there. A process that was forked meanwhile does without new plans.
constinit std::atomic_flag making;
std::atomic<uint32_t> plans{0};  // with those that could not be made

// Those belong to it.
Step steps[kMostSteps];
uint32_t steps_used = 0;

// The fields before the terminator; more than kMaxFields for a table that can't be followed to its
// end, or not everywhere.
uint32_t count_sound(const tlvo_table_t& table) {
  const tlvo_field_t* field = fields_of(&table);
  for (uint32_t count = 0; count <= kMaxFields; ++count, ++field) {
    if (is_end(*field)) return count;
    if (!is_sound(*field, table)) break;
  }
  return kMaxFields + 1;
}

Follow how_to_follow(const tlvo_field_t& field) {
  switch (field.kind) {
    case TLVO_KIND_INT:
      if (field.width == 4) return Follow::kInt4;
      return field.width == 8 ? Follow::kInt8 : Follow::kOther;
    case TLVO_KIND_RECORD:
      return Follow::kRecord;
    case TLVO_KIND_VALUE:
      return Follow::kValue;
    default:
      return Follow::kList;
  }
}

// `after`: the step behind it, which is made already.
Step make_step(const tlvo_table_t& table, const tlvo_field_t& field, const Step& after) {
  Step step{};
  step.follow = how_to_follow(field);
  const uint32_t len = is_integer(step.follow) ? field.width : 0;
  step.head = head_of(tag_of(table.struct_id, field.id), len);
  step.position = field.position;
  step.whole = kMore;
  step.field = &field;
  step.table = &table;
  if (!is_integer(step.follow)) return step;
  step.run = kHeadBytes + len + after.run;
  if (after.whole != kMore) step.whole = step.run;
  return step;
}

// Whether the table stays what it is, and the sizes of the records that it embeds.
bool is_constant(const tlvo_table_t& table, uint32_t fields) {
  if (!rov::stays_constant(&table, sizeof table + sizeof(tlvo_field_t) * (fields + 1))) {
    return false;
  }
  const tlvo_field_t* field = fields_of(&table);
  for (uint32_t i = 0; i < fields; ++i) {
    if (field[i].kind != TLVO_KIND_RECORD) continue;
    if (!rov::stays_constant(field[i].record, sizeof(tlvo_table_t))) return false;
  }
  return true;
}

// nullptr when the table has to be followed field by field.
const Step* make_steps(const tlvo_table_t& table) {
  const uint32_t fields = count_sound(table);
  if (fields > kMaxFields || fields >= kMostSteps - steps_used) return nullptr;
  if (table.struct_id > kMaxFieldId || !is_constant(table, fields)) return nullptr;
  const tlvo_field_t* field = fields_of(&table);
  Step* first = steps + steps_used;
  steps_used += fields + 1;
  first[fields].follow = Follow::kEnd;
  first[fields].field = field + fields;
  first[fields].table = &table;
  for (uint32_t i = fields; i-- > 0;) first[i] = make_step(table, field[i], first[i + 1]);
  return first;
}

// Where the table is, or would be.
uint32_t find_slot(const tlvo_table_t* table) {
  uint32_t at = plan_slot_of(table);
  while (true) {
    const tlvo_table_t* there = plan_slots[at].table.load(std::memory_order_acquire);
    if (there == table || there == nullptr) return at;
    at = (at + 1) % kPlanSlots;
  }
}

}  // namespace

const Step* make_plan(const tlvo_table_t* table) {
  uint32_t at = find_slot(table);
  if (plan_slots[at].table.load(std::memory_order_relaxed) == table) return plan_slots[at].steps;
  if (plans.load(std::memory_order_relaxed) == kMostPlans) return nullptr;
  if (making.test_and_set(std::memory_order_acquire)) return nullptr;
  at = find_slot(table);  // another thread may have been first
  PlanSlot& slot = plan_slots[at];
  if (slot.table.load(std::memory_order_relaxed) == nullptr && plans.load() < kMostPlans) {
    slot.steps = make_steps(*table);
    slot.table.store(table, std::memory_order_release);
    plans.fetch_add(1, std::memory_order_relaxed);
  }
  const Step* made = slot.steps;
  making.clear(std::memory_order_release);
  return made;
}

}  // namespace tlv
