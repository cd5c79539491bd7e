// Writing and reading back through the C interface.
#include "tests/database/database_fixture.h"

namespace {

using namespace testing_rov;

using EditTest = DatabaseTest;
using Refs = std::vector<std::pair<uint32_t, uint32_t>>;

TEST_F(EditTest, ACommittedNodeReadsBackWhole) {
  const Bytes tlv = pattern(1, 77);
  const Bytes dset = name("alpha");
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 0x100, tlv, dset, ROV_NODE_DSET));
  commit(writer);

  const uint32_t ses = read();
  const rov_node_parms_t parms = parms_of(ses, 0x100);
  EXPECT_EQ(number(parms.id), 0x100U);
  EXPECT_EQ(parms.flags, uint32_t{ROV_NODE_DSET});
  EXPECT_EQ(parms.links, 0U);
  EXPECT_EQ(parms.refs, 0U);
  EXPECT_EQ(parms.tlv_len, 77U);
  EXPECT_EQ(parms.dset_len, 21U);
  EXPECT_EQ(parms.priv_len, 0U);
  EXPECT_EQ(parms.priv_ptr, uintptr_t{0});
  Bytes tlv_read(77);
  Bytes dset_read(21);
  EXPECT_OK(
      rov_node_data_get(ses, id(0x100), 77, tlv_read.data(), 21, dset_read.data(), 0, nullptr));
  EXPECT_EQ(tlv_read, tlv);
  EXPECT_EQ(dset_read, dset);
  EXPECT_OK(rov_ses_close(ses));
}

TEST_F(EditTest, AWriteSessionSeesItsOwnWritesAndNobodyElseDoes) {
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 5, pattern(5, 10)));
  EXPECT_EQ(tlv_of(writer, 5), pattern(5, 10));
  const uint32_t ses = read();
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(ses, id(5), &parms), ROV_ERR_NO_ITEM);
  commit(writer);
  EXPECT_STATUS(rov_node_parms_get(ses, id(5), &parms), ROV_ERR_NO_ITEM);
  EXPECT_OK(rov_ses_close(ses));
  const uint32_t later = read();
  EXPECT_EQ(tlv_of(later, 5), pattern(5, 10));
}

TEST_F(EditTest, AbandonedWritesAreGone) {
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 5, {}));
  EXPECT_OK(rov_edit_abandon(writer));
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(read(), id(5), &parms), ROV_ERR_NO_ITEM);
}

TEST_F(EditTest, ReplacingANodeKeepsItsLinksAndReferrers) {
  uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, pattern(1, 30)));
  ASSERT_OK(put_node(writer, 2, pattern(2, 30)));
  ASSERT_OK(put_link(writer, 1, 0x81, 2));
  ASSERT_OK(put_link(writer, 2, 0x82, 1));
  commit(writer);
  writer = begin();
  ASSERT_OK(put_node(writer, 1, pattern(9, 300)));
  EXPECT_EQ(parms_of(writer, 1).links, 1U);
  commit(writer);
  const uint32_t ses = read();
  EXPECT_EQ(tlv_of(ses, 1), pattern(9, 300));
  EXPECT_EQ(parms_of(ses, 1).links, 1U);
  EXPECT_EQ(referrers_of(ses, 1), (Refs{{2, 0x82}}));
  rov_link_t link;
  EXPECT_OK(rov_node_link_get(ses, id(1), 0x81, &link));
  EXPECT_EQ(number(link.node), 2U);
}

