// Data sets: their number, order, names, and those around a node.
#include "tests/database/database_fixture.h"

namespace {

using namespace testing_rov;

class DataSetTest : public DatabaseTest {
 protected:
  static uint32_t count(uint32_t ses) {
    uint32_t count = 0xffff;
    EXPECT_OK(rov_ses_get_num_dsets(ses, &count));
    return count;
  }
  // The nodes of all data sets, in order.
  static std::vector<uint32_t> all(uint32_t ses) {
    std::vector<uint32_t> nodes;
    rov_node_parms_t parms;
    uint32_t selector = 0;
    uint32_t status = ROV_OK;
    while ((status = rov_ses_dset_get(ses, selector, &parms)) == ROV_OK) {
      nodes.push_back(number(parms.id));
      ++selector;
    }
    EXPECT_EQ(status, uint32_t{ROV_ERR_NO_ITEM});
    EXPECT_EQ(count(ses), nodes.size());
    return nodes;
  }
  static uint32_t named(uint32_t ses, const std::string& text) {
    rov_node_parms_t parms = {};
    const Bytes key = name(text);
    const uint32_t status = rov_ses_dset_name_get(ses, 21, key.data(), &parms);
    EXPECT_TRUE(status == ROV_OK || status == ROV_ERR_NO_ITEM) << rov_err_message();
    return number(parms.id);
  }
};

using Nodes = std::vector<uint32_t>;

TEST_F(DataSetTest, AnEmptyDatabaseHasNone) {
  const uint32_t ses = read();
  EXPECT_EQ(all(ses), Nodes{});
  EXPECT_EQ(named(ses, "x"), 0U);
}

TEST_F(DataSetTest, AreOrderedByNameThenNodeWithUnnamedOnesFirst) {
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 10, {}, name("beta")));
  ASSERT_OK(put_node(writer, 9, {}, name("alpha")));
  ASSERT_OK(put_node(writer, 300, {}, name("alpha")));
  ASSERT_OK(put_node(writer, 2, {}, {}, ROV_NODE_DSET));
  ASSERT_OK(put_node(writer, 1, {}));
  const Nodes expected = {2, 9, 300, 10};
  EXPECT_EQ(all(writer), expected);
  commit(writer);
  const uint32_t ses = read();
  EXPECT_EQ(all(ses), expected);
  rov_node_parms_t parms;
  for (uint32_t selector : {3U, 0U, 2U, 1U, 1U}) {
    ASSERT_OK(rov_ses_dset_get(ses, selector, &parms));
    EXPECT_EQ(number(parms.id), expected[selector]);
  }
  EXPECT_EQ(named(ses, "alpha"), 9U);
  EXPECT_EQ(named(ses, "beta"), 10U);
  EXPECT_EQ(named(ses, "alph"), 0U);
  EXPECT_EQ(named(ses, "alphb"), 0U);
  EXPECT_EQ(named(ses, ""), 0U);
}

TEST_F(DataSetTest, FollowEveryChangeOfTheirNode) {
  uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, {}, name("a")));
  ASSERT_OK(put_node(writer, 2, {}, name("a")));
  commit(writer);
  writer = begin();
  ASSERT_OK(put_node(writer, 1, {}, name("b")));
  EXPECT_EQ(all(writer), (Nodes{2, 1}));
  ASSERT_OK(put_node(writer, 1, pattern(1, 3), name("b")));
  EXPECT_EQ(all(writer), (Nodes{2, 1}));
  ASSERT_OK(put_node(writer, 2, {}));
  EXPECT_EQ(all(writer), (Nodes{1}));
  ASSERT_OK(put_node(writer, 2, {}, {}, ROV_NODE_DSET));
  ASSERT_OK(put_node(writer, 3, {}, name("0"), ROV_NODE_DSET));
  EXPECT_EQ(all(writer), (Nodes{2, 3, 1}));
  ASSERT_OK(rov_edit_node_del(writer, id(1)));
  EXPECT_EQ(all(writer), (Nodes{2, 3}));
  EXPECT_EQ(named(writer, "a"), 0U);
  EXPECT_EQ(named(writer, "b"), 0U);
  EXPECT_EQ(named(writer, "0"), 3U);
  commit(writer);
  EXPECT_EQ(all(read()), (Nodes{2, 3}));
}

TEST_F(DataSetTest, ANameOfAnotherLengthIsRefused) {
  rov_node_parms_t parms;
  const uint32_t ses = read();
  EXPECT_STATUS(rov_ses_dset_name_get(ses, 20, "", &parms), ROV_ERR_LENGTH);
  EXPECT_STATUS(rov_ses_dset_name_get(ses, 22, "", &parms), ROV_ERR_LENGTH);
}

TEST_F(DataSetTest, OfANodeAreItselfAndThenItsReferrers) {
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 50, {}, name("self")));
  ASSERT_OK(put_node(writer, 60, {}));
  ASSERT_OK(put_node(writer, 7, {}, name("z")));
  ASSERT_OK(put_node(writer, 8, {}));
  ASSERT_OK(put_node(writer, 9, {}, {}, ROV_NODE_DSET));
  for (uint32_t target : {50U, 60U}) {
    for (uint32_t referrer : {9U, 8U, 7U}) {
      ASSERT_OK(put_link(writer, referrer, static_cast<uint16_t>(target), target));
    }
  }
  commit(writer);
  const uint32_t ses = read();
  rov_node_parms_t parms;
  const auto found = [&](uint32_t node) {
    Nodes nodes;
    for (uint32_t selector = 0; rov_node_dset_get(ses, id(node), selector, &parms) == ROV_OK;
         ++selector) {
      nodes.push_back(number(parms.id));
    }
    return nodes;
  };
  EXPECT_EQ(found(50), (Nodes{50, 7, 9}));
  EXPECT_EQ(found(60), (Nodes{7, 9}));
  EXPECT_EQ(found(8), Nodes{});
  EXPECT_STATUS(rov_node_dset_get(ses, id(61), 0, &parms), ROV_ERR_NO_ITEM);
}

}  // namespace
