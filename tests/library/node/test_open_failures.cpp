// Opening a node when something goes wrong: the status, the reports, what is freed and in which
// order. Report lines are part of what readers of logs know, so they are pinned here.

#include "rov.h"
#include "tests/library/node/support.h"

namespace {

using fake::report;
using node_test::Bytes;
using node_test::kFailure;
using node_test::kInternal;
using node_test::kNode;
using node_test::kNodeType;
using node_test::kOtherFailure;
using node_test::kSes;

using Blocks = std::vector<void*>;
using Texts = std::vector<std::string>;

constexpr const char* kOpen = "qim_int_node_open";
constexpr const char* kDecode = "qim_node_from_tlva";
constexpr std::uint32_t kInvalid = QIM_ERR_INVALID;

class NodeOpenFailure : public node_test::NodeTest {
 protected:
  // Opening node kNode fails so, and gives no node.
  void expect_failure(std::uint32_t status, std::int32_t type = 0) {
    EXPECT_EQ(open(kNode, type), status);
    EXPECT_EQ(node(), nullptr);
  }

  // A node of which every part has a block, and nothing that the decoder allocates.
  static void make_node() {
    fake::node(kNode).ifelse().dset_name(Bytes(21, 1)).priv({4, 5});
    for (std::uint16_t field = 0x241; field <= 0x244; ++field) fake::node(kNode).link(field, 9);
  }
};

TEST_F(NodeOpenFailure, identifier_0_without_parameters_fails_before_the_database_is_asked) {
  EXPECT_EQ(open(0), kInvalid);
  EXPECT_EQ(node(), nullptr);
  EXPECT_EQ(fake::calls().size(), 0u);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInvalid, kOpen, 495)}));
}

TEST_F(NodeOpenFailure, identifier_0_in_given_parameters_is_no_identifier_either) {
  rov_node_parms_t parms{};
  EXPECT_EQ(open(0, 0, &parms), kInvalid);
  EXPECT_EQ(node(), nullptr);
  EXPECT_EQ(fake::calls().size(), 0u);
}

TEST_F(NodeOpenFailure, missing_node_gives_the_database_status_with_nothing_allocated) {
  expect_failure(ROV_ERR_NO_ITEM);
  EXPECT_EQ(fake::names(), (std::vector<std::string>{"rov_node_parms_get"}));
  EXPECT_EQ(fake::report_texts(), (Texts{report(ROV_ERR_NO_ITEM, kOpen, 503)}));
}

TEST_F(NodeOpenFailure, failed_parameters_give_the_database_status) {
  make_node();
  fake::fail("rov_node_parms_get", kFailure);
  expect_failure(kFailure);
  EXPECT_EQ(fake::names(), (std::vector<std::string>{"rov_node_parms_get"}));
}

TEST_F(NodeOpenFailure, failed_allocation_that_handed_nothing_out_frees_nothing) {
  make_node();
  fake::fail("mem_alloc_ary", kFailure);
  expect_failure(kFailure);
  EXPECT_EQ(fake::names(), (std::vector<std::string>{"rov_node_parms_get", "mem_alloc_ary"}));
  EXPECT_EQ(fake::report_texts(), (Texts{report(kFailure, kOpen, 517)}));
}

// An allocator of another make may fail half-way. Every subset of the four blocks is given back,
// the entry first, then the private data, the TLV data and the name.
TEST_F(NodeOpenFailure, failed_allocation_frees_whatever_it_handed_out) {
  make_node();
  for (unsigned given = 0; given < 16; ++given) {
    SCOPED_TRACE(given);
    fake::clear_calls();
    Blocks blocks(4);
    fake::script("mem_alloc_ary", [&](const fake::Call& made) {
      for (unsigned i = 0; i < 4; ++i) {
        if ((given >> i & 1) == 0) continue;
        blocks[i] = fake::allocate_dirty(made.u32(1 + 2 * i), pool());
        *made.pointer<void*>(2 + 2 * i) = blocks[i];
      }
      return kFailure;
    });
    expect_failure(kFailure);
    Blocks freed;
    for (const fake::Call& made : fake::calls_of("mem_free")) {
      freed.push_back(made.pointer<void>(0));
    }
    Blocks expected;
    for (const unsigned i : {3u, 2u, 0u, 1u}) {
      if (blocks[i] != nullptr) expected.push_back(blocks[i]);
    }
    EXPECT_EQ(freed, expected);
    EXPECT_EQ(fake::count("rov_node_data_get"), 0u);
  }
}