TEST_F(EditTest, LinksReadBackWithAllMembersInFieldOrder) {
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, pattern(1, 5)));
  ASSERT_OK(put_link(writer, 1, 0x244, 7, 8, 0xdeadbeef, 0x1234));
  ASSERT_OK(put_link(writer, 1, 0x241, 9));
  ASSERT_OK(put_link(writer, 1, 0x8242, 10, 0, 3));
  commit(writer);
  const uint32_t ses = read();
  EXPECT_EQ(parms_of(ses, 1).links, 3U);
  rov_link_t link;
  EXPECT_OK(rov_node_ln_field_get(ses, id(1), 0x244, &link));
  const rov_link_t expected = make_link(1, 0x244, 7, 8, 0xdeadbeef, 0x1234);
  EXPECT_EQ(memcmp(&link, &expected, sizeof link), 0);
  const uint16_t order[] = {0x241, 0x244, 0x8242};
  for (uint32_t n = 0; n < 3; ++n) {
    EXPECT_OK(rov_node_link_nth(ses, id(1), n, &link));
    EXPECT_EQ(link.field, order[n]);
  }
  EXPECT_STATUS(rov_node_link_nth(ses, id(1), 3, &link), ROV_ERR_NO_LINK);
  EXPECT_STATUS(rov_node_link_get(ses, id(1), 0x242, &link), ROV_ERR_NO_LINK);
  EXPECT_STATUS(rov_node_link_get(ses, id(1), 0x10241, &link), ROV_ERR_NO_LINK);
  EXPECT_STATUS(rov_node_link_get(ses, id(2), 0x241, &link), ROV_ERR_NO_ITEM);
  EXPECT_EQ(tlv_of(ses, 1), pattern(1, 5));
}

// Links without second nodes are stored shorter, until one of the node's links has one.
TEST_F(EditTest, ASecondNodeMayComeLaterAndGoAgain) {
  for (const bool committed : {false, true}) {
    uint32_t writer = begin();
    ASSERT_OK(put_node(writer, 1, pattern(1, 5), name("alpha"), 4));
    for (const uint32_t target : {8u, 10u}) ASSERT_OK(put_node(writer, target, {}));
    ASSERT_OK(put_link(writer, 1, 0x10, 7, 0, 1, 2));
    ASSERT_OK(put_link(writer, 1, 0x30, 9, 0, 3, 4));
    if (committed) commit(writer);
    if (committed) writer = begin();
    ASSERT_OK(put_link(writer, 1, 0x20, 7, 8, 5, 6));
    ASSERT_OK(put_link(writer, 1, 0x30, 9, 10, 3, 4));
    ASSERT_OK(put_link(writer, 1, 0x40, 11, 0, 7, 8));
    ASSERT_OK(put_link(writer, 1, 0x20, 7, 0, 9, 10));
    commit(writer);
    const uint32_t ses = read();
    const rov_link_t expected[] = {make_link(1, 0x10, 7, 0, 1, 2), make_link(1, 0x20, 7, 0, 9, 10),
                                   make_link(1, 0x30, 9, 10, 3, 4),
                                   make_link(1, 0x40, 11, 0, 7, 8)};
    for (uint32_t n = 0; n < 4; ++n) {
      rov_link_t link;
      EXPECT_OK(rov_node_link_nth(ses, id(1), n, &link));
      EXPECT_EQ(memcmp(&link, &expected[n], sizeof link), 0) << n;
    }
    EXPECT_EQ(tlv_of(ses, 1), pattern(1, 5));
    EXPECT_EQ(parms_of(ses, 1).flags, 4U);
    EXPECT_EQ(referrers_of(ses, 8), Refs{});
    EXPECT_EQ(referrers_of(ses, 10), (Refs{{1, 0x30}}));
    EXPECT_OK(rov_ses_close(ses));
    writer = begin();
    ASSERT_OK(rov_edit_node_del(writer, id(1)));
    commit(writer);
  }
}

TEST_F(EditTest, ALinkMayChangeAndKeepItsTargets) {
  uint32_t writer = begin();
  for (uint32_t node = 1; node <= 3; ++node) ASSERT_OK(put_node(writer, node, {}));
  ASSERT_OK(put_link(writer, 1, 0x10, 2, 3, 4, 5));
  ASSERT_OK(put_link(writer, 1, 0x10, 2, 3, 6, 7));
  commit(writer);
  for (const uint32_t val : {6U, 8U}) {
    const uint32_t ses = read();
    rov_link_t link;
    EXPECT_OK(rov_node_link_get(ses, id(1), 0x10, &link));
    const rov_link_t expected = make_link(1, 0x10, 2, 3, val, 7);
    EXPECT_EQ(memcmp(&link, &expected, sizeof link), 0) << val;
    EXPECT_EQ(parms_of(ses, 1).links, 1U);
    EXPECT_EQ(referrers_of(ses, 2), (Refs{{1, 0x10}}));
    EXPECT_EQ(referrers_of(ses, 3), (Refs{{1, 0x10}}));
    EXPECT_OK(rov_ses_close(ses));
    writer = begin();
    ASSERT_OK(put_link(writer, 1, 0x10, 2, 3, 8, 7));
    commit(writer);
  }
}

