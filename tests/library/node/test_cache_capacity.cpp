// The node cache's list, run with a capacity: nothing in the library raises it, these tests do.

#include <cstddef>

#include "tests/library/node/cache_test.h"

namespace {

using fake::report;
using node_test::kFailure;
using node_test::kInternal;
using node_test::kSes;

using Texts = std::vector<std::string>;

constexpr std::uint32_t kOther = kSes + 1;  // another session

class NodeCache : public node_test::CacheTest {
 protected:
  void SetUp() override {
    CacheTest::SetUp();
    node_cache_max = 2;
  }
};

// ---- Adding ----------------------------------------------------------------------------------

TEST_F(NodeCache, add_to_an_empty_list_makes_head_and_tail) {
  const auto made = fill({1});
  expect_list({1});
  EXPECT_EQ(node_cache_head, made[0]);
}

TEST_F(NodeCache, add_puts_new_entries_at_the_head) {
  fill({1, 2});
  expect_list({2, 1});
}

TEST_F(NodeCache, add_beyond_the_capacity_frees_the_tail) {
  const auto made = fill({1, 2, 3});
  expect_list({3, 2});
  EXPECT_FALSE(fake::is_live(made[0]));
  EXPECT_EQ(fake::live_blocks(), 2u);
}

TEST_F(NodeCache, add_evicts_after_a_lookup_moved_the_tail) {
  fill({1, 2});
  get(1);
  fill({3});
  expect_list({3, 1});
}

TEST_F(NodeCache, add_evicts_until_there_is_room) {
  node_cache_max = 4;
  fill({1, 2, 3, 4});
  node_cache_max = 2;
  fill({5});
  expect_list({5, 4});
  EXPECT_EQ(fake::live_blocks(), 2u);
}

TEST_F(NodeCache, add_to_a_list_of_one_place_replaces_its_entry) {
  node_cache_max = 1;
  fill({1, 2});
  expect_list({2});
}

TEST_F(NodeCache, add_under_a_key_in_use_frees_the_older_entry) {
  const auto made = fill({1, 2});
  const auto newer = fill({1});
  expect_list({1, 2});
  EXPECT_EQ(node_cache_head, newer[0]);
  EXPECT_FALSE(fake::is_live(made[0]));
  EXPECT_TRUE(fake::is_live(made[1]));
}

TEST_F(NodeCache, add_of_the_same_entry_twice_keeps_one_copy_at_the_head) {
  const auto made = fill({1, 2});
  EXPECT_EQ(add(made[0]), 0u);
  expect_list({1, 2});
  EXPECT_EQ(add(made[0]), 0u);
  expect_list({1, 2});
  EXPECT_EQ(fake::count("mem_free"), 0u);
}

TEST_F(NodeCache, add_of_the_only_entry_again_keeps_it) {
  const auto made = fill({1});
  EXPECT_EQ(add(made[0]), 0u);
  expect_list({1});
}

TEST_F(NodeCache, add_replaces_without_evicting) {
  fill({1, 2});
  fill({2});
  expect_list({2, 1});
}

// An entry that was unlinked still points at its old neighbour.
TEST_F(NodeCache, add_of_an_entry_with_a_stale_next_ends_the_list_behind_it) {
  fill({1, 2});
  auto* const unlinked = unlink(2);
  ASSERT_NE(unlinked->next, nullptr);
  EXPECT_EQ(qim_node_cache_rm(kSes, 1, ctx()), 0u);
  expect_list({});
  EXPECT_EQ(add(unlinked), 0u);
  expect_list({2});
}

// ---- Sessions --------------------------------------------------------------------------------

TEST_F(NodeCache, one_node_in_two_sessions_is_two_entries) {
  auto* const mine = entry(1);
  auto* const other = entry(1, kOther);
  add(mine);
  add(other);
  expect_list({1, 1});
  EXPECT_EQ(get(1), mine);
  EXPECT_EQ(get(1, kOther), other);
  EXPECT_EQ(get(1, kOther + 1), nullptr);
  EXPECT_EQ(get(2), nullptr);
}

TEST_F(NodeCache, keys_are_compared_as_whole_words) {
  fill({0x01020304});
  for (unsigned bit = 0; bit < 32; ++bit) {
    EXPECT_EQ(get(0x01020304 ^ (1u << bit)), nullptr) << bit;
    EXPECT_EQ(get(0x01020304, kSes ^ (1u << bit)), nullptr) << bit;
  }
  EXPECT_NE(get(0x01020304), nullptr);
}

TEST_F(NodeCache, add_fails_quietly_when_the_tail_is_another_sessions) {
  add(entry(1, kOther));
  add(entry(2));
  auto* const made = entry(3);
  EXPECT_EQ(add(made), 0u);
  expect_list({2, 1});
  EXPECT_EQ(fake::count("mem_free"), 0u);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInternal, "qim_node_cache_add", 860)}));
  EXPECT_EQ(qim_int_node_close(&made->node, ctx()), 0u);
  EXPECT_FALSE(fake::is_live(made));
}

