// The layout of every node record, and the codes in them.

#include "tests/support/fake/fixture.h"
#include "tests/support/fake/layout.h"

namespace {

TEST(Records, node_has_ten_header_words_and_a_body) {
  CHECK_LAYOUT(
      qim_node_t, 168,
      {FIXED(qim_node_t, links_total, 0, 4), FIXED(qim_node_t, links_unfixed, 4, 4),
       FIXED(qim_node_t, refs, 8, 4), FIXED(qim_node_t, id, 12, 4), FIXED(qim_node_t, group, 16, 4),
       FIXED(qim_node_t, type, 20, 4), FIXED(qim_node_t, flags, 24, 4),
       FIXED(qim_node_t, priv_len, 28, 4), WIDENS(qim_node_t, priv_buf, 32, 4),
       WIDENS(qim_node_t, priv_ptr, 36, 4), FIXED(qim_node_t, body, 40, 128)});
}

TEST(Records, body_is_a_union_at_its_own_start) {
  EXPECT_EQ(offsetof(qim_node_body_t, filter), 0u);
  EXPECT_EQ(offsetof(qim_node_body_t, action), 0u);
  EXPECT_EQ(offsetof(qim_node_body_t, ifelse), 0u);
  EXPECT_EQ(offsetof(qim_node_body_t, hfilter), 0u);
  EXPECT_EQ(offsetof(qim_node_body_t, haction), 0u);
  EXPECT_EQ(offsetof(qim_node_body_t, police), 0u);
  EXPECT_EQ(offsetof(qim_node_body_t, group), 0u);
  EXPECT_EQ(offsetof(qim_node_body_t, pinst), 0u);
  EXPECT_EQ(offsetof(qim_node_body_t, def), 0u);
  EXPECT_EQ(sizeof(qim_node_body_t), 128u);
}

TEST(Records, criterion) {
  CHECK_LAYOUT(qim_criterion_t, 16,
               {WIDENS(qim_criterion_t, next, 0, 4), FIXED(qim_criterion_t, type, 4, 4),
                FIXED(qim_criterion_t, args_len, 8, 4), WIDENS(qim_criterion_t, args, 12, 4)});
}

TEST(Records, filter) {
  CHECK_LAYOUT(qim_filter_t, 36,
               {FIXED(qim_filter_t, ln_081, 0, 4), FIXED(qim_filter_t, flags, 4, 4),
                FIXED(qim_filter_t, match, 8, 4), FIXED(qim_filter_t, nomatch, 12, 4),
                FIXED(qim_filter_t, crit_cnt, 16, 4), FIXED(qim_filter_t, crit_bytes, 20, 4),
                FIXED(qim_filter_t, crit_aux, 24, 4), FIXED(qim_filter_t, reserved, 28, 4),
                WIDENS(qim_filter_t, crit, 32, 4)});
}

TEST(Records, hfilter) {
  CHECK_LAYOUT(qim_hfilter_t, 36,
               {FIXED(qim_hfilter_t, ln_081, 0, 4), FIXED(qim_hfilter_t, true_act, 4, 4),
                FIXED(qim_hfilter_t, false_act, 8, 4), FIXED(qim_hfilter_t, nomatch_act, 12, 4),
                FIXED(qim_hfilter_t, type, 16, 4), FIXED(qim_hfilter_t, ln_102, 20, 16)});
}

TEST(Records, action) {
  CHECK_LAYOUT(qim_action_t, 16,
               {FIXED(qim_action_t, ln_141, 0, 4), FIXED(qim_action_t, type, 4, 4),
                FIXED(qim_action_t, args_len, 8, 4), WIDENS(qim_action_t, args, 12, 4)});
}

TEST(Records, haction) {
  CHECK_LAYOUT(qim_haction_t, 24,
               {FIXED(qim_haction_t, ln_141, 0, 4), FIXED(qim_haction_t, type, 4, 4),
                FIXED(qim_haction_t, ln_182, 8, 16)});
}

TEST(Records, action_bw_names_its_gaps) {
  CHECK_LAYOUT(qim_action_bw_t, 32,
               {FIXED(qim_action_bw_t, rate_units, 0, 4), FIXED(qim_action_bw_t, gap0, 4, 4),
                FIXED(qim_action_bw_t, rate, 8, 8), FIXED(qim_action_bw_t, burst_units, 16, 4),
                FIXED(qim_action_bw_t, gap1, 20, 4), FIXED(qim_action_bw_t, burst, 24, 8)});
}

TEST(Records, police_names_its_gap) {
  CHECK_LAYOUT(qim_police_t, 128,
               {FIXED(qim_police_t, ln_141, 0, 4), FIXED(qim_police_t, ln_201, 4, 16),
                FIXED(qim_police_t, ln_202, 20, 16), FIXED(qim_police_t, ln_203, 36, 16),
                FIXED(qim_police_t, gap0, 52, 4), FIXED(qim_police_t, comt_bw, 56, 32),
                FIXED(qim_police_t, peak_bw, 88, 32), FIXED(qim_police_t, reserved, 120, 8)});
}

TEST(Records, ifelse) {
  CHECK_LAYOUT(qim_ifelse_t, 64,
               {FIXED(qim_ifelse_t, ln_241, 0, 16), FIXED(qim_ifelse_t, ln_242, 16, 16),
                FIXED(qim_ifelse_t, ln_243, 32, 16), FIXED(qim_ifelse_t, ln_244, 48, 16)});
}

TEST(Records, def) {
  CHECK_LAYOUT(qim_def_t, 32,
               {FIXED(qim_def_t, ln_301, 0, 4), FIXED(qim_def_t, ln_302, 4, 16),
                FIXED(qim_def_t, type, 20, 4), FIXED(qim_def_t, args_len, 24, 4),
                WIDENS(qim_def_t, args, 28, 4)});
}

TEST(Records, group) {
  CHECK_LAYOUT(qim_group_t, 28,
               {FIXED(qim_group_t, ln_282, 0, 4), FIXED(qim_group_t, type, 4, 4),
                FIXED(qim_group_t, subtype, 8, 4), FIXED(qim_group_t, ln_281, 12, 16)});
}

TEST(Records, pinst) {
  CHECK_LAYOUT(qim_pinst_t, 48,
               {FIXED(qim_pinst_t, fields, 0, 24), FIXED(qim_pinst_t, edests, 24, 4),
                FIXED(qim_pinst_t, nonedests, 28, 4), FIXED(qim_pinst_t, ln_2c1, 32, 16)});
}

TEST(Records, link) {
  CHECK_LAYOUT(
      qim_link_t, 16,
      {FIXED(qim_link_t, node, 0, 4), FIXED(qim_link_t, node2, 4, 4), FIXED(qim_link_t, val, 8, 4),
       FIXED(qim_link_t, tag, 12, 2), FIXED(qim_link_t, field, 14, 2)});
}

TEST(Records, have_these_type_codes) {
  EXPECT_EQ(QIM_NODE_FILTER, 1);
  EXPECT_EQ(QIM_NODE_ACTION, 2);
  EXPECT_EQ(QIM_NODE_IFELSE, 3);
  EXPECT_EQ(QIM_NODE_HFILTER, 4);
  EXPECT_EQ(QIM_NODE_HACTION, 5);
  EXPECT_EQ(QIM_NODE_POLICE, 6);
  EXPECT_EQ(QIM_NODE_GROUP, 7);
  EXPECT_EQ(QIM_NODE_PINST, 8);
  EXPECT_EQ(QIM_NODE_DEF, 9);
  EXPECT_EQ(QIM_NODE_EDEST, 10);
  EXPECT_EQ(QIM_NODE_DSET, 32);
  EXPECT_EQ(QIM_NODE_DSET_NONAME, 33);
}

TEST(Records, have_these_link_kinds) {
  EXPECT_EQ(QIM_LINK_TRUE, 1);
  EXPECT_EQ(QIM_LINK_FALSE, 2);
  EXPECT_EQ(QIM_LINK_NOMATCH, 3);
  EXPECT_EQ(QIM_LINK_NEXT, 4);
}

// ---- Predicates --------------------------------------------------------------------------------

qim_node_t node_of(std::uint32_t type, std::uint32_t group_type = 0, std::uint32_t subtype = 0) {
  qim_node_t node{};
  node.type = type;
  node.body.group.type = group_type;
  node.body.group.subtype = subtype;
  return node;
}

TEST(Predicates, answer_1_or_0_for_each_type) {
  for (std::uint32_t type = 0; type < 64; ++type) {
    SCOPED_TRACE(type);
    const qim_node_t node = node_of(type, 2, 2);
    const int filter = type == 1 || type == 4 ? 1 : 0;
    const int action = type == 2 || type == 5 || type == 6 ? 1 : 0;
    EXPECT_EQ(qim_is_filterlist_type(&node), filter);
    EXPECT_EQ(qim_is_actionlist_type(&node), action);
    EXPECT_EQ(qim_is_ifelse_filter_type(&node), filter);
  }
}

TEST(Predicates, take_the_type_as_a_whole_word) {
  for (const std::uint32_t type : {0x00000101u, 0x01000000u, 0x80000001u, 0xffffffffu}) {
    const qim_node_t node = node_of(type, 1, 1);
    EXPECT_EQ(qim_is_filterlist_type(&node), 0);
    EXPECT_EQ(qim_is_actionlist_type(&node), 0);
    EXPECT_EQ(qim_is_ifelse_filter_type(&node), 0);
  }
}

TEST(Predicates, take_a_group_of_body_type_1_for_an_ifelse_filter_whatever_its_subtype) {
  for (const std::uint32_t subtype : {0u, 1u, 2u}) {
    for (const std::uint32_t type : {0u, 1u, 2u, 0x101u, 0x80000001u}) {
      const qim_node_t node = node_of(QIM_NODE_GROUP, type, subtype);
      EXPECT_EQ(qim_is_ifelse_filter_type(&node), type == 1 ? 1 : 0);
      EXPECT_EQ(qim_is_filterlist_type(&node), 0);
      EXPECT_EQ(qim_is_actionlist_type(&node), 0);
    }
  }
}

TEST(Predicates, read_the_groups_body_type_at_byte_44_of_the_device_record) {
  EXPECT_EQ(offsetof(qim_node_t, body.group.type), offsetof(qim_node_t, body) + 4);
}

TEST(Predicates, look_at_the_body_of_groups_only) {
  for (std::uint32_t type = 0; type < 64; ++type) {
    if (type == QIM_NODE_GROUP || type == QIM_NODE_FILTER || type == QIM_NODE_HFILTER) continue;
    const qim_node_t node = node_of(type, 1, 1);
    EXPECT_EQ(qim_is_ifelse_filter_type(&node), 0) << type;
  }
}

}  // namespace
