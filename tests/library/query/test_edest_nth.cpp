// The enforcement destinations of a policy instance one by one.

#include "rov.h"
#include "tests/library/query/edest_test.h"

namespace {

using fake::any;
using fake::call;
using namespace query_test;

constexpr const char* kGetInt = "qim_pinst_edest_get_int";
constexpr const char* kGet = "qim_pinst_edest_get";
constexpr std::uint32_t kStray = 0x5117;

// A Filter, an Edest, a Group and an Edest refer to the policy instance.
class EdestNth : public EdestTest {
 protected:
  void SetUp() override {
    EdestTest::SetUp();
    put_all();
    fake::clear_calls();
  }

  static void put_all() {
    fake::node(1).filter({}).link(0x081, 9);
    put_hidden_edest(2, at_interface(2));
    fake::node(3).group_body({}).link(0x281, 9).link(0x282, 9);
    put_hidden_edest(4, at_service(4));
    put_pinst_node({1, 2, 3, 4});
  }

  std::uint32_t get_int(std::uint32_t n, std::uint32_t pinst = kPinst) {
    count_ = kStray;
    return qim_pinst_edest_get_int(kSes, pinst, n, &out_, &count_);
  }
  std::uint32_t get(std::uint32_t n, std::uint32_t pinst = kPinst) {
    return qim_pinst_edest_get(kSes, pinst, n, &out_);
  }

  // The indices that referrers were asked for at.
  static Ids indices() {
    Ids found;
    for (const fake::Call& made : fake::calls_of("rov_node_ref_get")) found.push_back(made.u32(5));
    return found;
  }