TEST_F(NodeCache, add_that_finds_no_victim_is_reported_under_the_debug_bit_only) {
  report_only_unconditionally();
  add(entry(1, kOther));
  add(entry(2));
  auto* const made = entry(3);
  EXPECT_EQ(add(made), 0u);
  EXPECT_EQ(fake::reports().size(), 0u);
  fake::release(made);
}

// The victim is the entry of the adder's session under the tail's identifier, wherever it is.
TEST_F(NodeCache, add_looks_its_victim_up_by_key) {
  add(entry(1, kOther));
  auto* const mine = entry(1);
  add(mine);
  add(entry(2));
  expect_list({2, 1});
  EXPECT_EQ(node_cache_tail->ses, kOther);
  EXPECT_FALSE(fake::is_live(mine));
}

// The session that the call names makes the new entry's key; the victim is one of the session that
// the entry itself was opened through.
TEST_F(NodeCache, add_evicts_under_the_entrys_own_session_not_under_the_arguments) {
  const auto made = fill({1, 2});
  EXPECT_EQ(qim_node_cache_add(kOther, entry(3), ctx()), 0u);
  expect_list({3, 2});
  EXPECT_FALSE(fake::is_live(made[0]));
  EXPECT_EQ(fake::reports().size(), 0u);

  auto* const of_another = entry(4, kOther);
  EXPECT_EQ(qim_node_cache_add(kSes, of_another, ctx()), 0u);
  expect_list({3, 2});
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInternal, "qim_node_cache_add", 860)}));
  fake::release(of_another);
}

// ---- Looking up ------------------------------------------------------------------------------

TEST_F(NodeCache, get_moves_the_entry_to_the_head) {
  node_cache_max = 3;
  const auto made = fill({1, 2, 3});
  EXPECT_EQ(get(2), made[1]);
  expect_list({2, 3, 1});
  EXPECT_EQ(get(1), made[0]);
  expect_list({1, 2, 3});
  EXPECT_EQ(get(1), made[0]);
  expect_list({1, 2, 3});
}

TEST_F(NodeCache, get_of_the_tail_after_an_eviction_moves_it_in_front) {
  fill({1, 2, 3});
  get(2);
  expect_list({2, 3});
}

TEST_F(NodeCache, get_of_the_only_entry_leaves_it_alone) {
  const auto made = fill({1});
  EXPECT_EQ(get(1), made[0]);
  expect_list({1});
}

TEST_F(NodeCache, get_of_what_is_not_there_gives_null_and_changes_nothing) {
  fill({1, 2});
  EXPECT_EQ(get(3), nullptr);
  expect_list({2, 1});
}

// ---- Taking out ------------------------------------------------------------------------------

TEST_F(NodeCache, unlink_of_the_head_leaves_its_next_at_the_second_entry) {
  const auto made = fill({1, 2});
  EXPECT_EQ(unlink(2), made[1]);
  expect_list({1});
  EXPECT_EQ(made[1]->next, made[0]);
  EXPECT_EQ(fake::count("mem_free"), 0u);
  EXPECT_EQ(qim_lib_node_destroy(made[1], ctx()), 0u);
}

TEST_F(NodeCache, unlink_of_the_tail_makes_the_entry_before_it_the_tail) {
  const auto made = fill({1, 2});
  EXPECT_EQ(unlink(1), made[0]);
  expect_list({2});
  EXPECT_EQ(node_cache_tail, made[1]);
  EXPECT_EQ(qim_lib_node_destroy(made[0], ctx()), 0u);
}

TEST_F(NodeCache, unlink_from_the_middle_joins_its_neighbours) {
  node_cache_max = 3;
  const auto made = fill({1, 2, 3});
  EXPECT_EQ(unlink(2), made[1]);
  expect_list({3, 1});
  EXPECT_EQ(made[1]->next, made[0]);
  EXPECT_EQ(qim_lib_node_destroy(made[1], ctx()), 0u);
}

TEST_F(NodeCache, unlink_of_the_only_entry_empties_the_list) {
  const auto made = fill({1});
  EXPECT_EQ(unlink(1), made[0]);
  expect_list({});
  EXPECT_EQ(qim_lib_node_destroy(made[0], ctx()), 0u);
}

TEST_F(NodeCache, unlink_of_what_is_not_there_gives_null) {
  fill({1, 2});
  EXPECT_EQ(unlink(3), nullptr);
  EXPECT_EQ(unlink(1, kOther), nullptr);
  expect_list({2, 1});
}

