// What decoding adds to a node's TLV: criteria counted, policy-instance fields filled.

#include <cstddef>
#include <cstring>
#include <functional>

#include "rov.h"
#include "tests/library/node/support.h"

namespace {

using fake::report;
using node_test::Bytes;
using node_test::bytes_of;
using node_test::kFailure;
using node_test::kNode;
using node_test::name_bytes;

using Texts = std::vector<std::string>;

class NodeDecode : public node_test::NodeTest {};

// ---- Filters ---------------------------------------------------------------------------------

TEST_F(NodeDecode, filter_without_criteria_counts_none) {
  fake::node(kNode).filter({.flags = 1, .match = 2, .nomatch = 3});
  const qim_filter_t& filter = opened(kNode).body.filter;
  EXPECT_EQ(filter.flags, 1u);
  EXPECT_EQ(filter.match, 2u);
  EXPECT_EQ(filter.nomatch, 3u);
  EXPECT_EQ(filter.crit, nullptr);
  EXPECT_EQ(filter.crit_cnt, 0u);
  EXPECT_EQ(filter.crit_bytes, 0u);
  close();
}

TEST_F(NodeDecode, filter_counts_its_criteria_and_32_bytes_and_the_arguments_of_each) {
  fake::node(kNode).filter({.criteria = {{5, {1, 2, 3, 4}}, {6, {}}}});
  const qim_filter_t& filter = opened(kNode).body.filter;
  EXPECT_EQ(filter.crit_cnt, 2u);
  EXPECT_EQ(filter.crit_bytes, 68u);
  close();
}

TEST_F(NodeDecode, filter_counts_argument_lengths_unrounded) {
  fake::node(kNode).filter({.criteria = {{5, {1, 2, 3}}, {6, {}}}});
  EXPECT_EQ(opened(kNode).body.filter.crit_bytes, 67u);
  close();
}

TEST_F(NodeDecode, filter_keeps_its_criteria_in_tlv_order_with_their_arguments) {
  fake::node(kNode).filter({.criteria = {{7, {1, 2}}, {6, {}}, {5, {3}}}});
  const qim_criterion_t* crit = opened(kNode).body.filter.crit;
  ASSERT_NE(crit, nullptr);
  EXPECT_EQ(crit->type, 7u);
  ASSERT_EQ(crit->args_len, 2u);
  EXPECT_EQ(std::memcmp(crit->args, "\1\2", 2), 0);
  crit = crit->next;
  ASSERT_NE(crit, nullptr);
  EXPECT_EQ(crit->type, 6u);
  EXPECT_EQ(crit->args_len, 0u);
  EXPECT_EQ(crit->args, nullptr);
  crit = crit->next;
  ASSERT_NE(crit, nullptr);
  EXPECT_EQ(crit->type, 5u);
  EXPECT_EQ(crit->next, nullptr);
  close();
}

TEST_F(NodeDecode, filter_keeps_its_counts_in_bytes_16_to_23_and_its_list_in_byte_32) {
  EXPECT_EQ(offsetof(qim_filter_t, crit_cnt), 16u);
  EXPECT_EQ(offsetof(qim_filter_t, crit_bytes), 20u);
  EXPECT_EQ(offsetof(qim_filter_t, crit), 32u);
}

TEST_F(NodeDecode, filter_counts_its_criteria_even_when_its_link_failed) {
  fake::node(kNode).filter({.criteria = {{5, {1, 2, 3, 4}}, {6, {}}}});
  const auto& watch = watch_blocks();
  fake::fail("rov_node_ln_field_get", kFailure);
  EXPECT_EQ(open(kNode), kFailure);
  const qim_node_t node = watch.node_at_free();
  EXPECT_EQ(node.body.filter.crit_cnt, 2u);
  EXPECT_EQ(node.body.filter.crit_bytes, 68u);
  expect_left(3);
}

// ---- Bodies without anything to derive -------------------------------------------------------

TEST_F(NodeDecode, action_and_def_own_their_arguments) {
  fake::node(kNode).action({.type = 4, .args = {1, 2, 3}});
  const qim_action_t& action = opened(kNode).body.action;
  EXPECT_EQ(action.type, 4u);
  EXPECT_EQ(action.args_len, 3u);
  EXPECT_TRUE(fake::is_live(action.args));
  close();
  fake::node(8).def({.type = 5, .args = {1, 2}});
  const qim_def_t& def = opened(8).body.def;
  EXPECT_EQ(def.type, 5u);
  EXPECT_EQ(def.args_len, 2u);
  EXPECT_TRUE(fake::is_live(def.args));
  close();
}

TEST_F(NodeDecode, police_is_decoded_in_place_with_nothing_allocated) {
  fake::node(kNode).police({.committed = {1, 0x0203040506070809, 10, 0x0b0c0d0e0f101112},
                            .peak = {2, 3, 4, UINT64_MAX}});
  const qim_police_t& police = opened(kNode).body.police;
  EXPECT_EQ(police.comt_bw.rate_units, 1u);
  EXPECT_EQ(police.comt_bw.rate, 0x0203040506070809u);
  EXPECT_EQ(police.comt_bw.burst_units, 10u);
  EXPECT_EQ(police.comt_bw.burst, 0x0b0c0d0e0f101112u);
  EXPECT_EQ(police.peak_bw.rate_units, 2u);
  EXPECT_EQ(police.peak_bw.burst, UINT64_MAX);
  EXPECT_EQ(fake::live_blocks(), 1u);
  close();
}

TEST_F(NodeDecode, hfilter_haction_group_and_ifelse_are_decoded_whole) {
  fake::node(1).hfilter({.type = 1, .true_act = 2, .false_act = 3, .nomatch_act = 4});
  const qim_hfilter_t& hfilter = opened(1).body.hfilter;
  EXPECT_EQ(bytes_of(hfilter), bytes_of(qim_hfilter_t{0, 2, 3, 4, 1, {}}));
  close();
  fake::node(2).haction({.type = 5});
  EXPECT_EQ(bytes_of(opened(2).body.haction), bytes_of(qim_haction_t{0, 5, {}}));
  close();
  fake::node(3).group_body({.type = 6, .subtype = 7});
  EXPECT_EQ(bytes_of(opened(3).body.group), bytes_of(qim_group_t{0, 6, 7, {}}));
  close();
  fake::node(4).ifelse();
  EXPECT_EQ(bytes_of(opened(4).body.ifelse), bytes_of(qim_ifelse_t{}));
  close();
}

TEST_F(NodeDecode, types_without_a_name_of_their_own_ignore_a_data_set_name) {
  fake::node(kNode).ifelse().dset_name(name_bytes());
  EXPECT_EQ(bytes_of(opened(kNode).body.ifelse), bytes_of(qim_ifelse_t{}));
  close();
}

// ---- Policy instances ------------------------------------------------------------------------

struct PinstType {
  const char* name;
  std::uint32_t type;
  std::function<void(fake::Node&)> make;
};

void PrintTo(const PinstType& type, std::ostream* os) {
  *os << type.name;
}

class NodeDecodePinst : public node_test::NodeTest, public testing::WithParamInterface<PinstType> {
 protected:
  fake::Node& make() {
    fake::Node& made = fake::node(kNode);
    GetParam().make(made);
    return made;
  }
  bool is_data_set() const { return GetParam().type == QIM_NODE_DSET; }
};

INSTANTIATE_TEST_SUITE_P(
    , NodeDecodePinst,
    testing::Values(PinstType{"Pinst", QIM_NODE_PINST, [](fake::Node& n) { n.pinst(); }},
                    PinstType{"Edest", QIM_NODE_EDEST, [](fake::Node& n) { n.edest(); }},
                    PinstType{"Dset", QIM_NODE_DSET, [](fake::Node& n) { n.data_set(); }}),
    node_test::name_of<PinstType>);

TEST_P(NodeDecodePinst, reads_the_fields_of_an_interface_name) {
  make().dset_name({1,    0x11, 0x22, 0x33, 0x44, 0x01, 0x02, 0x03, 0x04, 0x0a, 0x0b,
                    0x01, 0x02, 0,    0,    0,    0,    0,    0,    0x05, 0x01});
  const qim_node_t& node = opened(kNode);
  const qim_pinst_fields_t& fields = node.body.pinst.fields;
  EXPECT_EQ(node.type, GetParam().type);
  EXPECT_EQ(fields.dest.fmt, QIM_DEST_IF);
  EXPECT_EQ(fields.dest.intf.ifix, 0x11223344u);
  EXPECT_EQ(fields.dest.intf.vrf, 0x01020304u);
  EXPECT_EQ(fields.dest.intf.vlan, 0x0a0bu);
  EXPECT_EQ(fields.dest.intf.vdc, 0x0102u);
  EXPECT_EQ(fields.type, 5u);
  EXPECT_EQ(fields.dir, 1u);
  close();
}

TEST_P(NodeDecodePinst, reads_the_fields_of_service_and_generic_names) {
  Bytes name = name_bytes();
  name[0] = QIM_DEST_SRV;
  make().dset_name(name);
  EXPECT_EQ(opened(kNode).body.pinst.fields.dest.srv.srv_vdc, 0x0b0cu);
  close();
  name[0] = QIM_DEST_GEN;
  make().dset_name(name);
  const qim_dest_gen_t& gen = opened(kNode).body.pinst.fields.dest.gen;
  EXPECT_EQ(gen.vdc, 0x0304u);
  EXPECT_EQ(gen.v8, 0x05u);
  EXPECT_EQ(gen.v32b, 0x0e0f1011u);
  close();
}

TEST_P(NodeDecodePinst, leaves_the_bytes_behind_the_direction_zero) {
  make().dset_name(Bytes(21, 0xff));
  const Bytes body = bytes_of(opened(kNode).body);
  EXPECT_EQ(body[16], 0xff);
  EXPECT_EQ(Bytes(body.begin() + 17, body.begin() + 20), (Bytes{0, 0, 0}));
  EXPECT_EQ(body[20], 0xff);
  close();
}

TEST_P(NodeDecodePinst, converts_a_copy_of_the_name) {
  make().dset_name(name_bytes());
  const auto& watch = watch_blocks();
  opened(kNode);
  EXPECT_EQ(watch.contents.at(watch.name()), name_bytes());
  close();
}

TEST_P(NodeDecodePinst, reads_the_missing_bytes_of_a_short_name_as_zero) {
  for (std::uint8_t len = 1; len < 21; ++len) {
    SCOPED_TRACE(static_cast<unsigned>(len));
    Bytes name = name_bytes();
    name.resize(len);
    make().dset_name(name);
    Bytes padded = name;
    padded.resize(21);
    qim_dsetname_t whole;
    std::memcpy(&whole, padded.data(), sizeof whole);
    qim_pinst_fields_t fields{};
    qim_pinst_from_dsetname(&fields, &whole);
    EXPECT_EQ(bytes_of(opened(kNode).body.pinst.fields), bytes_of(fields));
    close();
  }
}

TEST_P(NodeDecodePinst, reads_21_bytes_of_a_longer_name) {
  Bytes name = name_bytes();
  make().dset_name(name);
  const Bytes fields = bytes_of(opened(kNode).body.pinst.fields);
  close();
  name.resize(64, 0xee);
  make().dset_name(name);
  EXPECT_EQ(bytes_of(opened(kNode).body.pinst.fields), fields);
  close();
}

TEST_P(NodeDecodePinst, asks_for_the_link_before_it_reads_the_name) {
  make().dset_name(name_bytes()).link(0x2c1, {9, 8, 7, 6});
  const auto& watch = watch_blocks();
  fake::fail("rov_node_ln_field_get", kFailure);
  EXPECT_EQ(open(kNode), kFailure);
  EXPECT_EQ(bytes_of(watch.node_at_free().body.pinst.fields), bytes_of(qim_pinst_fields_t{}));
}

TEST_P(NodeDecodePinst, reports_a_failed_link_up_the_chain) {
  make().dset_name(name_bytes());
  fake::fail("rov_node_ln_field_get", kFailure);
  EXPECT_EQ(open(kNode), kFailure);
  Texts chain = {report(kFailure, "qim_link_field_get", 1038),
                 report(kFailure, "qim_list_get_fixed", 151),
                 report(kFailure, "qim_pinst_dsetname_get", 210)};
  if (is_data_set()) {
    chain.push_back(report(kFailure, "qim_int_node_open", 541));
  } else {
    chain.push_back(report(kFailure, "qim_node_from_tlva", 337));
    chain.push_back(report(kFailure, "qim_int_node_open", 549));
  }
  EXPECT_EQ(fake::report_texts(), chain);
}

TEST_F(NodeDecode, pinst_and_edest_count_every_referrer_as_an_enforcement_destination) {
  fake::node(1).pinst().refs(5);
  fake::node(2).edest().refs(0xffffffff);
  EXPECT_EQ(opened(1).body.pinst.edests, 5u);
  EXPECT_EQ(node()->body.pinst.nonedests, 0u);
  EXPECT_EQ(node()->refs, 5u);
  close();
  EXPECT_EQ(opened(2).body.pinst.edests, 0xffffffffu);
  EXPECT_EQ(node()->body.pinst.nonedests, 0u);
  close();
}

TEST_F(NodeDecode, pinst_counts_its_destinations_before_it_asks_for_its_link) {
  fake::node(kNode).pinst().refs(5);
  const auto& watch = watch_blocks();
  fake::fail("rov_node_ln_field_get", kFailure);
  EXPECT_EQ(open(kNode), kFailure);
  EXPECT_EQ(watch.node_at_free().body.pinst.edests, 5u);
}

TEST_F(NodeDecode, pinst_and_edest_keep_their_counts_and_link_in_bytes_24_to_47) {
  EXPECT_EQ(offsetof(qim_pinst_t, fields), 0u);
  EXPECT_EQ(offsetof(qim_pinst_t, edests), 24u);
  EXPECT_EQ(offsetof(qim_pinst_t, nonedests), 28u);
  EXPECT_EQ(offsetof(qim_pinst_t, ln_2c1), 32u);
}

TEST_F(NodeDecode, pinst_and_edest_without_a_name_have_fields_of_zeros) {
  fake::node(1).pinst().link(0x2c1, 9);
  fake::node(2).edest().link(0x2c1, 9);
  for (const std::uint32_t id : {1u, 2u}) {
    const qim_pinst_t& pinst = opened(id).body.pinst;
    EXPECT_EQ(bytes_of(pinst.fields), bytes_of(qim_pinst_fields_t{}));
    EXPECT_EQ(pinst.ln_2c1.node, 9u);
    close();
  }
}

TEST_F(NodeDecode, name_that_was_promised_but_has_no_buffer_leaves_the_fields_zero) {
  fake::node(kNode).data_set().dset_name(name_bytes());
  fake::script("mem_alloc_ary", [](const fake::Call& made) {
    *made.pointer<void*>(2) = nullptr;
    *made.pointer<void*>(4) = nullptr;
    *made.pointer<void*>(6) = nullptr;
    *made.pointer<void*>(8) = fake::allocate(made.u32(7), pool());
    return 0u;
  });
  const qim_node_t& node = opened(kNode);
  EXPECT_EQ(node.type, QIM_NODE_DSET);
  EXPECT_EQ(bytes_of(node.body.pinst.fields), bytes_of(qim_pinst_fields_t{}));
  EXPECT_EQ(fake::count("mem_free"), 0u);
  close();
}

}  // namespace
