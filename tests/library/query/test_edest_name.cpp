// The enforcement destination at a place of a policy instance that is given by its identifier.

#include "rov.h"
#include "tests/library/query/edest_test.h"

namespace {

using namespace query_test;

constexpr const char* kNameGet = "qim_pinst_edest_name_get";

class EdestNameGet : public EdestTest {
 protected:
  void SetUp() override {
    EdestTest::SetUp();
    put_edest(kEdest, dest_, kPinst);
  }

  std::uint32_t get(std::uint32_t node = kPinst) {
    return qim_pinst_edest_name_get(kSes, node, &dest_, &out_);
  }

  qim_policy_dest_t dest_ = at_interface(0x11223344);
};

TEST_F(EdestNameGet, opens_the_policy_instance_looks_up_and_closes) {
  EXPECT_EQ(get(), 0u);
  EXPECT_EQ(opened(), (Ids{kPinst, kEdest}));
  EXPECT_LT(position("rov_node_data_get"), position("rov_ses_orig_handle"));
  EXPECT_EQ(fake::live_blocks(), 0u);
  EXPECT_EQ(fake::reports().size(), 0u);
  expect_found(kEdest);
}

TEST_F(EdestNameGet, closes_the_policy_instance_last) {
  void* pinst = nullptr;
  fake::script("rov_ses_orig_handle", [&](const fake::Call& made) {
    EXPECT_EQ(fake::live_blocks(), 1u) << "the open policy instance";
    *made.pointer<std::uint32_t>(1) = 1;
    return 0u;
  });
  fake::script("mem_free", [&](const fake::Call& made) {
    pinst = made.pointer<void>(0);
    if (fake::live_blocks() == 1) {
      const auto* const entry = static_cast<const qim_node_cache_entry_t*>(pinst);
      EXPECT_EQ(entry->node.id, kPinst);
    }
    fake::release(pinst);
    return 0u;
  });
  EXPECT_EQ(get(), 0u);
  EXPECT_EQ(fake::live_blocks(), 0u);
}

TEST_F(EdestNameGet, gives_the_status_alone_without_an_output) {
  EXPECT_EQ(qim_pinst_edest_name_get(kSes, kPinst, &dest_, nullptr), 0u);
}

TEST_F(EdestNameGet, hands_on_session_and_identifier) {
  EXPECT_EQ(qim_pinst_edest_name_get(0xf0000001, kPinst, &dest_, &out_), 0u);
  EXPECT_EQ(fake::calls()[0],
            fake::call("rov_node_parms_get", 0xf0000001, fake::id(kPinst), fake::any));
  EXPECT_EQ(fake::calls_of("rov_ses_orig_handle").at(0).u32(0), 0xf0000001u);
}

TEST_F(EdestNameGet, node_that_is_no_policy_instance_fails_at_line_720_and_looks_nothing_up) {
  fake::node(5).filter({}).link(0x081, 9);
  for (const std::uint32_t id : {5u, kEdest}) {
    fake::clear_calls();
    EXPECT_EQ(get(id), kNodeType);
    EXPECT_EQ(fake::count("rov_ses_orig_handle"), 0u);
  }
  expect_untouched();
  EXPECT_EQ(reports_of(kNameGet), (Places{{kNodeType, 720}, {kNodeType, 720}}));
}

TEST_F(EdestNameGet, failing_open_is_reported_at_line_720_whatever_the_status) {
  EXPECT_EQ(get(0), kInvalid);
  EXPECT_EQ(get(0x999), kNoItem);
  fake::fail("rov_node_data_get", kFailure);
  EXPECT_EQ(get(), kFailure);
  expect_untouched();
  EXPECT_EQ(fake::count("rov_ses_orig_handle"), 0u);
  EXPECT_EQ(reports_of(kNameGet), (Places{{kInvalid, 720}, {kNoItem, 720}, {kFailure, 720}}));
}

TEST_F(EdestNameGet, failing_lookup_is_reported_at_line_727_and_the_policy_instance_closed) {
  fake::fail("rov_ses_orig_handle", kFailure);
  EXPECT_EQ(get(), kFailure);
  EXPECT_EQ(fake::live_blocks(), 0u);
  EXPECT_EQ(reports_of(kLookup), (Places{{kFailure, 1688}}));
  EXPECT_EQ(reports_of(kNameGet), (Places{{kFailure, 727}}));
}

TEST_F(EdestNameGet, no_destination_is_reported_at_line_727) {
  dest_ = at_interface(1);
  EXPECT_EQ(get(), kNoEdest);
  expect_untouched();
  EXPECT_EQ(reports_of(kLookup), Places{});
  EXPECT_EQ(reports_of(kNameGet), (Places{{kNoEdest, 727}}));
}

TEST_F(EdestNameGet, failing_close_after_a_good_lookup_is_the_result) {
  // Freed before: the policy instance's TLV and name, the destination's, and the destination.
  fake::fail("mem_free", kFailure, 6);
  EXPECT_EQ(get(), kFailure);
  EXPECT_TRUE(hit_node(fake::hit()));
  EXPECT_EQ(fake::count("mem_free"), 6u);
  EXPECT_EQ(reports_of(kLookup), Places{});
  EXPECT_EQ(reports_of(kNameGet), (Places{{kFailure, 727}}));
  expect_left(1);
  expect_found(kEdest);
}

TEST_F(EdestNameGet, failing_lookup_comes_before_a_failing_close) {
  fake::fail("rov_ses_orig_handle", kFailure);
  fake::fail("mem_free", kOtherFailure, 3);
  EXPECT_EQ(get(), kFailure);
  EXPECT_EQ(fake::injected(), "mem_free");
  EXPECT_EQ(reports_of(kNameGet), (Places{{kFailure, 727}}));
  expect_left(1);
}

TEST_F(EdestNameGet, reports_under_the_debug_bit_only) {
  report_nothing();
  EXPECT_EQ(get(0), kInvalid);
  fake::fail("rov_ses_orig_handle", kFailure);
  EXPECT_EQ(get(), kFailure);
  EXPECT_EQ(fake::reports().size(), 0u);
}

}  // namespace