TEST_F(NodeCache, unlink_needs_no_output) {
  const auto made = fill({1, 2});
  EXPECT_EQ(qim_node_cache_unlink(kSes, 1, nullptr), 0u);
  expect_list({2});
  EXPECT_TRUE(fake::is_live(made[0]));
  fake::release(made[0]);
}

TEST_F(NodeCache, rm_frees_the_entry) {
  const auto made = fill({1, 2});
  EXPECT_EQ(qim_node_cache_rm(kSes, 1, ctx()), 0u);
  expect_list({2});
  EXPECT_FALSE(fake::is_live(made[0]));
}

TEST_F(NodeCache, rm_of_the_only_entry_empties_the_list) {
  fill({1});
  EXPECT_EQ(qim_node_cache_rm(kSes, 1, ctx()), 0u);
  expect_list({});
}

TEST_F(NodeCache, rm_of_what_is_not_there_succeeds) {
  fill({1});
  EXPECT_EQ(qim_node_cache_rm(kSes, 2, ctx()), 0u);
  EXPECT_EQ(qim_node_cache_rm(kOther, 1, ctx()), 0u);
  expect_list({1});
}

TEST_F(NodeCache, rm_returns_what_freeing_returns_without_a_report_of_its_own) {
  auto* const made = indestructible(1);
  add(made);
  EXPECT_EQ(qim_node_cache_rm(kSes, 1, ctx()), kInternal);
  expect_list({});
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInternal, "qim_lib_node_destroy", 625)}));
  fake::release(made);
}

TEST_F(NodeCache, replace_drops_the_copy_and_inserts_nothing) {
  const auto made = fill({1, 2});
  qim_node_t record = made[0]->node;
  EXPECT_EQ(qim_node_cache_replace(kSes, &record, ctx()), 0u);
  expect_list({2});
  EXPECT_FALSE(fake::is_live(made[0]));
  EXPECT_EQ(qim_node_cache_replace(kSes, &record, ctx()), 0u);
  expect_list({2});
}

TEST_F(NodeCache, replace_returns_what_freeing_returns) {
  auto* const made = indestructible(1);
  add(made);
  qim_node_t record{};
  record.id = 1;
  EXPECT_EQ(qim_node_cache_replace(kSes, &record, ctx()), kInternal);
  fake::release(made);
}

// ---- Emptying --------------------------------------------------------------------------------

TEST_F(NodeCache, destroy_frees_every_entry_from_the_head_on) {
  const auto made = fill({1, 2});
  EXPECT_EQ(qim_node_cache_destroy(ctx()), 0u);
  expect_list({});
  EXPECT_EQ(fake::calls_of("mem_free"), (fake::Calls{fake::call("mem_free", made[1], pool()),
                                                     fake::call("mem_free", made[0], pool())}));
}

TEST_F(NodeCache, destroy_that_finds_a_count_but_no_head_reports_it_and_succeeds) {
  node_cache_count = 2;
  EXPECT_EQ(qim_node_cache_destroy(ctx()), 0u);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInternal, "qim_node_cache_destroy", 964)}));
  EXPECT_EQ(fake::count("rov_dbg_abort_chk"), 1u);
  forget_list();
}

TEST_F(NodeCache, destroy_that_finds_a_count_but_no_head_frees_the_rest_first) {
  fill({1, 2});
  node_cache_count = 3;
  EXPECT_EQ(qim_node_cache_destroy(ctx()), 0u);
  EXPECT_EQ(fake::live_blocks(), 0u);
  EXPECT_EQ(fake::reports().size(), 1u);
  forget_list();
}

TEST_F(NodeCache, destroy_reports_a_missing_head_under_the_debug_bit_only) {
  report_only_unconditionally();
  node_cache_count = 1;
  EXPECT_EQ(qim_node_cache_destroy(ctx()), 0u);
  EXPECT_EQ(fake::reports().size(), 0u);
  forget_list();
}

TEST_F(NodeCache, destroy_stops_at_an_entry_that_cannot_be_freed_and_leaves_the_rest) {
  node_cache_max = 3;
  fill({1});
  auto* const stuck = indestructible(2);
  add(stuck);
  fill({3});
  EXPECT_EQ(qim_node_cache_destroy(ctx()), 0u);
  expect_list({1});
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInternal, "qim_lib_node_destroy", 625),
                                         report(kInternal, "qim_node_cache_destroy", 964)}));
  fake::release(stuck);
}

// ---- Failing to free while adding ------------------------------------------------------------

