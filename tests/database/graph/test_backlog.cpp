// References that wait to be noted, against a map, and sessions that read while some wait.
#include <gtest/gtest.h>

#include <map>
#include <utility>
#include <vector>

#include "database/graph/backlog.h"
#include "tests/database/database_fixture.h"
#include "tests/database/random.h"

namespace {

using namespace testing_rov;
using rov::Backlog;
using rov::Reference;

using Refs = std::vector<std::pair<uint32_t, uint32_t>>;

// So many random references, with owners and targets below or at these.
void check_sorted(uint32_t count, uint32_t targets, uint32_t owners, uint32_t seed) {
  Random random(seed);
  Backlog backlog;
  std::map<std::pair<uint32_t, uint32_t>, uint32_t> expected;
  for (uint32_t n = 0; n < count; ++n) {
    const Reference reference = {UINT32_MAX - random.below(targets), random.below(owners),
                                 random.below(0x10000)};
    ASSERT_TRUE(backlog.add(reference));
    const auto [at, added] =
        expected.try_emplace({reference.target, reference.owner}, reference.field);
    if (!added) at->second = std::min(at->second, reference.field);
  }
  backlog.sort();
  ASSERT_EQ(static_cast<size_t>(backlog.end() - backlog.begin()), expected.size());
  const Reference* at = backlog.begin();
  for (const auto& [pair, field] : expected) {
    ASSERT_EQ(at->target, pair.first);
    ASSERT_EQ(at->owner, pair.second);
    ASSERT_EQ(at->field, field);
    ++at;
  }
}

TEST(Backlog, GivesTheLowestFieldOfEachPairInOrder) {
  for (const uint32_t count : {0U, 1U, 2U, 255U, 256U, 257U, 1000U, 50000U}) {
    for (const uint32_t targets : {1U, 3U, 3000U, 0x7fffffffU}) {
      check_sorted(count, targets, 5, count);
      check_sorted(count, targets, 0x7fffffff, count);
    }
  }
}

TEST(Backlog, TakesOneAfterTheOther) {
  Backlog from;
  EXPECT_TRUE(from.empty());
  for (uint32_t owner = 600; owner > 0; --owner) ASSERT_TRUE(from.add({7, owner, 1}));
  Backlog taken;
  taken.take(from);
  EXPECT_TRUE(from.empty());
  taken.sort();
  EXPECT_EQ(taken.begin()->owner, 1U);
  EXPECT_EQ(taken.end() - taken.begin(), 600);
  ASSERT_TRUE(from.add({8, 9, 10}));
  from.sort();
  EXPECT_EQ(from.begin()->target, 8U);
  for (uint32_t owner = 0; owner < 1000; ++owner) ASSERT_TRUE(taken.add({6, owner, 1}));
  taken.sort();
  EXPECT_EQ(taken.begin()->target, 6U);
  EXPECT_EQ(taken.end() - taken.begin(), 1600);
}

class SettleTest : public DatabaseTest {
 protected:
  static constexpr uint32_t kNodes = 300;

  static void put_nodes(uint32_t ses) {
    for (uint32_t node = 1; node <= kNodes; ++node) ASSERT_OK(put_node(ses, node, {}));
  }

  void link_at_random(uint32_t ses, uint32_t count) {
    for (uint32_t n = 0; n < count; ++n) {
      const uint32_t owner = 1 + random_.below(kNodes);
      // Some targets have several chunks of referrers, and most have a few.
      const uint32_t target = 1 + random_.below(random_.below(2) == 0 ? 3 : kNodes);
      const auto field = static_cast<uint16_t>(random_.below(8));
      ASSERT_OK(put_link(ses, owner, field, target));
      links_[{owner, field}] = target;
    }
  }

  Refs expected(uint32_t target) const {
    std::map<uint32_t, uint32_t> found;
    for (const auto& [from, to] : links_) {
      if (to == target) found.emplace(from.first, from.second);
    }
    return {found.begin(), found.end()};
  }

  void check(uint32_t ses) const {
    for (uint32_t node = 1; node <= kNodes; ++node) {
      ASSERT_EQ(parms_of(ses, node).refs, expected(node).size()) << node;
      ASSERT_EQ(referrers_of(ses, node), expected(node)) << node;
    }
  }