  std::uint32_t count_ = kStray;
};

TEST_F(EdestNth, first_is_found_behind_a_filter_with_count_0) {
  EXPECT_EQ(get_int(0), 0u);
  EXPECT_EQ(count_, 0u);
  EXPECT_EQ(indices(), (Ids{0, 1})) << "the walk stops there";
  EXPECT_EQ(opened(), (Ids{1, 2}));
  EXPECT_EQ(fake::reports().size(), 0u);
  expect_found(2);
}

TEST_F(EdestNth, second_has_the_first_counted_and_no_other_node) {
  EXPECT_EQ(get_int(1), 0u);
  EXPECT_EQ(count_, 1u);
  EXPECT_EQ(indices(), (Ids{0, 1, 2, 3}));
  expect_found(4);
}

TEST_F(EdestNth, beyond_the_last_gives_0x41160005_and_the_number_of_destinations) {
  for (const std::uint32_t n : {2u, 5u, 0xffffffffu}) {
    fake::clear_calls();
    EXPECT_EQ(get_int(n), kInvalid);
    EXPECT_EQ(count_, 2u);
    EXPECT_EQ(indices(), (Ids{0, 1, 2, 3, 4}));
  }
  expect_untouched();
  EXPECT_EQ(reports_of(kGetInt), (Places{{kInvalid, 1817}, {kInvalid, 1817}, {kInvalid, 1817}}));
}

TEST_F(EdestNth, policy_instance_without_referrers_has_no_first) {
  put_pinst_node({});
  EXPECT_EQ(get_int(0), kInvalid);
  EXPECT_EQ(count_, 0u);
}

TEST_F(EdestNth, walks_by_index_through_the_session) {
  EXPECT_EQ(qim_pinst_edest_get_int(0xf0000001, kPinst, 0, &out_, &count_), 0u);
  EXPECT_EQ(fake::calls()[0],
            call("rov_node_ref_get", 0xf0000001, fake::id(kPinst), 0, any, any, any));
  EXPECT_EQ(fake::calls()[1], call("rov_node_parms_get", 0xf0000001, fake::id(1), any));
}

TEST_F(EdestNth, does_not_open_the_policy_instance) {
  EXPECT_EQ(get_int(1), 0u);
  EXPECT_EQ(opened(), (Ids{1, 2, 3, 4}));
}

TEST_F(EdestNth, closes_each_node_before_asking_for_the_next) {
  fake::script("rov_node_ref_get", [](const fake::Call& made) {
    EXPECT_EQ(fake::live_blocks(), 0u);
    *made.pointer<rov_node_id_t>(8) = fake::id(made.u32(5) + 1);
    return 0u;
  });
  EXPECT_EQ(get_int(1), 0u);
}

TEST_F(EdestNth, gives_the_status_and_count_alone_without_an_output) {
  count_ = kStray;
  EXPECT_EQ(qim_pinst_edest_get_int(kSes, kPinst, 1, nullptr, &count_), 0u);
  EXPECT_EQ(count_, 1u);
  EXPECT_EQ(qim_pinst_edest_get(kSes, kPinst, 1, nullptr), 0u);
}

TEST_F(EdestNth, clears_the_count_before_anything_fails) {
  EXPECT_EQ(get_int(0, 0), kInvalid);
  EXPECT_EQ(count_, 0u);
  fake::fail("rov_node_ref_get", kFailure);
  EXPECT_EQ(get_int(0), kFailure);
  EXPECT_EQ(count_, 0u);
  expect_untouched();
}

TEST_F(EdestNth, failing_referrer_query_is_reported_at_line_1814) {
  EXPECT_EQ(get_int(0, 0), kInvalid);
  fake::fail("rov_node_ref_get", kFailure, 4);
  EXPECT_EQ(get_int(1), kFailure);
  EXPECT_EQ(count_, 1u) << "the destinations passed over so far";
  EXPECT_EQ(reports_of("qim_ref_get").size(), 2u);
  EXPECT_EQ(reports_of(kGetInt), (Places{{kInvalid, 1814}, {kFailure, 1814}}));
}

TEST_F(EdestNth, missing_referrer_is_the_end_of_the_walk) {
  fake::fail("rov_node_ref_get", kNoItem, 3);
  EXPECT_EQ(get_int(1), kInvalid);
  EXPECT_EQ(count_, 1u);
  EXPECT_EQ(reports_of(kGetInt), (Places{{kInvalid, 1817}}));
}

TEST_F(EdestNth, failing_open_is_reported_at_line_1817_whatever_the_status) {
  for (const std::uint32_t status : {kFailure, kNoItem, kNoEdest}) {
    fake::fail("rov_node_parms_get", status, 3);
    EXPECT_EQ(get_int(1), status);
    EXPECT_EQ(count_, 1u);
  }
  expect_untouched();
  EXPECT_EQ(reports_of(kGetInt), (Places{{kFailure, 1817}, {kNoItem, 1817}, {kNoEdest, 1817}}));
}

TEST_F(EdestNth, failing_close_is_reported_at_line_1830_and_not_repeated) {
  fake::fail("mem_free", kFailure, 2);  // the filter's TLV is freed first
  EXPECT_EQ(get_int(0), kFailure);
  EXPECT_TRUE(hit_node(fake::hit()));
  EXPECT_EQ(fake::count("mem_free"), 2u);
  EXPECT_EQ(reports_of(kGetInt), (Places{{kFailure, 1830}}));
  expect_untouched();
  expect_left(1);
}

TEST_F(EdestNth, failing_close_of_the_one_found_fails_with_the_output_written) {
  fake::fail("mem_free", kFailure, 5);  // the filter's two and the destination's TLV and name
  EXPECT_EQ(get_int(0), kFailure);
  EXPECT_EQ(fake::count("mem_free"), 5u);
  EXPECT_EQ(reports_of(kGetInt), (Places{{kFailure, 1830}}));
  expect_left(1);
  expect_found(2);
}

TEST_F(EdestNth, edest_get_does_the_same_with_a_count_of_its_own) {
  EXPECT_EQ(get(1), 0u);
  expect_found(4);
  EXPECT_EQ(get(0), 0u);
  expect_found(2);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(EdestNth, edest_get_reports_every_failure_again_at_line_681) {
  EXPECT_EQ(get(2), kInvalid);
  fake::fail("rov_node_ref_get", kFailure);
  EXPECT_EQ(get(0), kFailure);
  expect_untouched();
  EXPECT_EQ(reports_of(kGetInt), (Places{{kInvalid, 1817}, {kFailure, 1814}}));
  EXPECT_EQ(reports_of(kGet), (Places{{kInvalid, 681}, {kFailure, 681}}));
  EXPECT_EQ(fake::report_texts().back(), fake::report(kFailure, kGet, 681));
}

TEST_F(EdestNth, reports_under_the_debug_bit_only) {
  report_nothing();
  EXPECT_EQ(get(2), kInvalid);
  fake::fail("rov_node_ref_get", kFailure);
  EXPECT_EQ(get(0), kFailure);
  fake::fail("mem_free", kFailure, 2);
  EXPECT_EQ(get(0), kFailure);
  EXPECT_EQ(fake::reports().size(), 0u);
  expect_left(1);
}

}  // namespace