TEST_F(EditTest, ANodeHasALinkForEveryFieldCode) {
  constexpr uint32_t kCodes = 0x10000;
  uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, pattern(1, 5)));
  ASSERT_OK(put_node(writer, 2, {}));
  for (uint32_t field = 0; field < kCodes; ++field) {
    ASSERT_OK(put_link(writer, 1, static_cast<uint16_t>(field), 2));
  }
  commit(writer);
  uint32_t ses = read();
  EXPECT_EQ(parms_of(ses, 1).links, kCodes);
  rov_link_t link;
  EXPECT_OK(rov_node_link_nth(ses, id(1), kCodes - 1, &link));
  EXPECT_EQ(link.field, kCodes - 1);
  EXPECT_EQ(tlv_of(ses, 1), pattern(1, 5));
  EXPECT_OK(rov_ses_close(ses));
  writer = begin();
  ASSERT_OK(rov_edit_link_del(writer, id(1), 0));
  commit(writer);
  ses = read();
  EXPECT_EQ(parms_of(ses, 1).links, kCodes - 1);
  EXPECT_OK(rov_node_link_nth(ses, id(1), 0, &link));
  EXPECT_EQ(link.field, 1);
  EXPECT_EQ(referrers_of(ses, 2), (Refs{{1, 1}}));
}

TEST_F(EditTest, LinkMatchComparesTheFieldWithMaskedBitsReplaced) {
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, {}));
  ASSERT_OK(put_link(writer, 1, 0x0241, 2));
  ASSERT_OK(put_link(writer, 1, 0x8241, 3));
  ASSERT_OK(put_link(writer, 1, 0x9141, 4));
  rov_link_t link;
  EXPECT_OK(rov_node_link_match(writer, id(1), 0x241, 0x8000, 0x8000, 16, &link));
  EXPECT_EQ(link.field, 0x8241);
  EXPECT_OK(rov_node_link_match(writer, id(1), 0x8241, 0x8000, 0, 16, &link));
  EXPECT_EQ(link.field, 0x0241);
  EXPECT_OK(rov_node_link_match(writer, id(1), 0x41, 0, 0, 8, &link));
  EXPECT_EQ(link.field, 0x0241);
  EXPECT_OK(rov_node_link_match(writer, id(1), 0xffff0141, 0xe000, 0x9000, 12, &link));
  EXPECT_EQ(link.field, 0x9141);
  EXPECT_STATUS(rov_node_link_match(writer, id(1), 0x10241, 0, 0, 32, &link), ROV_ERR_NO_LINK);
  EXPECT_STATUS(rov_node_link_match(writer, id(1), 0x242, 0x8000, 0x8000, 16, &link),
                ROV_ERR_NO_LINK);
  EXPECT_STATUS(rov_node_link_match(writer, id(1), 0x241, 0, 0, 0, &link), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_node_link_match(writer, id(1), 0x241, 0, 0, 33, &link), ROV_ERR_INVALID);
  EXPECT_OK(rov_edit_abandon(writer));
}