  Random random_{3};
  std::map<std::pair<uint32_t, uint16_t>, uint32_t> links_;
};

TEST_F(SettleTest, ManyLinksOfSeveralSessionsAgreeWithAMap) {
  uint32_t writer = begin();
  put_nodes(writer);
  for (const uint32_t count : {2000U, 1000U, 10U}) {
    link_at_random(writer, count);
    commit(writer);
    const uint32_t ses = read();
    check(ses);
    EXPECT_OK(rov_ses_close(ses));
    writer = begin();
    link_at_random(writer, count);
    check(writer);
    link_at_random(writer, count / 2);
  }
  commit(writer);
  check(read());
}

// Chunks hold 160 referrers; the numbers go up to one that is full, over it, and into its middle.
TEST_F(SettleTest, ChunksFillUpAndDivide) {
  constexpr uint32_t kTarget = 1;
  uint32_t writer = begin();
  put_nodes(writer);
  const auto link = [&](uint32_t owner) {
    ASSERT_OK(put_link(writer, owner, 5, kTarget));
    links_[{owner, 5}] = kTarget;
  };
  for (uint32_t owner = 10; owner < 170; ++owner) link(owner);
  commit(writer);
  writer = begin();
  for (uint32_t owner = 200; owner < 203; ++owner) link(owner);
  check(writer);
  commit(writer);
  writer = begin();
  link(5);
  check(writer);
  commit(writer);
  check(read());
}

TEST_F(SettleTest, EveryQuestionForReferrersSeesLinksThatWereJustMade) {
  const uint32_t writer = begin();
  for (const uint32_t node : {1U, 2U, 3U}) ASSERT_OK(put_node(writer, node, {}, name("set")));
  rov_node_parms_t parms;
  ASSERT_OK(put_link(writer, 1, 1, 3));
  EXPECT_OK(rov_node_parms_get(writer, id(3), &parms));
  EXPECT_EQ(parms.refs, 1U);
  ASSERT_OK(put_link(writer, 2, 1, 3));
  EXPECT_OK(rov_node_next(writer, id(2), &parms));
  EXPECT_EQ(parms.refs, 2U);
  ASSERT_OK(put_link(writer, 3, 1, 3));
  uint32_t total = 0;
  EXPECT_OK(rov_node_ref_get(writer, id(3), 2, &total, nullptr, nullptr));
  EXPECT_EQ(total, 3U);
  ASSERT_OK(put_link(writer, 1, 2, 2));
  rov_node_id_t referrer = {};
  EXPECT_OK(rov_node_ref_get_all(writer, id(2), &referrer, 1));
  EXPECT_EQ(number(referrer), 1U);
  ASSERT_OK(put_link(writer, 3, 2, 1));
  EXPECT_OK(rov_node_dset_get(writer, id(1), 1, &parms));
  EXPECT_EQ(number(parms.id), 3U);
  ASSERT_OK(put_link(writer, 2, 3, 1));
  EXPECT_OK(rov_ses_dset_get(writer, 0, &parms));
  EXPECT_EQ(parms.refs, 2U);
  EXPECT_OK(rov_edit_abandon(writer));
}

// The target, which others link to, goes and comes while that is not noted yet.
TEST_F(SettleTest, ATargetMayComeAndGoWhileReferencesWait) {
  uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, {}));
  ASSERT_OK(put_link(writer, 1, 5, 9));
  ASSERT_OK(put_node(writer, 9, {}));
  commit(writer);
  EXPECT_EQ(referrers_of(read(), 9), (Refs{{1, 5}}));
  writer = begin();
  ASSERT_OK(put_node(writer, 2, {}));
  ASSERT_OK(put_link(writer, 2, 6, 9));
  ASSERT_OK(rov_edit_node_del(writer, id(9)));
  commit(writer);
  writer = begin();
  ASSERT_OK(put_link(writer, 2, 4, 9));
  ASSERT_OK(put_node(writer, 9, {}));
  ASSERT_OK(put_node(writer, 9, pattern(1, 3)));
  commit(writer);
  EXPECT_EQ(referrers_of(read(), 9), (Refs{{1, 5}, {2, 4}}));
}

}  // namespace