TEST_F(NodeCache, add_that_cannot_free_the_older_entry_succeeds_without_inserting) {
  auto* const older = indestructible(1);
  add(older);
  auto* const newer = entry(1);
  EXPECT_EQ(add(newer), 0u);
  expect_list({});
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInternal, "qim_lib_node_destroy", 625),
                                         report(kInternal, "qim_node_cache_add", 860)}));
  EXPECT_TRUE(fake::is_live(newer));
  fake::release(older);
  fake::release(newer);
}

TEST_F(NodeCache, add_that_cannot_free_its_victim_succeeds_without_inserting) {
  auto* const victim = indestructible(1);
  add(victim);
  fill({2});
  auto* const made = entry(3);
  EXPECT_EQ(add(made), 0u);
  expect_list({2});
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInternal, "qim_lib_node_destroy", 625),
                                         report(kInternal, "qim_node_cache_add", 860)}));
  fake::release(victim);
  fake::release(made);
}

// ---- Closing ---------------------------------------------------------------------------------

TEST_F(NodeCache, close_leaves_members_alone) {
  node_cache_max = 3;
  const auto made = fill({1, 2, 3});
  for (auto* const member : made) EXPECT_EQ(qim_int_node_close(&member->node, ctx()), 0u);
  expect_list({3, 2, 1});
  EXPECT_EQ(fake::count("mem_free"), 0u);
}

TEST_F(NodeCache, close_leaves_the_only_member_alone) {
  const auto made = fill({1});
  EXPECT_EQ(qim_int_node_close(&made[0]->node, ctx()), 0u);
  expect_list({1});
}

TEST_F(NodeCache, close_frees_what_is_not_in_the_list) {
  fill({1});
  auto* const made = entry(2);
  EXPECT_EQ(qim_int_node_close(&made->node, ctx()), 0u);
  EXPECT_FALSE(fake::is_live(made));
  expect_list({1});
}

TEST_F(NodeCache, close_takes_a_stale_next_for_membership) {
  fill({1, 2});
  auto* const unlinked = unlink(2);
  EXPECT_EQ(qim_int_node_close(&unlinked->node, ctx()), 0u);
  EXPECT_TRUE(fake::is_live(unlinked));
  EXPECT_EQ(qim_lib_node_destroy(unlinked, ctx()), 0u);
}

TEST_F(NodeCache, close_frees_an_unlinked_tail) {
  fill({1, 2});
  auto* const unlinked = unlink(1);
  EXPECT_EQ(qim_int_node_close(&unlinked->node, ctx()), 0u);
  EXPECT_FALSE(fake::is_live(unlinked));
}

// ---- The library's life ----------------------------------------------------------------------

TEST_F(NodeCache, shut_down_leaves_it_alone) {
  fill({1, 2});
  ctx()->use_count = 1;
  EXPECT_EQ(qim_lib_close(0xdb, 0), 0u);
  expect_list({2, 1});
}

// Everything but lookups works with the context it is given.
TEST_F(NodeCache, frees_from_the_pool_of_and_reports_to_the_context_it_is_given) {
  qim_lib_ctx_t other{};
  int mark = 0;
  fake::report_everything(&other);
  other.db_parms.logger_arg = &mark;
  report_only_unconditionally();
  const auto give = [&other](std::uint32_t id) {
    auto* const made = static_cast<qim_node_cache_entry_t*>(
        fake::allocate(sizeof(qim_node_cache_entry_t), &other.db_parms.mem));
    made->ses = kSes;
    made->node.id = id;
    made->node.type = QIM_NODE_IFELSE;
    EXPECT_EQ(qim_node_cache_add(kSes, made, &other), 0u);
    return made;
  };
  for (const std::uint32_t id : {1u, 1u, 2u, 3u}) give(id);  // replaces, then evicts
  expect_list({3, 2});
  EXPECT_EQ(qim_node_cache_rm(kSes, 3, &other), 0u);
  const qim_node_t record = node_cache_head->node;
  EXPECT_EQ(qim_node_cache_replace(kSes, &record, &other), 0u);
  auto* const closed = give(4);
  EXPECT_EQ(unlink(4), closed);
  EXPECT_EQ(qim_int_node_close(&closed->node, &other), 0u);
  give(5);
  EXPECT_EQ(qim_node_cache_destroy(&other), 0u);
  EXPECT_EQ(fake::count("mem_free"), 6u);
  node_cache_count = 1;
  EXPECT_EQ(qim_node_cache_destroy(&other), 0u);
  forget_list();
  ASSERT_EQ(fake::reports().size(), 1u);
  EXPECT_EQ(fake::reports()[0].arg, &mark);
}

TEST_F(NodeCache, asks_nothing_of_the_database) {
  fill({1, 2, 3});
  get(2);
  EXPECT_EQ(fake::count("mem_free"), fake::calls().size());
}

}  // namespace