TEST_F(EditTest, ReferrersFollowEveryChangeOfLinks) {
  const uint32_t writer = begin();
  for (uint32_t node = 1; node <= 4; ++node) ASSERT_OK(put_node(writer, node, {}));
  ASSERT_OK(put_link(writer, 3, 0x90, 1));
  ASSERT_OK(put_link(writer, 2, 0x91, 1, 4));
  ASSERT_OK(put_link(writer, 2, 0x81, 1));
  EXPECT_EQ(referrers_of(writer, 1), (Refs{{2, 0x81}, {3, 0x90}}));
  EXPECT_EQ(referrers_of(writer, 4), (Refs{{2, 0x91}}));
  // The lower of two links goes: the referrer stays with the other one.
  ASSERT_OK(rov_edit_link_del(writer, id(2), 0x81));
  EXPECT_EQ(referrers_of(writer, 1), (Refs{{2, 0x91}, {3, 0x90}}));
  // Node and second node change places: both targets stay referred to.
  ASSERT_OK(put_link(writer, 2, 0x91, 4, 1));
  EXPECT_EQ(referrers_of(writer, 1), (Refs{{2, 0x91}, {3, 0x90}}));
  EXPECT_EQ(referrers_of(writer, 4), (Refs{{2, 0x91}}));
  // A link to itself is a referrer like any other.
  ASSERT_OK(put_link(writer, 1, 0x85, 1));
  EXPECT_EQ(referrers_of(writer, 1), (Refs{{1, 0x85}, {2, 0x91}, {3, 0x90}}));
  EXPECT_EQ(parms_of(writer, 1).links, 1U);
  ASSERT_OK(put_link(writer, 2, 0x91, 3));
  EXPECT_EQ(referrers_of(writer, 1), (Refs{{1, 0x85}, {3, 0x90}}));
  EXPECT_EQ(referrers_of(writer, 4), Refs{});
  ASSERT_OK(rov_edit_node_del(writer, id(3)));
  EXPECT_EQ(referrers_of(writer, 1), (Refs{{1, 0x85}}));
  commit(writer);
  EXPECT_EQ(referrers_of(read(), 1), (Refs{{1, 0x85}}));
}

TEST_F(EditTest, ATargetMayAppearAfterItsReferrersAndComeAndGo) {
  uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, {}));
  ASSERT_OK(put_node(writer, 2, {}));
  ASSERT_OK(put_link(writer, 1, 0x81, 50));
  ASSERT_OK(put_link(writer, 2, 0x81, 50));
  ASSERT_OK(put_node(writer, 50, {}));
  EXPECT_EQ(referrers_of(writer, 50), (Refs{{1, 0x81}, {2, 0x81}}));
  commit(writer);
  writer = begin();
  ASSERT_OK(rov_edit_node_del(writer, id(50)));
  ASSERT_OK(rov_edit_link_del(writer, id(1), 0x81));
  commit(writer);
  rov_link_t link;
  EXPECT_OK(rov_node_link_get(read(), id(2), 0x81, &link));
  EXPECT_EQ(number(link.node), 50U);
  writer = begin();
  ASSERT_OK(put_node(writer, 50, {}));
  EXPECT_EQ(referrers_of(writer, 50), (Refs{{2, 0x81}}));
  commit(writer);
  EXPECT_EQ(referrers_of(read(), 50), (Refs{{2, 0x81}}));
}

TEST_F(EditTest, ManyReferrersAreKeptInOrderWhateverTheOrderOfWriting) {
  constexpr uint32_t kReferrers = 3000;
  uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1000000, {}));
  for (uint32_t n = 0; n < kReferrers; ++n) {
    const uint32_t node = 1 + (n * 1237) % kReferrers;
    ASSERT_OK(put_node(writer, node, {}));
    ASSERT_OK(put_link(writer, node, static_cast<uint16_t>(node), 1000000));
  }
  commit(writer);
  std::vector<rov_node_id_t> refs(kReferrers);
  uint32_t ses = read();
  EXPECT_EQ(parms_of(ses, 1000000).refs, kReferrers);
  ASSERT_OK(rov_node_ref_get_all(ses, id(1000000), refs.data(), kReferrers));
  for (uint32_t n = 0; n < kReferrers; ++n) ASSERT_EQ(number(refs[n]), n + 1);
  for (uint32_t index : {2999U, 0U, 1500U, 159U, 160U, 161U}) {
    uint32_t total = 0;
    uint32_t field = 0;
    rov_node_id_t referrer = {};
    ASSERT_OK(rov_node_ref_get(ses, id(1000000), index, &total, &field, &referrer));
    EXPECT_EQ(total, kReferrers);
    EXPECT_EQ(field, index + 1);
    EXPECT_EQ(number(referrer), index + 1);
  }
  writer = begin();
  for (uint32_t node = 2; node <= kReferrers; node += 2)
    ASSERT_OK(rov_edit_node_del(writer, id(node)));
  commit(writer);
  ses = read();
  const Refs left = referrers_of(ses, 1000000);
  ASSERT_EQ(left.size(), kReferrers / 2);
  for (uint32_t n = 0; n < left.size(); ++n) ASSERT_EQ(left[n].first, 2 * n + 1);
}

