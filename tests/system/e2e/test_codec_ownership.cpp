// Whose memory decoded records are, and what sizes promise: the codec functions as clients call
// them.

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "mem.h"
#include "qim.h"
#include "rov.h"
#include "tlvo.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

rov_mem_ctx_t* pool() {
  return &qim_lib_get()->db_parms.mem;
}

class CodecOwnership : public testing::Test {
 protected:
  void SetUp() override {
    second_.type = 6;
    second_.args = args_;
    second_.args_len = sizeof args_;
    first_.type = 5;
    first_.next = &second_;
    filter_.crit = &first_;
  }
  void TearDown() override { *pool() = {}; }

  Bytes encoded() const {
    Bytes tlv(qim_filter_get_tlv_sz(&filter_));
    std::uint32_t len = 0;
    EXPECT_EQ(qim_filter_to_tlv(&filter_, tlv.data(), static_cast<std::uint32_t>(tlv.size()), &len,
                                nullptr, 0),
              0u);
    EXPECT_EQ(len, tlv.size());
    return tlv;
  }

  static std::uint32_t decode(const Bytes& tlv, qim_filter_t** record, std::uint32_t flags) {
    return qim_filter_to_struct(record, tlv.data(), static_cast<std::uint32_t>(tlv.size()), flags);
  }

  // Frees what hangs in the record, each block once, from the context's pool.
  static std::size_t free_criteria(qim_filter_t* record) {
    std::size_t freed = 0;
    for (qim_criterion_t* crit = record->crit; crit != nullptr; ++freed) {
      qim_criterion_t* const next = crit->next;
      if (crit->args != nullptr) {
        EXPECT_EQ(mem_free(crit->args, pool()), 0u);
      }
      EXPECT_EQ(mem_free(crit, pool()), 0u);
      crit = next;
    }
    record->crit = nullptr;
    return freed;
  }

  std::uint8_t args_[3] = {1, 2, 3};
  qim_criterion_t first_ = {};
  qim_criterion_t second_ = {};
  qim_filter_t filter_ = {};
};

TEST_F(CodecOwnership, of_a_new_record_and_all_that_hangs_in_it_is_the_callers) {
  qim_filter_t* record = nullptr;
  ASSERT_EQ(decode(encoded(), &record, 0), 0u);
  EXPECT_EQ(free_criteria(record), 2u);
  EXPECT_EQ(mem_free(record, nullptr), 0u) << "the record itself is of the process's own pool";
}

TEST_F(CodecOwnership, of_a_record_in_place_is_the_callers_and_what_hangs_in_it_too) {
  qim_filter_t mine = {};
  qim_filter_t* record = &mine;
  ASSERT_EQ(decode(encoded(), &record, TLVO_DEC_IN_PLACE), 0u);
  EXPECT_EQ(record, &mine);
  EXPECT_EQ(free_criteria(&mine), 2u);
}

TEST_F(CodecOwnership, bounds_what_hangs_in_a_record_by_the_contexts_limit_and_not_the_record) {
  qim_filter_t* record = nullptr;
  pool()->limit = 1;
  EXPECT_EQ(decode(encoded(), &record, 0), ROV_ERR_NO_MEM);
  EXPECT_EQ(record, nullptr) << "a failure gives everything back";
  filter_.crit = nullptr;
  ASSERT_EQ(decode(encoded(), &record, 0), 0u);
  EXPECT_EQ(mem_free(record, nullptr), 0u);
}

TEST_F(CodecOwnership, of_what_a_failed_decode_in_place_got_to_is_the_callers) {
  Bytes tlv = encoded();
  tlv.resize(tlv.size() - 4);  // the second criterion's arguments run past the end
  qim_filter_t mine = {};
  qim_filter_t* record = &mine;
  EXPECT_NE(decode(tlv, &record, TLVO_DEC_IN_PLACE), 0u);
  EXPECT_GE(free_criteria(&mine), 1u);
  EXPECT_NE(decode(tlv, &record, 0), 0u);
  EXPECT_EQ(record, nullptr);
}

TEST_F(CodecOwnership, of_a_record_in_place_asks_for_zeros_since_lists_are_appended_to) {
  qim_criterion_t stray = {};
  qim_filter_t mine = {};
  mine.crit = &stray;
  mine.crit_aux = 7;
  qim_filter_t* record = &mine;
  ASSERT_EQ(decode(encoded(), &record, TLVO_DEC_IN_PLACE), 0u);
  EXPECT_EQ(mine.crit, &stray) << "the list that was there goes on";
  EXPECT_NE(stray.next, nullptr);
  EXPECT_EQ(mine.crit_aux, 9u);
  mine.crit = stray.next;
  EXPECT_EQ(free_criteria(&mine), 2u);
}

TEST_F(CodecOwnership, of_a_block_of_the_allocator_is_the_contexts_pools) {
  void* block = nullptr;
  std::uint32_t size = 0;
  ASSERT_EQ(qim_tlv_struct_alloc(40, &block, &size), 0u);
  EXPECT_EQ(size, 40u);
  EXPECT_EQ(Bytes(static_cast<std::uint8_t*>(block), static_cast<std::uint8_t*>(block) + 40),
            Bytes(40));
  EXPECT_EQ(mem_free(block, pool()), 0u);
  EXPECT_EQ(mem_free(block, pool()), ROV_ERR_INVALID) << "once";
  ASSERT_EQ(qim_tlv_struct_alloc(0, &block, &size), 0u);
  EXPECT_EQ(block, nullptr);
  pool()->limit = 1;
  EXPECT_EQ(qim_tlv_struct_alloc(40, &block, &size), ROV_ERR_NO_MEM);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(size, 0u);
}

// ---- Sizes --------------------------------------------------------------------------------------

TEST(CodecSizes, are_given_of_a_record_that_encoding_refuses) {
  qim_action_t action = {};
  action.args_len = 5;  // and no bytes
  const std::uint32_t size = qim_action_get_tlv_sz(&action);
  EXPECT_NE(size, TLVO_SIZE_FAILED);
  Bytes tlv(size);
  std::uint32_t len = 1;
  EXPECT_EQ(qim_action_to_tlv(&action, tlv.data(), size, &len, nullptr, 0), ROV_ERR_INVALID);
  EXPECT_EQ(len, 0u);
}

TEST(CodecSizes, are_refused_of_a_node_without_a_type) {
  const qim_node_t node = {};
  EXPECT_EQ(qim_node_get_tlv_sz(&node), TLVO_SIZE_FAILED);
}

TEST(CodecSizes, of_the_fixed_record_do_not_depend_on_the_bytes) {
  const std::uint8_t garbage[4] = {0xff, 0xff, 0xff, 0xff};
  EXPECT_EQ(qim_filter_get_struct_sz(garbage), sizeof(qim_filter_t));
}

}  // namespace
