// Opening a node: what is asked of the database, in which order, and what the open node holds.

#include <cstddef>
#include <cstring>

#include "rov.h"
#include "tests/library/node/support.h"
#include "tlvo.h"

namespace {

using fake::any;
using fake::call;
using node_test::Bytes;
using node_test::bytes_of;
using node_test::entry_of;
using node_test::kNode;
using node_test::kSes;
using node_test::name_bytes;

using Names = std::vector<std::string>;

class NodeOpen : public node_test::NodeTest {};

TEST_F(NodeOpen, has_an_entry_of_176_bytes_with_the_node_8_bytes_in) {
  if (sizeof(void*) == 4) {
    EXPECT_EQ(sizeof(qim_node_cache_entry_t), 176u);
    EXPECT_EQ(offsetof(qim_node_cache_entry_t, node), 8u);
  }
  EXPECT_EQ(offsetof(qim_node_cache_entry_t, next), 0u);
  EXPECT_EQ(offsetof(qim_node_cache_entry_t, ses), sizeof(void*));
}

TEST_F(NodeOpen, asks_for_parameters_allocates_reads_decodes_resolves_and_frees_in_this_order) {
  fake::node(kNode).haction({.type = 3}).link(0x141, 9).dset_name({1, 2, 3}).priv({4, 5});
  opened(kNode);
  EXPECT_EQ(fake::names(),
            (Names{"rov_node_parms_get", "mem_alloc_ary", "rov_node_data_get",
                   "tlvo_dec_tlva_to_struct", "rov_tlva_to_union", "rov_node_ln_field_get",
                   "rov_node_ln_field_get", "mem_free", "mem_free"}));
  close();
}

TEST_F(NodeOpen, passes_session_and_identifier_by_value_to_the_parameter_query) {
  fake::node(0x80123456).ifelse();
  opened(0x80123456);
  EXPECT_EQ(fake::calls().at(0), call("rov_node_parms_get", kSes, fake::id(0x80123456), any));
  close();
}

TEST_F(NodeOpen, allocates_tlv_name_private_data_and_entry_in_one_call) {
  fake::node(kNode).haction({.type = 3}).dset_name(Bytes(21, 1)).priv(Bytes(5, 2));
  const auto tlv_len = fake::node(kNode).tlv_bytes().size();
  opened(kNode);
  EXPECT_EQ(fake::calls_of("mem_alloc_ary"),
            (fake::Calls{call("mem_alloc_ary", 4, tlv_len, any, 21, any, 5, any,
                              sizeof(qim_node_cache_entry_t), any, pool())}));
  close();
}

TEST_F(NodeOpen, reads_each_part_into_its_own_block_with_its_length_before_it) {
  fake::node(kNode).haction({.type = 3}).dset_name(Bytes(21, 1)).priv(Bytes(5, 2));
  const auto tlv_len = fake::node(kNode).tlv_bytes().size();
  const auto& watch = watch_blocks();
  opened(kNode);
  EXPECT_EQ(fake::calls_of("rov_node_data_get"),
            (fake::Calls{call("rov_node_data_get", kSes, fake::id(kNode), tlv_len, watch.tlv(), 21,
                              watch.name(), 5, watch.priv())}));
  EXPECT_EQ(node(), &watch.entry()->node);
  EXPECT_EQ(node()->priv_buf, watch.priv());
  close();
}

TEST_F(NodeOpen, decodes_the_tlv_in_place_into_the_record_of_the_entry) {
  fake::node(kNode).haction({.type = 3});
  const Bytes tlv = fake::node(kNode).tlv_bytes();
  const auto& watch = watch_blocks();
  void* record = nullptr;
  fake::script("tlvo_dec_tlva_to_struct", [&](const fake::Call& made) {
    record = *made.pointer<void*>(0);
    static_cast<qim_node_t*>(record)->type = QIM_NODE_IFELSE;
    return 0u;
  });
  opened(kNode);
  EXPECT_EQ(fake::calls_of("tlvo_dec_tlva_to_struct"),
            (fake::Calls{
                call("tlvo_dec_tlva_to_struct", any, watch.tlv(), tlv.size(), &qim_node_tbl, 1)}));
  EXPECT_EQ(fake::calls_of("tlvo_dec_tlva_to_struct").at(0).bytes, tlv);
  EXPECT_EQ(record, node());
  close();
}

TEST_F(NodeOpen, frees_tlv_then_name_and_keeps_the_private_data) {
  fake::node(kNode).ifelse().dset_name(Bytes(21, 1)).priv({4, 5, 6});
  const auto& watch = watch_blocks();
  const qim_node_t& node = opened(kNode);
  EXPECT_EQ(watch.freed, (std::vector<void*>{watch.tlv(), watch.name()}));
  ASSERT_TRUE(fake::is_live(node.priv_buf));
  EXPECT_EQ(std::memcmp(node.priv_buf, "\4\5\6", 3), 0);
  EXPECT_EQ(fake::live_blocks(), 2u);
  close();
}

TEST_F(NodeOpen, frees_no_name_when_there_is_none) {
  fake::node(kNode).ifelse();
  const auto& watch = watch_blocks();
  opened(kNode);
  EXPECT_EQ(watch.freed, (std::vector<void*>{watch.tlv()}));
  close();
}

TEST_F(NodeOpen, asks_the_database_nothing_about_parameters_that_are_given) {
  fake::node(kNode).ifelse().link(0x241, 9).priv({1});
  const rov_node_parms_t parms = fake::node(kNode).parms();
  const Bytes before = bytes_of(parms);
  ASSERT_EQ(open(kNode, 0, &parms), 0u);
  EXPECT_EQ(fake::count("rov_node_parms_get"), 0u);
  EXPECT_EQ(node()->links_total, 1u);
  EXPECT_EQ(node()->priv_len, 1u);
  EXPECT_EQ(bytes_of(parms), before);
  close();
}

TEST_F(NodeOpen, takes_identifier_zero_from_given_parameters) {
  fake::node(kNode).ifelse();
  const rov_node_parms_t parms = fake::node(kNode).parms();
  ASSERT_EQ(open(0, 0, &parms), 0u);
  EXPECT_EQ(node()->id, kNode);
  EXPECT_EQ(fake::calls_of("rov_node_data_get").at(0),
            call("rov_node_data_get", kSes, fake::id(kNode), any, any, any, any, any, any));
  EXPECT_EQ(fake::calls_of("rov_node_ln_field_get").at(0),
            call("rov_node_ln_field_get", kSes, fake::id(kNode), 0x241, any));
  close();
}

TEST_F(NodeOpen, goes_by_a_given_identifier_whatever_the_parameters_name) {
  fake::node(kNode).ifelse();
  rov_node_parms_t parms = fake::node(kNode).parms();
  parms.id = fake::id(99);
  ASSERT_EQ(open(kNode, 0, &parms), 0u);
  EXPECT_EQ(node()->id, kNode);
  close();
}

TEST_F(NodeOpen, fills_the_header_from_the_parameters) {
  fake::node(kNode)
      .ifelse()
      .links_total(0x01020304)
      .refs(0x05060708)
      .priv({1, 2, 3})
      .priv_ptr(UINTPTR_MAX - 1);
  const qim_node_t& node = opened(kNode);
  EXPECT_EQ(node.links_total, 0x01020304u);
  EXPECT_EQ(node.links_unfixed, 0x01020304u);
  EXPECT_EQ(node.refs, 0x05060708u);
  EXPECT_EQ(node.id, kNode);
  EXPECT_EQ(node.priv_len, 3u);
  EXPECT_EQ(node.priv_ptr, UINTPTR_MAX - 1);
  EXPECT_EQ(entry_of(&node)->ses, kSes);
  EXPECT_EQ(entry_of(&node)->next, nullptr);
  close();
}

TEST_F(NodeOpen, keeps_the_header_words_in_their_places) {
  if (sizeof(void*) == 4) {
    EXPECT_EQ(offsetof(qim_node_t, links_total), 0u * 4);
    EXPECT_EQ(offsetof(qim_node_t, links_unfixed), 1u * 4);
    EXPECT_EQ(offsetof(qim_node_t, refs), 2u * 4);
    EXPECT_EQ(offsetof(qim_node_t, id), 3u * 4);
    EXPECT_EQ(offsetof(qim_node_t, type), 5u * 4);
    EXPECT_EQ(offsetof(qim_node_t, priv_len), 7u * 4);
    EXPECT_EQ(offsetof(qim_node_t, priv_buf), 8u * 4);
    EXPECT_EQ(offsetof(qim_node_t, priv_ptr), 9u * 4);
    EXPECT_EQ(offsetof(rov_node_parms_t, flags), 4u * 4);
    EXPECT_EQ(offsetof(rov_node_parms_t, links), 5u * 4);
    EXPECT_EQ(offsetof(rov_node_parms_t, refs), 6u * 4);
    EXPECT_EQ(offsetof(rov_node_parms_t, tlv_len), 7u * 4);
    EXPECT_EQ(offsetof(rov_node_parms_t, dset_len), 8u * 4);
    EXPECT_EQ(offsetof(rov_node_parms_t, priv_len), 9u * 4);
    EXPECT_EQ(offsetof(rov_node_parms_t, priv_ptr), 10u * 4);
  }
}

TEST_F(NodeOpen, takes_group_and_flags_from_the_tlv) {
  fake::node(kNode).ifelse().group(0x11121314).flags(0x21222324);
  const qim_node_t& node = opened(kNode);
  EXPECT_EQ(node.group, 0x11121314u);
  EXPECT_EQ(node.flags, 0x21222324u);
  close();
}

// ---- Data-set nodes --------------------------------------------------------------------------

TEST_F(NodeOpen, opens_a_data_set_node_without_a_name_as_type_33_with_nothing_but_a_header) {
  fake::node(kNode).data_set().link(0x2c1, 9).refs(5).priv_ptr(6).ifelse();
  const qim_node_t& node = opened(kNode);
  qim_node_t header{};
  header.links_total = 1;
  header.links_unfixed = 1;
  header.refs = 5;
  header.id = kNode;
  header.type = QIM_NODE_DSET_NONAME;
  header.priv_ptr = 6;
  EXPECT_EQ(bytes_of(node), bytes_of(header));
  EXPECT_EQ(fake::count("tlvo_dec_tlva_to_struct"), 0u);
  EXPECT_EQ(fake::count("rov_node_ln_field_get"), 0u);
  close();
}

TEST_F(NodeOpen, opens_a_data_set_node_with_a_name_as_type_32_with_fields_and_link) {
  fake::node(kNode).data_set().dset_name(name_bytes()).link(0x2c1, {9, 8, 7, 6}).refs(5);
  const qim_node_t& node = opened(kNode);
  EXPECT_EQ(node.type, 32u);
  EXPECT_EQ(node.body.pinst.fields.dest.intf.ifix, 0x03040506u);
  EXPECT_EQ(node.body.pinst.fields.type, 0x12131415u);
  EXPECT_EQ(node.body.pinst.fields.dir, 0x16);
  EXPECT_EQ(bytes_of(node.body.pinst.ln_2c1), bytes_of(qim_link_t{9, 8, 7, 6, 0x2c1}));
  EXPECT_EQ(node.body.pinst.edests, 0u);
  EXPECT_EQ(node.body.pinst.nonedests, 0u);
  EXPECT_EQ(node.links_unfixed, 0u);
  EXPECT_EQ(fake::count("tlvo_dec_tlva_to_struct"), 0u);
  close();
}

TEST_F(NodeOpen, looks_at_bit_2_of_the_flags_alone_to_tell_a_data_set_node) {
  fake::node(kNode).ifelse().dset_name(name_bytes());
  rov_node_parms_t parms = fake::node(kNode).parms();
  parms.flags = 0xfffffffb;
  ASSERT_EQ(open(kNode, 0, &parms), 0u);
  EXPECT_EQ(node()->type, QIM_NODE_IFELSE);
  close();
  parms.flags = 0xffffffff;
  ASSERT_EQ(open(kNode, 0, &parms), 0u);
  EXPECT_EQ(node()->type, QIM_NODE_DSET);
  close();
}

// ---- The required type -----------------------------------------------------------------------

TEST_F(NodeOpen, gives_a_node_of_the_required_type) {
  fake::node(kNode).filter({});
  EXPECT_EQ(open(kNode, QIM_NODE_FILTER), 0u);
  close();
  fake::node(8).data_set();
  EXPECT_EQ(open(8, QIM_NODE_DSET_NONAME), 0u);
  close();
  fake::node(9).data_set().dset_name(name_bytes());
  EXPECT_EQ(open(9, QIM_NODE_DSET), 0u);
  close();
}

TEST_F(NodeOpen, gives_a_node_of_any_type_when_type_0_is_required) {
  fake::node(kNode).filter({});
  EXPECT_EQ(open(kNode, 0), 0u);
  EXPECT_EQ(node()->type, QIM_NODE_FILTER);
  close();
}

// ---- Foreign allocators ----------------------------------------------------------------------

TEST_F(NodeOpen, clears_the_entry_of_an_allocator_that_does_not) {
  fake::node(kNode).filter({.flags = 1, .criteria = {{2, {1, 2, 3, 4}}, {3, {}}}}).priv({1});
  Bytes nodes[2];
  for (const bool zeroed : {true, false}) {
    fake::settings().zero_ary = zeroed;
    qim_node_t node = opened(kNode);
    EXPECT_EQ(entry_of(this->node())->next, nullptr);
    node.priv_buf = nullptr;
    node.body.filter.crit = nullptr;
    nodes[zeroed] = bytes_of(node);
    close();
  }
  EXPECT_EQ(nodes[false], nodes[true]);
}

TEST_F(NodeOpen, frees_the_tlv_block_that_an_allocator_gives_for_no_bytes) {
  fake::settings().empty_blocks = true;
  fake::node(kNode).data_set();
  const auto& watch = watch_blocks();
  const qim_node_t& node = opened(kNode);
  EXPECT_EQ(watch.freed, (std::vector<void*>{watch.tlv()}));
  EXPECT_EQ(node.priv_buf, watch.priv());
  EXPECT_EQ(node.priv_len, 0u);
  close();
  expect_left(2);  // the name and the private data, of which the parameters say there are none
  EXPECT_TRUE(fake::is_live(watch.name()));
  EXPECT_TRUE(fake::is_live(watch.priv()));
}

TEST_F(NodeOpen, allows_each_part_to_be_absent) {
  fake::node(kNode).data_set();
  const auto& watch = watch_blocks();
  const qim_node_t& node = opened(kNode);
  EXPECT_EQ(fake::calls_of("rov_node_data_get"),
            (fake::Calls{call("rov_node_data_get", kSes, fake::id(kNode), 0, nullptr, 0, nullptr, 0,
                              nullptr)}));
  EXPECT_EQ(node.priv_buf, nullptr);
  EXPECT_EQ(watch.freed.size(), 0u);
  close();
}

// ---- The context given -----------------------------------------------------------------------

TEST_F(NodeOpen, allocates_from_and_reports_to_the_context_it_is_given) {
  qim_lib_ctx_t other{};
  int mark = 0;
  fake::report_everything(&other);
  other.db_parms.logger_arg = &mark;
  report_only_unconditionally();
  fake::node(kNode).ifelse();
  qim_node_t* open_node = nullptr;
  ASSERT_EQ(qim_int_node_open(kSes, kNode, nullptr, 0, &open_node, &other), 0u);
  EXPECT_EQ(fake::calls_of("mem_alloc_ary").at(0).args.back(), fake::Arg(&other.db_parms.mem));
  EXPECT_EQ(fake::calls_of("mem_free").at(0).args.back(), fake::Arg(&other.db_parms.mem));
  EXPECT_EQ(qim_int_node_close(open_node, &other), 0u);
  EXPECT_EQ(fake::calls_of("mem_free").at(1).args.back(), fake::Arg(&other.db_parms.mem));
  EXPECT_EQ(qim_int_node_open(kSes, 0, nullptr, 0, &open_node, &other),
            static_cast<std::uint32_t>(QIM_ERR_INVALID));
  ASSERT_EQ(fake::reports().size(), 1u);
  EXPECT_EQ(fake::reports()[0].arg, &mark);
}

}  // namespace