TEST_F(EditTest, FewerReferrersThanAskedForLeaveTheRestAlone) {
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, {}));
  ASSERT_OK(put_node(writer, 2, {}));
  ASSERT_OK(put_link(writer, 2, 1, 1));
  std::vector<rov_node_id_t> refs(3);
  ASSERT_OK(rov_node_ref_get_all(writer, id(1), refs.data(), 3));
  EXPECT_EQ(number(refs[0]), 2U);
  EXPECT_EQ(number(refs[1]), 0U);
  EXPECT_STATUS(rov_node_ref_get_all(writer, id(9), refs.data(), 3), ROV_ERR_NO_ITEM);
  EXPECT_OK(rov_edit_abandon(writer));
}

TEST_F(EditTest, BadInputIsRefusedAndChangesNothing) {
  const uint32_t writer = begin();
  const Bytes short_name(20);
  EXPECT_STATUS(put_node(writer, 0, {}), ROV_ERR_INVALID);
  EXPECT_STATUS(put_node(writer, 1, {}, short_name), ROV_ERR_LENGTH);
  EXPECT_STATUS(rov_edit_node_put(writer, nullptr), ROV_ERR_INVALID);
  rov_edit_node_t node = {};
  node.id = id(1);
  node.id.word[2] = 1;
  EXPECT_STATUS(rov_edit_node_put(writer, &node), ROV_ERR_INVALID);
  node.id = id(1);
  node.tlv_len = 4;
  EXPECT_STATUS(rov_edit_node_put(writer, &node), ROV_ERR_INVALID);
  node.tlv_len = rov::kMaxTlv + 1;
  EXPECT_STATUS(rov_edit_node_put(writer, &node), ROV_ERR_LENGTH);
  EXPECT_STATUS(put_link(writer, 1, 5, 2), ROV_ERR_NO_ITEM);
  ASSERT_OK(put_node(writer, 1, {}));
  EXPECT_STATUS(put_link(writer, 1, 5, 0), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_edit_link_del(writer, id(1), 5), ROV_ERR_NO_LINK);
  EXPECT_STATUS(rov_edit_link_del(writer, id(2), 5), ROV_ERR_NO_ITEM);
  EXPECT_STATUS(rov_edit_node_del(writer, id(2)), ROV_ERR_NO_ITEM);
  EXPECT_EQ(parms_of(writer, 1).links, 0U);
  commit(writer);
}

TEST_F(EditTest, NodesAreWalkedInOrderThroughEditsAndSnapshot) {
  uint32_t writer = begin();
  for (uint32_t node : {0x7fffffffU, 5U, 0xffffffffU, 0x80000000U, 300U})
    ASSERT_OK(put_node(writer, node, {}));
  commit(writer);
  writer = begin();
  ASSERT_OK(put_node(writer, 6, {}));
  ASSERT_OK(rov_edit_node_del(writer, id(300)));
  ASSERT_OK(rov_edit_node_del(writer, id(0xffffffff)));
  const auto walk = [](uint32_t ses) {
    std::vector<uint32_t> nodes;
    rov_node_parms_t parms = {};
    while (rov_node_next(ses, parms.id, &parms) == ROV_OK) nodes.push_back(number(parms.id));
    return nodes;
  };
  EXPECT_EQ(walk(read()), (std::vector<uint32_t>{5, 300, 0x7fffffff, 0x80000000, 0xffffffff}));
  EXPECT_EQ(walk(writer), (std::vector<uint32_t>{5, 6, 0x7fffffff, 0x80000000}));
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_next(writer, id(0xffffffff), &parms), ROV_ERR_NO_ITEM);
  EXPECT_OK(rov_edit_abandon(writer));
}

}  // namespace
