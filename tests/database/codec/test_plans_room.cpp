// More tables than there is room for plans. By itself, for the room stays taken.
#include <gtest/gtest.h>

#include <vector>

#include "database/codec/plan.h"
#include "tests/database/codec/tlv_builder.h"
#include "tests/database/codec/tlv_records.h"

namespace {

using namespace tlv_test;

uint32_t decode_four(const tlvo_table_t* table, uint32_t four) {
  Ints ints{};
  void* record = &ints;
  const Bytes tlva = Builder().int32(0x210003, four).bytes();
  EXPECT_EQ(tlvo_dec_tlva_to_struct(&record, tlva.data(), static_cast<uint32_t>(tlva.size()), table,
                                    TLVO_DEC_IN_PLACE),
            ROV_OK);
  return ints.four;
}

TEST(TlvPlansRoom, TablesBeyondItAreFollowedWithoutAPlan) {
  EXPECT_EQ(decode_four(&constant_tables.ints.head, 1), 1u);
  const std::vector<Table<4>> many(tlv::kPlanSlots, writable_tables.ints);
  for (uint32_t round = 0; round < 2; ++round) {
    for (uint32_t i = 0; i < many.size(); ++i) {
      ASSERT_EQ(decode_four(&many[i].head, i), i);
    }
  }
  EXPECT_NE(tlv::ready_plan(&constant_tables.ints.head), nullptr);
  EXPECT_EQ(decode_four(&constant_tables.ints.head, 2), 2u);
  Outer outer{};
  void* record = &outer;
  const Bytes tlva = Builder().int32(0x220003, 3).bytes();
  EXPECT_EQ(tlvo_dec_tlva_to_struct(&record, tlva.data(), static_cast<uint32_t>(tlva.size()),
                                    &constant_tables.outer.head, TLVO_DEC_IN_PLACE),
            ROV_OK);
  EXPECT_EQ(outer.after, 3u);
  EXPECT_EQ(tlv::ready_plan(&constant_tables.outer.head), nullptr);
}

}  // namespace
