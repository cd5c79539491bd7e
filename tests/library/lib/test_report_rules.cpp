// Which failures are reported at all, which whatever the flags, and which more than once.

#include <functional>

#include "node/cache.h"
#include "rov.h"
#include "tests/support/fake/fixture.h"

namespace {

using fake::kSes;
using fake::report;
using fake::System;

using Texts = std::vector<std::string>;

constexpr std::uint32_t kFailure = 0x41170047;
constexpr std::uint32_t kInternal = QIM_ERR_INTERNAL;
constexpr qim_node_id_t kNode = 0x00300007;

class Reports : public fake::Test {
 protected:
  void SetUp() override {
    fake::Test::SetUp();
    fake::report_everything(ctx());
  }

  // A filter whose criterion claims more bytes than there are.
  static void put_overlong_filter() {
    fake::node(kNode).filter({});
    fake::script("tlvo_dec_tlva_to_struct", [](const fake::Call& made) {
      qim_node_t& node = **made.pointer<qim_node_t*>(0);
      auto* const crit =
          static_cast<qim_criterion_t*>(fake::allocate(sizeof(qim_criterion_t), pool()));
      crit->args_len = 0xffffffe0;
      crit->args = static_cast<std::uint8_t*>(fake::allocate(8, pool()));
      node.type = QIM_NODE_FILTER;
      node.body.filter.crit = crit;
      return 0u;
    });
  }
};

// ---- Never ------------------------------------------------------------------------------------

TEST_F(Reports, are_never_made_of_starts_and_ends_that_are_refused_so) {
  std::uint32_t db = 0;
  EXPECT_EQ(qim_lib_close(0xdb, 0), QIM_ERR_NOT_INIT);
  fake::settings().parms = ctx()->db_parms;
  fake::settings().parms.vdc = 64;
  EXPECT_EQ(qim_lib_init(0, 0, 1, 0, nullptr, 0, 0, 0, &db), QIM_ERR_VDC_RANGE);
  EXPECT_EQ(fake::reports().size(), 0u);
}

CHILD_TEST(ReportsOfThreads, are_never_made) {
  fake::report_everything(qim_lib_get());
  fake::fail_system(System::pthread_once);
  EXPECT_EQ(qim_lib_tls_init(0), QIM_ERR_THREAD);
  fake::fail_system(System::malloc);
  EXPECT_EQ(qim_lib_tls_init(0), QIM_ERR_NO_MEM);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(Reports, are_never_made_of_conversions_and_of_slots_that_no_record_has) {
  rov_node_id_t id;
  EXPECT_EQ(qim_to_rov_node_id(0, &id), QIM_ERR_INVALID);
  qim_policy_dest_t dest = {};
  std::uint16_t vdc = 0;
  std::uint16_t vlan = 0;
  std::uint32_t vrf = 0;
  std::uint32_t ifix = 0;
  EXPECT_EQ(qim_if_policy_dest_get2(&dest, &vdc, &vrf, &vlan, &ifix), QIM_ERR_DEST_FMT);
  EXPECT_EQ(qim_upstream_ifelse_get(0, 0, 0), QIM_ERR_NOT_SUPPORTED);
  qim_node_t node = {};
  EXPECT_EQ(qim_link_ptr(&node, 0x999, nullptr, nullptr), QIM_ERR_INVALID);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(Reports, are_never_made_of_what_the_database_returns_last) {
  for (const char* function :
       {"rov_db_close", "rov_lib_defaults", "rov_ses_open_ro", "rov_node_priv_set",
        "rov_node_priv_ptr_get", "rov_node_data_get", "tlvo_dec_tlva_to_struct"}) {
    fake::fail_every(function, kFailure);
  }
  void* ptr = nullptr;
  std::uint32_t ses = 0;
  qim_group_t group = {};
  qim_group_t* at = &group;
  char byte = 0;
  ctx()->use_count = 2;
  EXPECT_EQ(qim_lib_close(0xdb, 0), kFailure);
  ctx()->rov_lib = 1;
  EXPECT_EQ(qim_lib_defaults(1, 0), kFailure);
  EXPECT_EQ(qim_ses_open_ro(0xdb, &ses), kFailure);
  EXPECT_EQ(qim_node_priv_set(kSes, kNode, &byte, 1), kFailure);
  EXPECT_EQ(qim_node_priv_ptr_get(kSes, kNode, &ptr), kFailure);
  EXPECT_EQ(qim_node_priv_get(kSes, kNode, 1, &byte), kFailure);
  EXPECT_EQ(qim_group_to_struct(&at, &byte, 1, 1), kFailure);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(Reports, are_never_made_of_a_policy_instance_without_referrers) {
  qim_node_t pinst = {};
  pinst.id = kNode;
  const qim_policy_dest_t dest = {};
  EXPECT_EQ(qim_pinst_edest_lookup(kSes, &pinst, &dest, nullptr), QIM_ERR_NO_EDEST);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(Reports, are_made_of_a_short_buffer_that_is_answered_with_success) {
  fake::node(kNode).action({.type = 1, .args = {1, 2, 3}}).link(0x141, 9);
  std::uint8_t buffer[2] = {9, 9};
  EXPECT_EQ(qim_action_arg_get(kSes, kNode, sizeof buffer, buffer), 0u);
  EXPECT_EQ(buffer[0], 9);
  EXPECT_EQ(fake::report_texts(), (Texts{report(QIM_ERR_BUF_SMALL, "qim_node_arg_get", 284)}));
}

TEST_F(Reports, are_made_of_a_link_that_a_node_lacks_although_it_opens) {
  fake::node(kNode).filter({});
  qim_node_t node;
  EXPECT_EQ(qim_node_read(kSes, kNode, 0, &node), 0u);
  EXPECT_EQ(fake::report_texts(), (Texts{report(ROV_ERR_NO_LINK, "qim_link_field_get", 1038)}));
}

// ---- More than once ---------------------------------------------------------------------------

TEST_F(Reports, are_made_by_every_function_that_hands_the_failure_on) {
  qim_node_t node;
  EXPECT_EQ(qim_node_read(kSes, 0, 0, &node), QIM_ERR_INVALID);
  EXPECT_EQ(fake::report_texts(), (Texts{report(QIM_ERR_INVALID, "qim_int_node_open", 495),
                                         report(QIM_ERR_INVALID, "qim_node_read_int", 1301)}));
}

TEST_F(Reports, are_made_twice_by_one_function_that_leaves_through_a_common_exit) {
  fake::node(kNode).pinst().referrers({8});
  fake::node(8).filter({}).link(0x081, 9);
  qim_node_t pinst = {};
  pinst.id = kNode;
  pinst.refs = 1;
  const qim_policy_dest_t dest = {};
  EXPECT_EQ(qim_pinst_edest_lookup(kSes, &pinst, &dest, nullptr), QIM_ERR_NO_EDEST);
  EXPECT_EQ(fake::report_texts(),
            (Texts{report(QIM_ERR_NO_EDEST, "qim_pinst_edest_lookup", 1767),
                   report(QIM_ERR_NO_EDEST, "qim_pinst_edest_lookup", 1782)}));
}

TEST_F(Reports, carry_the_internal_error_first_where_an_unexpected_type_is_returned) {
  fake::node(kNode).filter({}).link(0x081, 9);
  qim_node_t* node = nullptr;
  EXPECT_EQ(qim_int_node_open(kSes, kNode, nullptr, QIM_NODE_ACTION, &node, ctx()),
            QIM_ERR_NODE_TYPE);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInternal, "qim_int_node_open", 563),
                                         report(QIM_ERR_NODE_TYPE, "qim_int_node_open", 564)}));
}

// ---- Internal errors --------------------------------------------------------------------------

class InternalErrors : public Reports {
 protected:
  // Nobody asked for reports; there is a logger.
  void SetUp() override {
    Reports::SetUp();
    ctx()->db_parms.dbg_flags = 0;
  }
};

TEST_F(InternalErrors, are_reported_whatever_the_flags_at_these_places) {
  std::uint32_t db = 0;
  fake::fail("rov_reg_extract_pinst", kFailure);
  fake::settings().parms = ctx()->db_parms;
  EXPECT_EQ(qim_lib_init(0, 0, 1, 0, nullptr, 0, 0, 0, &db), 0u);

  qim_node_t* node = nullptr;
  fake::node(kNode).filter({}).link(0x081, {.node = 9, .node2 = 8});
  EXPECT_EQ(qim_int_node_open(kSes, kNode, nullptr, 0, &node, ctx()), kInternal);

  fake::node(8).ifelse();
  EXPECT_EQ(qim_int_node_open(kSes, 8, nullptr, QIM_NODE_DEF, &node, ctx()), QIM_ERR_NODE_TYPE);

  fake::node(9).body(11, {});
  EXPECT_EQ(qim_int_node_open(kSes, 9, nullptr, 0, &node, ctx()), QIM_ERR_NODE_TYPE);

  qim_node_t strange = {};
  strange.type = 11;
  qim_node_t copy;
  EXPECT_EQ(qim_node_cp(kSes, &strange, &copy), QIM_ERR_NODE_TYPE);

  qim_node_cache_entry_t entry = {};
  entry.node.type = QIM_NODE_ACTION;
  entry.node.body.action.args_len = 1;
  EXPECT_EQ(qim_lib_node_destroy(&entry, ctx()), kInternal);

  EXPECT_EQ(
      fake::report_texts(),
      (Texts{report(kInternal, "qim_lib_init", 239), report(kInternal, "qim_link_get_fixed", 189),
             report(kInternal, "qim_int_node_open", 563),
             report(kInternal, "qim_node_from_tlva", 361), report(kInternal, "qim_node_cp", 1268),
             report(kInternal, "qim_lib_node_destroy", 625)}));
}

TEST_F(InternalErrors, of_criteria_that_do_not_fit_are_reported_on_request_only) {
  alignas(8) std::uint8_t buffer[72] = {};
  put_overlong_filter();
  EXPECT_EQ(qim_filter_criteria_get(kSes, kNode, sizeof buffer, buffer), kInternal);
  EXPECT_EQ(fake::reports().size(), 0u);
  ctx()->db_parms.dbg_flags = QIM_DBG_REPORT;
  EXPECT_EQ(qim_filter_criteria_get(kSes, kNode, sizeof buffer, buffer), kInternal);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInternal, "qim_filter_criteria_get", 240)}));
}

TEST_F(InternalErrors, of_the_cache_are_reported_on_request_only) {
  const auto empty_although_counted = [] {
    node_cache_count = 1;
    EXPECT_EQ(qim_node_cache_destroy(ctx()), 0u);
    node_cache_count = 0;
  };
  empty_although_counted();
  EXPECT_EQ(fake::reports().size(), 0u);
  ctx()->db_parms.dbg_flags = QIM_DBG_REPORT;
  empty_although_counted();
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInternal, "qim_node_cache_destroy", 964)}));
}

}  // namespace