TEST_F(NodeOpenFailure, failed_read_frees_entry_private_data_tlv_and_name_in_this_order) {
  make_node();
  const auto& watch = watch_blocks();
  fake::fail("rov_node_data_get", kFailure);
  expect_failure(kFailure);
  EXPECT_EQ(watch.freed, (Blocks{watch.entry(), watch.priv(), watch.tlv(), watch.name()}));
  EXPECT_EQ(fake::report_texts(), (Texts{report(kFailure, kOpen, 524)}));
}

TEST_F(NodeOpenFailure, frees_a_private_data_block_of_no_bytes) {
  fake::node(kNode).data_set();
  fake::settings().empty_blocks = true;
  const auto& watch = watch_blocks();
  fake::fail("rov_node_data_get", kFailure);
  expect_failure(kFailure);
  EXPECT_EQ(watch.freed, (Blocks{watch.entry(), watch.priv(), watch.tlv()}));
  expect_left(1);  // the name block, of which the parameters say that there is no name
}

TEST_F(NodeOpenFailure, failed_decode_frees_the_four_blocks) {
  make_node();
  const auto& watch = watch_blocks();
  fake::fail("tlvo_dec_tlva_to_struct", kFailure);
  expect_failure(kFailure);
  EXPECT_EQ(watch.freed, (Blocks{watch.entry(), watch.priv(), watch.tlv(), watch.name()}));
  EXPECT_EQ(fake::count("rov_node_ln_field_get"), 0u);
  EXPECT_EQ(fake::report_texts(),
            (Texts{report(kFailure, kDecode, 304), report(kFailure, kOpen, 549)}));
}

TEST_F(NodeOpenFailure, failed_decode_leaves_what_the_decoder_allocated) {
  fake::node(kNode).filter({.criteria = {{1, {1}}, {2, {}}, {3, {4, 5}}}});
  fake::fail("rov_tlv_to_bufptr", kFailure, 2);
  expect_failure(kFailure);
  expect_left(4);  // three criteria and the first one's arguments
}

TEST_F(NodeOpenFailure, truncated_tlv_gives_the_codec_status) {
  fake::node(kNode).tlv({1, 2, 3});
  expect_failure(ROV_ERR_TLV_TRUNCATED);
}

// ---- Types -----------------------------------------------------------------------------------

TEST_F(NodeOpenFailure, tlv_types_outside_1_to_10_are_refused) {
  for (const std::uint32_t type :
       {0u, TLVO_UNION_MEMBERS + 1u, 31u, 32u, 33u, 34u, 0x80000001u, 0xffffffffu}) {
    SCOPED_TRACE(type);
    const std::size_t reports = fake::reports().size();
    fake::node(kNode).body(type, fake::Tlv());
    expect_failure(kNodeType);
    const Texts texts = fake::report_texts();
    EXPECT_EQ(Texts(texts.begin() + static_cast<std::ptrdiff_t>(reports), texts.end()),
              (Texts{report(kInternal, kDecode, 361), report(kNodeType, kDecode, 370),
                     report(kNodeType, kOpen, 549)}));
  }
  EXPECT_EQ(fake::count("rov_node_ln_field_get"), 0u);
}

TEST_F(NodeOpenFailure, tlv_without_a_body_has_type_0) {
  fake::node(kNode).group(1);
  expect_failure(kNodeType);
}

TEST_F(NodeOpenFailure, empty_tlv_has_type_0) {
  fake::node(kNode).tlv({});
  expect_failure(kNodeType);
  EXPECT_EQ(fake::calls_of("tlvo_dec_tlva_to_struct").at(0),
            fake::call("tlvo_dec_tlva_to_struct", fake::any, nullptr, 0, &qim_node_tbl, 1));
}

TEST_F(NodeOpenFailure, unknown_type_is_reported_whatever_the_debug_bit) {
  report_only_unconditionally();
  fake::node(kNode).body(TLVO_UNION_MEMBERS + 1, fake::Tlv());
  expect_failure(kNodeType);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInternal, kDecode, 361)}));
  EXPECT_EQ(fake::count("rov_dbg_abort_chk"), 1u);
}

