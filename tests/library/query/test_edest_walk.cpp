// The enforcement destination of a policy instance at a place: the walk over its referrers.

#include "rov.h"
#include "tests/library/query/edest_test.h"

namespace {

using fake::any;
using fake::call;
using fake::System;
using namespace query_test;

// In every test no destination bears the name that the direct attempt asks for.
class EdestWalk : public EdestTest {
 protected:
  void expect_none(const Places& reports) {
    EXPECT_EQ(lookup(dest_), kNoEdest);
    expect_untouched();
    EXPECT_EQ(reports_of(kLookup), reports);
  }

  qim_policy_dest_t dest_ = at_interface(0x11223344);
};

TEST_F(EdestWalk, finds_the_destination_among_other_referrers) {
  fake::node(1).filter({}).link(0x081, 9);
  put_hidden_edest(2, at_interface(8));
  put_hidden_edest(3, dest_);
  put_pinst({1, 2, 3});
  EXPECT_EQ(lookup(dest_), 0u);
  EXPECT_EQ(opened(), (Ids{1, 2, 3}));
  EXPECT_EQ(fake::reports().size(), 0u);
  expect_found(3);
}

TEST_F(EdestWalk, asks_once_for_the_referrers_that_the_policy_instance_has) {
  put_hidden_edest(2, dest_);
  put_pinst({2});
  EXPECT_EQ(lookup(dest_), 0u);
  EXPECT_EQ(fake::calls_of("rov_node_ref_get_all"),
            (fake::Calls{call("rov_node_ref_get_all", kSes, fake::id(kPinst), any, 1)}));
}

TEST_F(EdestWalk, opens_through_the_session_without_parameters) {
  put_hidden_edest(2, dest_);
  put_pinst({2});
  EXPECT_EQ(lookup(dest_), 0u);
  EXPECT_EQ(fake::calls_of("rov_node_parms_get"),
            (fake::Calls{call("rov_node_parms_get", kSes, fake::id(2), any)}));
}

TEST_F(EdestWalk, takes_the_first_match_in_the_databases_order_and_stops) {
  for (const std::uint32_t id : {1u, 2u, 3u}) put_hidden_edest(id, dest_);
  put_pinst({3, 1, 2});
  EXPECT_EQ(lookup(dest_), 0u);
  EXPECT_EQ(opened(), Ids{3});
  expect_found(3);
}

TEST_F(EdestWalk, writes_the_output_through_the_copy_only) {
  put_hidden_edest(2, dest_);
  put_pinst({2});
  EXPECT_EQ(lookup(dest_), 0u);
  EXPECT_EQ(out_.body.pinst.fields.reserved[0], 0xee) << "it is not cleared first";
  EXPECT_EQ(bytes_of(out_.priv_buf), Bytes(sizeof out_.priv_buf, 0xee));
}

TEST_F(EdestWalk, gives_the_status_alone_without_an_output) {
  put_hidden_edest(2, dest_);
  put_pinst({2});
  EXPECT_EQ(qim_pinst_edest_lookup(kSes, &pinst_, &dest_, nullptr), 0u);
}

TEST_F(EdestWalk, does_not_look_at_the_link_back) {
  put_hidden_edest(2, dest_, kOtherPinst);
  put_pinst({2});
  EXPECT_EQ(lookup(dest_), 0u);
  expect_found(2);
}

TEST_F(EdestWalk, passes_over_nodes_of_other_types_at_the_same_place) {
  fake::node(1).pinst().dset_name(name_of(dest_, 1)).link(kBackLink, kPinst);
  fake::node(2).data_set().dset_name(name_of(dest_, 2)).link(kBackLink, kPinst);
  fake::node(3).action({});
  fake::node(4).data_set();
  put_pinst({1, 2, 3, 4});
  expect_none({{kNoEdest, 1767}, {kNoEdest, 1782}});
  EXPECT_EQ(opened(), (Ids{1, 2, 3, 4}));
}

TEST_F(EdestWalk, compares_every_field_of_the_destination) {
  const qim_policy_dest_t others[] = {at_interface(0x11223345), at_interface(0x11223344, 0x0103),
                                      at_interface(0x11223344, 0x0102, 0x01020305),
                                      at_interface(0x11223344, 0x0102, 0x01020304, 0x0a0c),
                                      at_service(0x11223344)};
  Ids ids;
  for (const qim_policy_dest_t& other : others) {
    ids.push_back(static_cast<std::uint32_t>(ids.size() + 1));
    put_hidden_edest(ids.back(), other);
  }
  put_pinst(ids);
  expect_none({{kNoEdest, 1767}, {kNoEdest, 1782}});
}

TEST_F(EdestWalk, does_not_compare_bytes_that_the_format_does_not_use) {
  put_hidden_edest(2, dest_);
  put_pinst({2});
  std::memset(dest_.intf.reserved, 0xff, sizeof dest_.intf.reserved);
  EXPECT_EQ(lookup(dest_), 0u);
}

TEST_F(EdestWalk, serves_every_format) {
  put_hidden_edest(1, dest_);
  put_hidden_edest(2, at_service(5));
  put_hidden_edest(3, at_generic(6));
  put_pinst({1, 2, 3});
  EXPECT_EQ(lookup(at_service(5)), 0u);
  expect_found(2);
  EXPECT_EQ(lookup(at_generic(6)), 0u);
  expect_found(3);
}

TEST_F(EdestWalk, destination_of_an_unknown_format_is_never_found) {
  dest_ = of_format(7);
  put_hidden_edest(2, dest_);
  fake::node(2).dset_name(bytes_of(dest_));
  put_pinst({2});
  expect_none({{kNoEdest, 1767}, {kNoEdest, 1782}});
}

// ---- Nothing found ---------------------------------------------------------------------------

TEST_F(EdestWalk, policy_instance_without_referrers_has_none_unreported_and_frees_nothing) {
  expect_none({});
  EXPECT_EQ(fake::reports().size(), 0u);
  EXPECT_EQ(fake::count("rov_node_ref_get_all"), 0u);
  EXPECT_EQ(fake::system_frees(), 0u);
}

TEST_F(EdestWalk, no_match_is_reported_at_line_1767_and_1782_and_the_array_freed) {
  put_hidden_edest(1, at_interface(1));
  put_hidden_edest(2, at_interface(2));
  put_pinst({1, 2});
  fake::reset_system();
  expect_none({{kNoEdest, 1767}, {kNoEdest, 1782}});
  EXPECT_EQ(fake::system_frees(), 2u) << "scratch and array";
  EXPECT_EQ(fake::system_blocks(), 0u);
}

TEST_F(EdestWalk, match_frees_the_array) {
  put_hidden_edest(2, dest_);
  put_pinst({2});
  fake::reset_system();
  EXPECT_EQ(lookup(dest_), 0u);
  EXPECT_EQ(fake::system_frees(), 2u);
  EXPECT_EQ(fake::system_blocks(), 0u);
}

// ---- Failures --------------------------------------------------------------------------------

TEST_F(EdestWalk, failing_referrers_end_the_lookup_at_line_1741) {
  put_pinst({2});
  for (const std::uint32_t status : {kFailure, kNoItem, kNoEdest}) {
    fake::fail("rov_node_ref_get_all", status);
    EXPECT_EQ(lookup(dest_), status);
  }
  fake::fail_system(System::calloc);
  EXPECT_EQ(lookup(dest_), kNoMem);
  fake::fail_system(System::malloc);
  EXPECT_EQ(lookup(dest_), kNoMem);
  expect_untouched();
  EXPECT_EQ(
      reports_of(kLookup),
      (Places{
          {kFailure, 1741}, {kNoItem, 1741}, {kNoEdest, 1741}, {kNoMem, 1741}, {kNoMem, 1741}}));
  EXPECT_EQ(opened(), Ids{});
}

TEST_F(EdestWalk, failing_open_of_a_referrer_is_reported_at_line_1750_and_1782) {
  put_hidden_edest(1, at_interface(1));
  put_hidden_edest(2, dest_);
  put_pinst({1, 2});
  Places expected;
  for (const std::uint32_t status : {kFailure, kNoItem, kNoEdest}) {
    fake::clear_calls();
    fake::fail("rov_node_parms_get", status);
    EXPECT_EQ(lookup(dest_), status) << "no status is taken for a miss here";
    EXPECT_EQ(opened(), Ids{1});
    EXPECT_EQ(fake::system_blocks(), 0u);
    expected.push_back({status, 1750});
    expected.push_back({status, 1782});
  }
  expect_untouched();
  EXPECT_EQ(reports_of(kLookup), expected);
}

TEST_F(EdestWalk, referrer_that_the_database_no_longer_holds_fails_the_lookup) {
  put_hidden_edest(1, at_interface(1));
  put_pinst({1, 2});
  fake::node(kPinst).referrers({1});
  EXPECT_EQ(lookup(dest_), kInvalid) << "identifier 0 cannot be opened";
  EXPECT_EQ(reports_of(kLookup), (Places{{kInvalid, 1750}, {kInvalid, 1782}}));
}

TEST_F(EdestWalk, node_of_a_failed_open_is_closed_at_the_common_exit) {
  put_hidden_edest(2, dest_);
  put_pinst({2});
  fake::fail("mem_free", kFailure);
  EXPECT_EQ(lookup(dest_), kFailure);
  expect_untouched();
  EXPECT_EQ(reports_of(kLookup), (Places{{kFailure, 1750}, {kFailure, 1782}}));
  expect_left(1);
}

TEST_F(EdestWalk, failing_close_of_a_referrer_is_reported_at_line_1763_and_1782) {
  put_hidden_edest(1, at_interface(1));
  put_hidden_edest(2, dest_);
  put_pinst({1, 2});
  fake::fail("mem_free", kFailure, 3);  // the TLV and the name are freed first
  EXPECT_EQ(lookup(dest_), kFailure);
  EXPECT_TRUE(hit_node(fake::hit()));
  EXPECT_EQ(fake::count("mem_free"), 3u) << "a node that could not be closed is not closed again";
  EXPECT_EQ(opened(), Ids{1});
  expect_untouched();
  EXPECT_EQ(reports_of(kLookup), (Places{{kFailure, 1763}, {kFailure, 1782}}));
  EXPECT_EQ(fake::system_blocks(), 0u);
  expect_left(1);
}

TEST_F(EdestWalk, failing_close_of_the_match_fails_the_lookup_with_the_output_written) {
  put_hidden_edest(2, dest_);
  put_pinst({2});
  fake::fail("mem_free", kNoItem, 3);
  EXPECT_EQ(lookup(dest_), kNoItem);
  EXPECT_EQ(fake::count("mem_free"), 3u);
  EXPECT_EQ(reports_of(kLookup), (Places{{kNoItem, 1763}, {kNoItem, 1782}}));
  expect_left(1);
  expect_found(2);
}

TEST_F(EdestWalk, reports_under_the_debug_bit_only) {
  put_hidden_edest(1, at_interface(1));
  put_pinst({1});
  report_nothing();
  EXPECT_EQ(lookup(dest_), kNoEdest);
  fake::fail("rov_node_ref_get_all", kFailure);
  EXPECT_EQ(lookup(dest_), kFailure);
  fake::fail("rov_node_parms_get", kFailure);
  EXPECT_EQ(lookup(dest_), kFailure);
  fake::fail("mem_free", kFailure, 3);
  EXPECT_EQ(lookup(dest_), kFailure);
  EXPECT_EQ(fake::reports().size(), 0u);
  expect_left(1);
}

}  // namespace
