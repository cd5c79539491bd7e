// Criteria without arguments: what leads to them in an open filter and in a client's buffer.

#include <cstdint>

#include "tests/library/query/support.h"

namespace {

using namespace query_test;

constexpr qim_node_id_t kBare = 0x08300040;

class CriteriaWithoutArgs : public QueryTest {
 protected:
  void SetUp() override {
    QueryTest::SetUp();
    fake::node(kBare).filter({.match = 1, .criteria = {{5, {}}, {6, {}}}}).link(0x081, 9);
  }
};

TEST_F(CriteriaWithoutArgs, lead_to_nothing_in_an_open_filter) {
  qim_node_t* node = nullptr;
  ASSERT_EQ(qim_int_node_open(kSes, kBare, nullptr, 0, &node, ctx()), 0u);
  EXPECT_EQ(node->body.filter.crit->args_len, 0u);
  EXPECT_EQ(node->body.filter.crit->args, nullptr);
  EXPECT_EQ(qim_int_node_close(node, ctx()), 0u);
}

TEST_F(CriteriaWithoutArgs, lead_to_the_place_behind_the_record_in_a_clients_buffer) {
  alignas(8) std::uint8_t buffer[64];
  ASSERT_EQ(qim_filter_criteria_get(kSes, kBare, sizeof buffer, buffer), 0u);
  const auto* const first = reinterpret_cast<const qim_criterion_t*>(buffer);
  EXPECT_EQ(first->args_len, 0u);
  ASSERT_NE(first->args, nullptr);
  EXPECT_EQ(first->args, reinterpret_cast<const std::uint8_t*>(first->next));
  EXPECT_NE(first->next->args, nullptr);
}

TEST_F(CriteriaWithoutArgs, lead_there_in_a_whole_node_too) {
  alignas(8) std::uint8_t buffer[64];
  qim_node_t node;
  ASSERT_EQ(qim_node_readall(kSes, kBare, QIM_NODE_FILTER, &node, sizeof buffer, buffer), 0u);
  EXPECT_NE(node.body.filter.crit->args, nullptr);
}

}  // namespace