TEST_F(NodeOpenFailure, another_type_than_the_required_one_is_reported_as_internal_then_as_type) {
  fake::node(kNode).filter({}).link(0x081, 9);
  expect_failure(kNodeType, QIM_NODE_POLICE);
  EXPECT_EQ(fake::report_texts(),
            (Texts{report(kInternal, kOpen, 563), report(kNodeType, kOpen, 564)}));
}

TEST_F(NodeOpenFailure, another_type_is_reported_as_internal_whatever_the_debug_bit) {
  report_only_unconditionally();
  fake::node(kNode).filter({});
  expect_failure(kNodeType, QIM_NODE_POLICE);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInternal, kOpen, 563)}));
}

TEST_F(NodeOpenFailure, another_type_is_compared_in_all_bits) {
  fake::node(kNode).filter({});
  expect_failure(kNodeType, -1);
  expect_failure(kNodeType, 0x01000001);
  expect_failure(kNodeType, QIM_NODE_DSET);
}

TEST_F(NodeOpenFailure, another_type_frees_the_four_blocks_and_leaves_what_the_decoder_allocated) {
  fake::node(kNode).action({.type = 1, .args = {1}}).dset_name(Bytes(21, 1)).priv({4, 5});
  const auto& watch = watch_blocks();
  expect_failure(kNodeType, QIM_NODE_POLICE);
  EXPECT_EQ(watch.freed, (Blocks{watch.entry(), watch.priv(), watch.tlv(), watch.name()}));
  expect_left(1);
}

// ---- Freeing ---------------------------------------------------------------------------------

TEST_F(NodeOpenFailure,
       failed_free_after_a_failure_is_reported_keeps_the_status_and_frees_the_rest) {
  constexpr std::int32_t kLines[] = {574, 579, 585, 590};
  make_node();
  Texts reports;
  unsigned nth = 0;
  for (const std::int32_t line : kLines) {
    SCOPED_TRACE(line);
    ++nth;
    fake::clear_calls();
    fake::fail("rov_node_data_get", kFailure);
    fake::fail("mem_free", kOtherFailure, nth);
    expect_failure(kFailure);
    reports.push_back(report(kFailure, kOpen, 524));
    reports.push_back(report(kOtherFailure, kOpen, line));
    EXPECT_EQ(fake::report_texts(), reports);
    EXPECT_EQ(fake::count("mem_free"), 4u);
    EXPECT_EQ(fake::live_blocks(), nth);
  }
  expect_left(4);
}

// The node is complete by then: the caller gets it together with the status.
TEST_F(NodeOpenFailure, failed_free_of_the_tlv_gives_its_status_and_the_node) {
  make_node();
  fake::fail("mem_free", kFailure, 1);
  EXPECT_EQ(open(kNode), kFailure);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kFailure, kOpen, 585)}));
  EXPECT_EQ(fake::count("mem_free"), 2u);
  EXPECT_EQ(node()->type, QIM_NODE_IFELSE);
  close();
  expect_left(1);
}

TEST_F(NodeOpenFailure, failed_free_of_the_name_gives_its_status_and_the_node) {
  make_node();
  fake::fail("mem_free", kFailure, 2);
  EXPECT_EQ(open(kNode), kFailure);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kFailure, kOpen, 590)}));
  EXPECT_EQ(node()->type, QIM_NODE_IFELSE);
  close();
  expect_left(1);
}

TEST_F(NodeOpenFailure, two_failed_frees_give_the_first_status) {
  make_node();
  unsigned frees = 0;
  fake::script("mem_free", [&](const fake::Call& made) {
    ++frees;
    if (frees == 1) return kFailure;
    if (frees == 2) return kOtherFailure;
    fake::release(made.pointer<void>(0));
    return 0u;
  });
  EXPECT_EQ(open(kNode), kFailure);
  close();
  expect_left(2);
}

TEST_F(NodeOpenFailure, reports_database_statuses_under_the_debug_bit_only) {
  make_node();
  ctx()->db_parms.dbg_flags = QIM_DBG_ALL;
  for (const char* const name : {"rov_node_parms_get", "mem_alloc_ary", "rov_node_data_get",
                                 "tlvo_dec_tlva_to_struct", "rov_node_ln_field_get"}) {
    fake::fail(name, kFailure);
    expect_failure(kFailure);
  }
  EXPECT_EQ(open(0), kInvalid);
  EXPECT_EQ(fake::report_texts(), (Texts{}));
}

}  // namespace
