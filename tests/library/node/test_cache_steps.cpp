// The node cache's operations when one of their steps fails, which none ever does.

#include "tests/library/node/cache_test.h"
#include "tests/library/node/steps.h"

namespace {

using fake::report;
using node_test::kFailure;
using node_test::kOtherFailure;
using node_test::kSes;
using node_test::lock_status;
using node_test::unlink_status;
using node_test::unlinks_before;
using node_test::unlock_status;

using Texts = std::vector<std::string>;

class NodeCacheSteps : public node_test::CacheTest {
 protected:
  void SetUp() override {
    CacheTest::SetUp();
    node_cache_max = 2;
    fill({1});
  }
  void TearDown() override {
    lock_status = unlock_status = unlink_status = unlinks_before = 0;
    CacheTest::TearDown();
  }

  // Nothing was touched, and one report says why.
  static void expect_refused(const char* function, std::int32_t line) {
    expect_list({1});
    EXPECT_EQ(fake::report_texts(), (Texts{report(kFailure, function, line)}));
  }
};

TEST_F(NodeCacheSteps, get_that_cannot_lock_leaves_list_and_output_alone) {
  lock_status = kFailure;
  auto* const stray = entry(9);
  qim_node_cache_entry_t* found = stray;
  EXPECT_EQ(qim_node_cache_get(kSes, 1, &found), kFailure);
  EXPECT_EQ(found, stray);
  expect_refused("qim_node_cache_get", 812);
  fake::release(stray);
}

TEST_F(NodeCacheSteps, get_that_cannot_unlock_moves_the_entry_and_leaves_the_output_alone) {
  fill({2});
  unlock_status = kFailure;
  auto* const stray = entry(9);
  qim_node_cache_entry_t* found = stray;
  EXPECT_EQ(qim_node_cache_get(kSes, 1, &found), kFailure);
  EXPECT_EQ(found, stray);
  expect_list({1, 2});
  EXPECT_EQ(fake::report_texts(), (Texts{report(kFailure, "qim_node_cache_get", 829)}));
  fake::release(stray);
}

TEST_F(NodeCacheSteps, get_that_cannot_look_reports_it_and_finds_nothing) {
  unlink_status = kFailure;
  EXPECT_EQ(get(1), nullptr);
  expect_refused("qim_node_cache_get", 818);
}

TEST_F(NodeCacheSteps, add_that_cannot_lock_returns_it) {
  lock_status = kFailure;
  auto* const made = entry(2);
  EXPECT_EQ(add(made), kFailure);
  expect_refused("qim_node_cache_add", 851);
  fake::release(made);
}

TEST_F(NodeCacheSteps, add_that_cannot_unlock_has_added) {
  unlock_status = kFailure;
  EXPECT_EQ(add(entry(2)), kFailure);
  expect_list({2, 1});
  EXPECT_EQ(fake::report_texts(), (Texts{report(kFailure, "qim_node_cache_add", 871)}));
}

TEST_F(NodeCacheSteps, add_that_cannot_look_costs_only_the_caching) {
  unlink_status = kFailure;
  auto* const made = entry(2);
  EXPECT_EQ(add(made), 0u);
  expect_refused("qim_node_cache_add", 860);
  fake::release(made);
}

TEST_F(NodeCacheSteps, add_that_cannot_unlink_its_victim_costs_only_the_caching) {
  node_cache_max = 1;
  unlink_status = kFailure;
  unlinks_before = 1;
  auto* const made = entry(2);
  EXPECT_EQ(add(made), 0u);
  expect_refused("qim_node_cache_add", 860);
  fake::release(made);
}

TEST_F(NodeCacheSteps, add_that_fails_twice_returns_what_unlocking_returned) {
  unlink_status = kFailure;
  unlock_status = kOtherFailure;
  auto* const made = entry(2);
  EXPECT_EQ(add(made), kOtherFailure);
  expect_list({1});
  EXPECT_EQ(fake::report_texts(), (Texts{report(kFailure, "qim_node_cache_add", 860),
                                         report(kOtherFailure, "qim_node_cache_add", 871)}));
  fake::release(made);
}

TEST_F(NodeCacheSteps, unlink_that_cannot_lock_leaves_the_list_alone) {
  lock_status = kFailure;
  qim_node_cache_entry_t* found = nullptr;
  EXPECT_EQ(qim_node_cache_unlink(kSes, 1, &found), kFailure);
  EXPECT_EQ(found, nullptr);
  expect_refused("qim_node_cache_unlink", 893);
}

TEST_F(NodeCacheSteps, unlink_that_cannot_unlock_has_unlinked) {
  unlock_status = kFailure;
  qim_node_cache_entry_t* found = nullptr;
  EXPECT_EQ(qim_node_cache_unlink(kSes, 1, &found), kFailure);
  ASSERT_NE(found, nullptr);
  expect_list({});
  EXPECT_EQ(fake::report_texts(), (Texts{report(kFailure, "qim_node_cache_unlink", 901)}));
  fake::release(found);
}

TEST_F(NodeCacheSteps, unlink_that_fails_twice_returns_the_first_failure) {
  unlink_status = kFailure;
  unlock_status = kOtherFailure;
  EXPECT_EQ(qim_node_cache_unlink(kSes, 1, nullptr), kFailure);
  expect_refused("qim_node_cache_unlink", 901);
}

TEST_F(NodeCacheSteps, rm_and_replace_report_a_failed_unlinking_once_more) {
  unlink_status = kFailure;
  qim_node_t node = {};
  node.id = 1;
  EXPECT_EQ(qim_node_cache_rm(kSes, 1, ctx()), kFailure);
  EXPECT_EQ(qim_node_cache_replace(kSes, &node, ctx()), kFailure);
  expect_list({1});
  const std::string unlinking = report(kFailure, "qim_node_cache_unlink", 901);
  const std::string removing = report(kFailure, "qim_node_cache_rm", 918);
  EXPECT_EQ(fake::report_texts(), (Texts{unlinking, removing, unlinking, removing}));
}

TEST_F(NodeCacheSteps, destroy_that_cannot_lock_leaves_the_list_alone) {
  lock_status = kFailure;
  EXPECT_EQ(qim_node_cache_destroy(ctx()), kFailure);
  expect_refused("qim_node_cache_destroy", 949);
}

TEST_F(NodeCacheSteps, destroy_that_cannot_unlock_has_destroyed) {
  unlock_status = kFailure;
  EXPECT_EQ(qim_node_cache_destroy(ctx()), kFailure);
  expect_list({});
  EXPECT_EQ(fake::report_texts(), (Texts{report(kFailure, "qim_node_cache_destroy", 977)}));
}

TEST_F(NodeCacheSteps, every_report_is_under_the_debug_bit) {
  report_only_unconditionally();
  lock_status = kFailure;
  qim_node_cache_entry_t* found = nullptr;
  EXPECT_EQ(qim_node_cache_get(kSes, 1, &found), kFailure);
  EXPECT_EQ(qim_node_cache_unlink(kSes, 1, &found), kFailure);
  EXPECT_EQ(qim_node_cache_destroy(ctx()), kFailure);
  EXPECT_EQ(fake::reports().size(), 0u);
}

}  // namespace
