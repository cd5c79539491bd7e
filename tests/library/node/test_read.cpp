// Reading a node into a client's record.

#include <cstddef>
#include <cstring>

#include "rov.h"
#include "tests/library/node/cache_test.h"
#include "tests/library/node/samples_fake.h"

namespace {

using fake::any;
using fake::call;
using fake::report;
using node_test::Bytes;
using node_test::bytes_of;
using node_test::kFailure;
using node_test::kInternal;
using node_test::kNode;
using node_test::kNodeType;
using node_test::kOtherFailure;
using node_test::kSes;
using node_test::Sample;

using Texts = std::vector<std::string>;

constexpr const char* kRead = "qim_node_read_int";
constexpr std::uint32_t kInvalid = QIM_ERR_INVALID;

class NodeRead : public node_test::CacheTest {
 protected:
  void SetUp() override {
    CacheTest::SetUp();
    std::memset(&record_, 0xee, sizeof record_);
  }

  // Reads into a record that held old data.
  std::uint32_t read(std::uint32_t id, std::int32_t type = 0) {
    std::memset(&record_, 0xee, sizeof record_);
    return qim_node_read(kSes, id, type, &record_);
  }

  void expect_cleared() const { EXPECT_EQ(bytes_of(record_), Bytes(sizeof record_)); }

