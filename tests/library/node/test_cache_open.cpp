// Opening, closing and reading nodes while the cache has a capacity.

#include "tests/library/node/cache_test.h"

namespace {

using node_test::entry_of;
using node_test::kNode;
using node_test::kSes;

class NodeCacheOpen : public node_test::CacheTest {
 protected:
  void SetUp() override {
    CacheTest::SetUp();
    node_cache_max = 2;
    for (const std::uint32_t id : {1u, 2u, 3u}) fake::node(id).filter({.flags = id}).link(0x081, 9);
  }
};

TEST_F(NodeCacheOpen, an_opened_node_is_in_the_list_and_its_close_leaves_it_there) {
  qim_node_t& node = opened(1);
  EXPECT_EQ(node_cache_head, entry_of(&node));
  close();
  expect_list({1});
  EXPECT_EQ(fake::live_blocks(), 1u);
}

TEST_F(NodeCacheOpen, a_second_open_asks_the_database_nothing) {
  qim_node_t* const first = &opened(1);
  fake::clear_calls();
  EXPECT_EQ(&opened(1), first);
  EXPECT_EQ(fake::calls().size(), 0u);
}

TEST_F(NodeCacheOpen, a_second_open_moves_the_node_to_the_head) {
  opened(1);
  opened(2);
  opened(1);
  expect_list({1, 2});
  opened(3);
  expect_list({3, 1});
}

TEST_F(NodeCacheOpen, a_second_open_does_not_compare_the_required_type) {
  opened(1);
  EXPECT_EQ(open(1, QIM_NODE_POLICE), 0u);
  EXPECT_EQ(node()->type, QIM_NODE_FILTER);
}

TEST_F(NodeCacheOpen, the_cache_is_asked_by_the_identifier_from_the_parameters) {
  qim_node_t* const first = &opened(1);
  const rov_node_parms_t parms = fake::node(1).parms();
  ASSERT_EQ(open(0, 0, &parms), 0u);
  EXPECT_EQ(node(), first);
}

TEST_F(NodeCacheOpen, another_session_reads_the_database) {
  opened(1);
  qim_node_t* other = nullptr;
  ASSERT_EQ(qim_int_node_open(kSes + 1, 1, nullptr, 0, &other, ctx()), 0u);
  EXPECT_EQ(fake::count("rov_node_data_get"), 2u);
  expect_list({1, 1});
}

// The cache has it by the time its type is looked at. The ends of the list then point at freed
// memory, which is why the capacity stays 0.
TEST_F(NodeCacheOpen, a_node_of_another_type_than_required_is_freed_although_the_cache_has_it) {
  EXPECT_EQ(open(1, QIM_NODE_POLICE), static_cast<std::uint32_t>(QIM_ERR_NODE_TYPE));
  EXPECT_EQ(node(), nullptr);
  EXPECT_EQ(node_cache_count, 1);
  EXPECT_NE(node_cache_head, nullptr);
  EXPECT_EQ(node_cache_head, node_cache_tail);
  EXPECT_EQ(fake::live_blocks(), 0u);
  forget_list();
}

TEST_F(NodeCacheOpen, a_node_that_fails_to_decode_never_reaches_the_cache) {
  fake::fail("rov_node_ln_field_get", node_test::kFailure);
  EXPECT_EQ(open(1), node_test::kFailure);
  expect_list({});
}

TEST_F(NodeCacheOpen, a_node_whose_scratch_cannot_be_freed_stays_in_the_cache) {
  fake::fail("mem_free", node_test::kFailure);
  EXPECT_EQ(open(1), node_test::kFailure);
  EXPECT_EQ(entry_of(node()), node_cache_head);
  expect_list({1});
  expect_left(1);
}

TEST_F(NodeCacheOpen, a_node_that_the_cache_refuses_is_freed_by_its_close) {
  add(entry(8, kSes + 1));
  add(entry(9));
  opened(1);
  expect_list({9, 8});
  close();
  EXPECT_EQ(fake::live_blocks(), 2u);
}

TEST_F(NodeCacheOpen, reads_share_the_cached_node) {
  qim_node_t first;
  qim_node_t second;
  ASSERT_EQ(qim_node_read(kSes, 1, 0, &first), 0u);
  ASSERT_EQ(qim_node_read(kSes, 1, 0, &second), 0u);
  EXPECT_EQ(fake::count("rov_node_data_get"), 1u);
  EXPECT_EQ(node_test::bytes_of(first), node_test::bytes_of(second));
}

TEST_F(NodeCacheOpen, replaced_nodes_are_read_afresh) {
  qim_node_t copy;
  ASSERT_EQ(qim_node_read(kSes, 1, 0, &copy), 0u);
  fake::node(1).filter({.flags = 0x77});
  ASSERT_EQ(qim_node_cache_replace(kSes, &copy, ctx()), 0u);
  ASSERT_EQ(qim_node_read(kSes, 1, 0, &copy), 0u);
  EXPECT_EQ(copy.body.filter.flags, 0x77u);
}

}  // namespace
