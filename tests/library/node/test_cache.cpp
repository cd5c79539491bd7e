// The node cache as it is: of capacity 0, it keeps nothing.

#include "tests/library/node/cache_test.h"

namespace {

using node_test::kNode;
using node_test::kSes;

// Before any test has touched it.
const std::int32_t initial_capacity = node_cache_max;
const bool initially_empty =
    node_cache_head == nullptr && node_cache_tail == nullptr && node_cache_count == 0;

class NodeCacheOff : public node_test::CacheTest {};

TEST_F(NodeCacheOff, is_how_the_cache_starts) {
  EXPECT_EQ(initial_capacity, 0);
  EXPECT_TRUE(initially_empty);
}

TEST_F(NodeCacheOff, adding_succeeds_and_keeps_nothing) {
  auto* const made = entry(1);
  made->next = made;
  EXPECT_EQ(add(made), 0u);
  expect_list({});
  EXPECT_EQ(made->next, made);
  EXPECT_TRUE(fake::is_live(made));
  fake::release(made);
}

TEST_F(NodeCacheOff, a_negative_capacity_keeps_nothing_either) {
  node_cache_max = -1;
  auto* const made = entry(1);
  EXPECT_EQ(add(made), 0u);
  expect_list({});
  fake::release(made);
}

TEST_F(NodeCacheOff, looking_up_finds_nothing) {
  EXPECT_EQ(get(1), nullptr);
  EXPECT_EQ(get(0), nullptr);
  expect_list({});
}

TEST_F(NodeCacheOff, unlinking_removing_and_replacing_find_nothing_and_succeed) {
  qim_node_t node{};
  node.id = 1;
  EXPECT_EQ(unlink(1), nullptr);
  EXPECT_EQ(qim_node_cache_unlink(kSes, 1, nullptr), 0u);
  EXPECT_EQ(qim_node_cache_rm(kSes, 1, ctx()), 0u);
  EXPECT_EQ(qim_node_cache_replace(kSes, &node, ctx()), 0u);
  expect_list({});
  EXPECT_EQ(fake::calls().size(), 0u);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(NodeCacheOff, destroying_succeeds_and_leaves_it_empty) {
  EXPECT_EQ(qim_node_cache_destroy(ctx()), 0u);
  expect_list({});
}

TEST_F(NodeCacheOff, destroying_clears_stray_ends) {
  qim_node_cache_entry_t stray{};
  node_cache_head = &stray;
  node_cache_tail = &stray;
  EXPECT_EQ(qim_node_cache_destroy(ctx()), 0u);
  expect_list({});
}

TEST_F(NodeCacheOff, closing_frees_any_open_node) {
  fake::node(kNode).action({.args = {1}}).priv({2});
  opened(kNode);
  EXPECT_EQ(fake::live_blocks(), 3u);
  close();
  EXPECT_EQ(fake::live_blocks(), 0u);
}

TEST_F(NodeCacheOff, opening_reads_the_database_every_time) {
  fake::node(kNode).ifelse();
  for (unsigned times = 1; times <= 3; ++times) {
    opened(kNode);
    expect_list({});
    EXPECT_EQ(fake::count("rov_node_data_get"), times);
    close();
  }
}

TEST_F(NodeCacheOff, two_open_nodes_of_one_identifier_are_two_nodes) {
  fake::node(kNode).ifelse();
  qim_node_t* const first = &opened(kNode);
  qim_node_t* const second = &opened(kNode);
  EXPECT_NE(first, second);
  EXPECT_EQ(qim_int_node_close(first, ctx()), 0u);
  EXPECT_TRUE(fake::is_live(node_test::entry_of(second)));
  close();
}

TEST_F(NodeCacheOff, closing_returns_what_freeing_returns) {
  fake::node(kNode).ifelse();
  qim_node_t* const node = &opened(kNode);
  fake::fail("mem_free", node_test::kFailure);
  EXPECT_EQ(qim_int_node_close(node, ctx()), node_test::kFailure);
  close();
}

}  // namespace