  qim_node_t record_;
};

class NodeReadSamples : public NodeRead, public testing::WithParamInterface<Sample> {
 protected:
  void SetUp() override {
    NodeRead::SetUp();
    node_test::put(GetParam());
  }
};

INSTANTIATE_TEST_SUITE_P(, NodeReadSamples, testing::ValuesIn(node_test::samples()),
                         node_test::name_of<Sample>);

TEST_P(NodeReadSamples, give_every_value_and_no_trace_of_old_data) {
  EXPECT_EQ(read(GetParam().copy.id), 0u);
  EXPECT_EQ(bytes_of(record_), bytes_of(GetParam().copy));
  EXPECT_EQ(fake::live_blocks(), 0u);
}

TEST_P(NodeReadSamples, report_nothing_but_missing_links) {
  EXPECT_EQ(read(GetParam().copy.id), 0u);
  for (const std::string& text : fake::report_texts()) {
    EXPECT_EQ(text, report(ROV_ERR_NO_LINK, "qim_link_field_get", 1038));
  }
  EXPECT_LE(fake::reports().size(), fake::count("rov_node_ln_field_get"));
}

TEST_P(NodeReadSamples, give_the_same_when_their_type_is_required) {
  EXPECT_EQ(read(GetParam().copy.id, static_cast<std::int32_t>(GetParam().copy.type)), 0u);
  EXPECT_EQ(bytes_of(record_), bytes_of(GetParam().copy));
}

TEST_P(NodeReadSamples, give_the_same_from_an_allocator_that_clears_nothing) {
  fake::settings().zero_ary = false;
  EXPECT_EQ(read(GetParam().copy.id), 0u);
  EXPECT_EQ(bytes_of(record_), bytes_of(GetParam().copy));
}

TEST_P(NodeReadSamples, give_the_same_with_parameters_of_the_callers) {
  const rov_node_parms_t parms = fake::node(GetParam().copy.id).parms();
  for (const std::uint32_t id : {GetParam().copy.id, 0u}) {
    EXPECT_EQ(qim_node_read_int(kSes, id, &parms, 0, &record_), 0u);
    EXPECT_EQ(bytes_of(record_), bytes_of(GetParam().copy));
  }
  EXPECT_EQ(fake::count("rov_node_parms_get"), 0u);
}

TEST_P(NodeReadSamples, clear_the_record_when_another_type_is_required) {
  const std::int32_t other = GetParam().copy.type == QIM_NODE_FILTER ? 2 : 1;
  EXPECT_EQ(read(GetParam().copy.id, other), kNodeType);
  expect_cleared();
  expect_left(GetParam().decoder_blocks());
}

TEST_P(NodeReadSamples, are_read_alike_under_both_names) {
  const auto id = GetParam().copy.id;
  std::size_t left = 0;
  for (const std::int32_t type : {0, 1, 2, static_cast<std::int32_t>(GetParam().copy.type)}) {
    fake::clear_calls();
    const std::uint32_t status = qim_node_read(kSes, id, type, &record_);
    left += status == 0 ? 0 : 2 * GetParam().decoder_blocks();
    const auto names = fake::names();
    fake::clear_calls();
    qim_node_t other;
    std::memset(&other, 0x11, sizeof other);
    EXPECT_EQ(qim_node_read_no_nedest(kSes, id, type, &other), status);
    EXPECT_EQ(bytes_of(other), bytes_of(record_));
    EXPECT_EQ(fake::names(), names);
  }
  expect_left(left);
}

// ---- What a copy leaves out ------------------------------------------------------------------

TEST_F(NodeRead, of_a_filter_gives_counts_but_no_criteria) {
  fake::node(kNode).filter({.criteria = {{1, {1, 2, 3}}, {2, {}}}});
  ASSERT_EQ(read(kNode), 0u);
  EXPECT_EQ(record_.body.filter.crit_cnt, 2u);
  EXPECT_EQ(record_.body.filter.crit_bytes, 67u);
  EXPECT_EQ(record_.body.filter.crit_aux, 0u);
  EXPECT_EQ(record_.body.filter.crit, nullptr);
}

TEST_F(NodeRead, of_an_action_and_a_def_gives_the_length_but_no_arguments) {
  fake::node(1).action({.type = 2, .args = {1, 2, 3}});
  ASSERT_EQ(read(1), 0u);
  EXPECT_EQ(record_.body.action.args_len, 3u);
  EXPECT_EQ(record_.body.action.args, nullptr);
  fake::node(2).def({.type = 2, .args = {1, 2, 3}});
  ASSERT_EQ(read(2), 0u);
  EXPECT_EQ(record_.body.def.args_len, 3u);
  EXPECT_EQ(record_.body.def.args, nullptr);
}

TEST_F(NodeRead, of_a_group_gives_0_for_its_bare_link) {
  fake::node(kNode).group_body({}).link(0x282, 9).link(0x281, {8, 7, 6, 5});
  ASSERT_EQ(read(kNode), 0u);
  EXPECT_EQ(record_.body.group.ln_282, 0u);
  EXPECT_EQ(record_.body.group.ln_281.node, 8u);
  EXPECT_EQ(record_.links_unfixed, 0u);
  qim_link_t link;
  EXPECT_EQ(qim_link_val(kSes, &record_, 0x282, &link), 0u);
  EXPECT_EQ(link.node, 0u);
  EXPECT_EQ(qim_link_field_get(kSes, kNode, 0x282, &link), 0u);
  EXPECT_EQ(link.node, 9u);
}

TEST_F(NodeRead, of_a_pinst_leaves_the_bytes_behind_the_direction_zero) {
  fake::node(kNode).pinst().dset_name(Bytes(21, 0xff));
  ASSERT_EQ(read(kNode), 0u);
  const Bytes body = bytes_of(record_.body);
  EXPECT_EQ(Bytes(body.begin() + 16, body.begin() + 21), (Bytes{0xff, 0, 0, 0, 0xff}));
}

TEST_F(NodeRead, of_a_data_set_without_a_name_gives_a_header_only) {
  fake::node(kNode).data_set().link(0x2c1, 9).priv({1, 2});
  ASSERT_EQ(read(kNode), 0u);
  EXPECT_EQ(record_.type, 33u);
  EXPECT_EQ(record_.priv_len, 2u);
  EXPECT_EQ(bytes_of(record_.body), Bytes(sizeof record_.body));
}

TEST_F(NodeRead, gives_private_data_by_length_and_pointer_value_but_no_buffer) {
  fake::node(kNode).ifelse().priv({1, 2, 3}).priv_ptr(0x1234);
  ASSERT_EQ(read(kNode), 0u);
  EXPECT_EQ(record_.priv_len, 3u);
  EXPECT_EQ(record_.priv_ptr, 0x1234u);
  EXPECT_EQ(record_.priv_buf, nullptr);
}

// ---- Steps -----------------------------------------------------------------------------------

TEST_F(NodeRead, clears_the_record_first_and_frees_the_node_last) {
  fake::node(kNode).filter({.criteria = {{1, {1}}}}).priv({2});
  ASSERT_EQ(read(kNode), 0u);
  EXPECT_EQ(fake::names(),
            (std::vector<std::string>{
                "memset_s", "rov_node_parms_get", "mem_alloc_ary", "rov_node_data_get",
                "tlvo_dec_tlva_to_struct", "rov_tlva_to_union", "rov_tlv_to_listel", "mem_zalloc",
                "rov_tlv_to_bufptr", "rov_node_ln_field_get", "mem_free",  // the TLV data
                "mem_free", "mem_free", "mem_free", "mem_free"}));         // arguments to entry
  EXPECT_EQ(fake::calls()[0], call("memset_s", &record_, sizeof record_, 0, sizeof record_));
}

TEST_F(NodeRead, does_not_look_at_the_result_of_clearing) {
  fake::node(kNode).filter({}).link(0x081, 9);
  fake::script("memset_s", [](const fake::Call& made) {
    std::memset(made.pointer<void>(0), 0, static_cast<std::size_t>(made.args[1].value));
    return 1u;
  });
  EXPECT_EQ(read(kNode), 0u);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(NodeRead, takes_identifier_zero_from_given_parameters) {
  fake::node(kNode).ifelse();
  const rov_node_parms_t parms = fake::node(kNode).parms();
  ASSERT_EQ(qim_node_read_int(kSes, 0, &parms, 0, &record_), 0u);
  EXPECT_EQ(record_.id, kNode);
}

TEST_F(NodeRead, hands_the_session_on) {
  fake::node(kNode).ifelse();
  ASSERT_EQ(qim_node_read(0x80000001, kNode, 0, &record_), 0u);
  EXPECT_EQ(fake::calls_of("rov_node_parms_get").at(0),
            call("rov_node_parms_get", 0x80000001, fake::id(kNode), any));
}

// ---- Failures --------------------------------------------------------------------------------

TEST_F(NodeRead, of_identifier_0_is_invalid) {
  EXPECT_EQ(read(0), kInvalid);
  expect_cleared();
  EXPECT_EQ(fake::names(), (std::vector<std::string>{"memset_s"}));
  EXPECT_EQ(fake::report_texts(),
            (Texts{report(kInvalid, "qim_int_node_open", 495), report(kInvalid, kRead, 1301)}));
}

TEST_F(NodeRead, of_identifier_0_in_given_parameters_is_invalid) {
  rov_node_parms_t parms{};
  EXPECT_EQ(qim_node_read_int(kSes, 0, &parms, 0, &record_), kInvalid);
  expect_cleared();
}

TEST_F(NodeRead, of_a_missing_node_gives_the_database_status) {
  EXPECT_EQ(read(kNode), static_cast<std::uint32_t>(ROV_ERR_NO_ITEM));
  expect_cleared();
  EXPECT_EQ(fake::report_texts(), (Texts{report(ROV_ERR_NO_ITEM, "qim_int_node_open", 503),
                                         report(ROV_ERR_NO_ITEM, kRead, 1301)}));
}

TEST_F(NodeRead, of_another_type_than_required_fails) {
  fake::node(kNode).filter({}).link(0x081, 9);
  EXPECT_EQ(read(kNode, QIM_NODE_POLICE), kNodeType);
  expect_cleared();
  EXPECT_EQ(fake::report_texts(),
            (Texts{report(kInternal, "qim_int_node_open", 563),
                   report(kNodeType, "qim_int_node_open", 564), report(kNodeType, kRead, 1301)}));
}

// The node that open gives nevertheless is nobody's then.
TEST_F(NodeRead, that_cannot_free_the_tlv_fails_and_leaves_the_open_node) {
  fake::node(kNode).filter({.criteria = {{1, {1}}}}).priv({2});
  fake::fail("mem_free", kFailure);
  EXPECT_EQ(read(kNode), kFailure);
  expect_cleared();
  EXPECT_EQ(fake::count("mem_free"), 1u);
  expect_left(5);
}

TEST_F(NodeRead, that_cannot_close_gives_the_whole_copy_and_the_status) {
  fake::node(kNode).haction({.type = 7}).link(0x141, 9).link(0x182, 9);
  fake::fail("mem_free", kFailure, 2);
  EXPECT_EQ(read(kNode), kFailure);
  EXPECT_EQ(record_.id, kNode);
  EXPECT_EQ(record_.body.haction.type, 7u);
  EXPECT_EQ(fake::report_texts(),
            (Texts{report(kFailure, "qim_lib_node_destroy", 688), report(kFailure, kRead, 1315)}));
  expect_left(1);
}

// Only a node that the copier does not know fails to copy, and only the cache can hold one.
TEST_F(NodeRead, of_a_type_that_the_copier_does_not_know_gives_the_header) {
  node_cache_max = 1;
  auto* const odd = entry(kNode);
  odd->node.type = TLVO_UNION_MEMBERS + 1;
  odd->node.flags = 5;
  std::memset(&odd->node.body, 0xff, sizeof odd->node.body);
  add(odd);
  EXPECT_EQ(read(kNode), kNodeType);
  qim_node_t header{};
  header.id = kNode;
  header.type = TLVO_UNION_MEMBERS + 1;
  header.flags = 5;
  EXPECT_EQ(bytes_of(record_), bytes_of(header));
  EXPECT_EQ(fake::report_texts(),
            (Texts{report(kInternal, "qim_node_cp", 1268), report(kNodeType, "qim_node_cp", 1275),
                   report(kNodeType, kRead, 1307), report(kNodeType, kRead, 1315)}));
}

// An open node's type cannot be unknown; here it becomes so behind the library's back.
class NodeReadSpoiled : public NodeRead {
 protected:
  void SetUp() override {
    NodeRead::SetUp();
    fake::node(kNode).ifelse().priv({1});
    fake::script("tlvo_dec_tlva_to_struct", [this](const fake::Call& made) {
      open_ = static_cast<qim_node_t*>(*made.pointer<void*>(0));
      open_->type = QIM_NODE_IFELSE;
      return 0u;
    });
    fake::script("mem_free", [this](const fake::Call& made) {
      if (++frees_ == 1) open_->type = TLVO_UNION_MEMBERS + 1;  // open's last step
      if (frees_ == fail_at_) return kOtherFailure;
      fake::release(made.pointer<void>(0));
      return 0u;
    });
  }

  qim_node_t* open_ = nullptr;
  unsigned frees_ = 0;
  unsigned fail_at_ = 0;
};

TEST_F(NodeReadSpoiled, that_cannot_copy_closes_the_node_all_the_same) {
  EXPECT_EQ(read(kNode), kNodeType);
  EXPECT_EQ(frees_, 3u);
  EXPECT_EQ(fake::live_blocks(), 0u);
}

TEST_F(NodeReadSpoiled, that_can_neither_copy_nor_close_gives_the_first_status) {
  fail_at_ = 3;
  EXPECT_EQ(read(kNode), kNodeType);
  EXPECT_EQ(frees_, 3u);
  expect_left(1);
}

TEST_F(NodeRead, reports_under_the_debug_bit_only) {
  ctx()->db_parms.dbg_flags = QIM_DBG_ALL;
  fake::node(kNode).ifelse();
  fake::fail("mem_free", kFailure, 2);
  EXPECT_EQ(read(kNode), kFailure);
  EXPECT_EQ(read(0), kInvalid);
  EXPECT_EQ(fake::reports().size(), 0u);
  expect_left(1);
}

}  // namespace
