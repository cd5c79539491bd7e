// The enforcement destination of a policy instance at a place: the direct attempt by name.

#include <gmock/gmock.h>

#include "rov.h"
#include "tests/library/query/edest_test.h"

namespace {

using fake::any;
using fake::call;
using namespace query_test;

constexpr std::uint32_t kBase = 0xba5e;

// In every test the destination bears its name, and nothing refers to the policy instance unless
// the test says so.
class EdestDirect : public EdestTest {
 protected:
  void SetUp() override {
    EdestTest::SetUp();
    put_edest(kEdest, dest_, kPinst);
  }

  void expect_walk_finds_nothing(const Places& reports = {}) {
    EXPECT_EQ(lookup(dest_), kNoEdest);
    expect_untouched();
    EXPECT_EQ(reports_of(kLookup), reports);
  }

  // The direct attempt misses, and the walk then finds this referrer.
  void expect_walk_finds_hidden() {
    constexpr qim_node_id_t kHidden = kEdest + 5;
    put_hidden_edest(kHidden, dest_);
    put_pinst({kHidden});
    EXPECT_EQ(lookup(dest_), 0u);
    EXPECT_EQ(reports_of(kLookup), Places{});
    expect_found(kHidden);
  }

  qim_policy_dest_t dest_ = at_interface(0x11223344);
};

TEST_F(EdestDirect, asks_for_base_handle_count_and_name_and_opens_the_node) {
  EXPECT_EQ(lookup(dest_), 0u);
  const fake::Calls calls = fake::calls();
  ASSERT_GT(calls.size(), 4u);
  EXPECT_EQ(calls[0], call("rov_ses_orig_handle", kSes, any));
  EXPECT_EQ(calls[1], call("rov_ses_get_num_dsets", kSes, any));
  EXPECT_EQ(calls[2], call("rov_ses_dset_name_get", kBase, 21, any, any))
      << "through the base handle, not the session";
  EXPECT_EQ(calls[3], call("rov_node_parms_get", kSes, fake::id(kEdest), any))
      << "through the session, and with no parameters passed on";
  EXPECT_EQ(fake::count("rov_node_ref_get_all"), 0u);
  EXPECT_EQ(opened(), Ids{kEdest});
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(EdestDirect, writes_the_output_through_the_copy_only) {
  EXPECT_EQ(lookup(dest_), 0u);
  expect_found(kEdest);
  EXPECT_EQ(out_.id, kEdest);
  EXPECT_EQ(out_.body.pinst.fields.reserved[0], 0xee) << "it is not cleared first";
}

TEST_F(EdestDirect, gives_the_status_alone_without_an_output) {
  EXPECT_EQ(qim_pinst_edest_lookup(kSes, &pinst_, &dest_, nullptr), 0u);
  EXPECT_EQ(opened(), Ids{kEdest});
}

TEST_F(EdestDirect, hands_on_the_session_it_is_given) {
  EXPECT_EQ(qim_pinst_edest_lookup(0xf0000001, &pinst_, &dest_, &out_), 0u);
  EXPECT_EQ(fake::calls_of("rov_ses_orig_handle").at(0).u32(0), 0xf0000001u);
  EXPECT_EQ(fake::calls_of("rov_ses_get_num_dsets").at(0).u32(0), 0xf0000001u);
  EXPECT_EQ(fake::calls_of("rov_node_parms_get").at(0).u32(0), 0xf0000001u);
}

TEST_F(EdestDirect, serves_an_open_policy_instance_and_leaves_it_open) {
  qim_node_t* node = nullptr;
  ASSERT_EQ(qim_int_node_open(kSes, kPinst, nullptr, 0, &node, ctx()), 0u);
  const Bytes before = bytes_of(*node);
  EXPECT_EQ(qim_pinst_edest_lookup(kSes, node, &dest_, &out_), 0u);
  EXPECT_EQ(bytes_of(*node), before);
  EXPECT_EQ(fake::live_blocks(), 1u);
  EXPECT_EQ(qim_int_node_close(node, ctx()), 0u);
}

// ---- The name --------------------------------------------------------------------------------

class EdestName : public EdestTest {
 protected:
  Bytes asked_for(const qim_policy_dest_t& dest) {
    fake::clear_calls();
    EXPECT_EQ(lookup(dest), kNoEdest);
    return fake::calls_of("rov_ses_dset_name_get").at(0).bytes;
  }
};

TEST_F(EdestName, is_the_destination_with_the_policy_instances_type_and_direction) {
  for (const qim_policy_dest_t& dest :
       {at_interface(0x11223344), at_service(0x31323334), at_generic(0x41424344)}) {
    EXPECT_EQ(asked_for(dest), name_of(dest));
  }
}

TEST_F(EdestName, follows_the_policy_instance_in_type_and_direction) {
  pinst_.body.pinst.fields.type = 0x81828384;
  pinst_.body.pinst.fields.dir = 0xfe;
  const qim_policy_dest_t dest = at_interface(7);
  EXPECT_EQ(asked_for(dest), name_of(dest, 0x81828384, 0xfe));
}

TEST_F(EdestName, takes_nothing_from_the_policy_instances_own_destination) {
  pinst_.body.pinst.fields.dest = at_generic(0xffffffff);
  const qim_policy_dest_t dest = at_service(7);
  EXPECT_EQ(asked_for(dest), name_of(dest));
}

TEST_F(EdestName, has_zeros_where_the_format_uses_no_bytes) {
  qim_policy_dest_t dest = at_interface(7);
  std::memset(dest.intf.reserved, 0xff, sizeof dest.intf.reserved);
  EXPECT_EQ(asked_for(dest), name_of(at_interface(7)));
  dest = at_service(7);
  std::memset(dest.srv.reserved, 0xff, sizeof dest.srv.reserved);
  EXPECT_EQ(asked_for(dest), name_of(at_service(7)));
}

TEST_F(EdestName, of_an_unknown_format_carries_format_type_and_direction_only) {
  for (const std::uint8_t format : Bytes{0, 4, 7, 255}) {
    Bytes expected(21);
    expected[0] = format;
    expected[18] = 0x03;
    expected[19] = 0x05;
    expected[20] = kDir;
    EXPECT_EQ(asked_for(of_format(format)), expected);
  }
}

TEST_F(EdestDirect, leaves_destination_and_policy_instance_as_they_are) {
  const Bytes pinst = bytes_of(pinst_);
  const Bytes dest = bytes_of(dest_);
  EXPECT_EQ(lookup(dest_), 0u);
  EXPECT_EQ(bytes_of(pinst_), pinst);
  EXPECT_EQ(bytes_of(dest_), dest);
}

TEST_F(EdestDirect, hands_the_database_zeroed_parameters_and_takes_only_the_identifier) {
  fake::script("rov_ses_dset_name_get", [](const fake::Call& made) {
    auto* const parms = made.pointer<rov_node_parms_t>(3);
    EXPECT_EQ(bytes_of(*parms), Bytes(sizeof *parms));
    std::memset(parms, fake::kGarbage, sizeof *parms);
    parms->id = fake::id(kEdest);
    parms->id.word[1] = parms->id.word[2] = parms->id.word[3] = fake::kGarbageWord;
    return 0u;
  });
  EXPECT_EQ(lookup(dest_), 0u);
  expect_found(kEdest);
}

// ---- When it is made -------------------------------------------------------------------------

class EdestDirectLimit : public EdestDirect {
 protected:
  // Whether the name is asked for in a session of that many data sets.
  bool asks_with(std::uint32_t dsets) {
    fake::clear_calls();
    fake::script("rov_ses_get_num_dsets", [dsets](const fake::Call& made) {
      *made.pointer<std::uint32_t>(1) = dsets;
      return 0u;
    });
    EXPECT_THAT(lookup(dest_), testing::AnyOf(0u, kNoEdest));
    return fake::count("rov_ses_dset_name_get") != 0;
  }
};

TEST_F(EdestDirectLimit, is_made_with_up_to_1023_data_sets) {
  EXPECT_TRUE(asks_with(0));
  EXPECT_TRUE(asks_with(1));
  EXPECT_TRUE(asks_with(1023));
  expect_found(kEdest);
}

TEST_F(EdestDirectLimit, is_not_made_from_1024_on_even_when_the_name_exists) {
  EXPECT_FALSE(asks_with(1024));
  expect_untouched();
  EXPECT_EQ(opened(), Ids{});
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(EdestDirectLimit, counts_without_a_sign) {
  EXPECT_FALSE(asks_with(0x80000000));
  EXPECT_FALSE(asks_with(0xffffffff));
}

TEST_F(EdestDirectLimit, walk_finds_the_destination_beyond_it) {
  put_pinst({kEdest});
  EXPECT_FALSE(asks_with(1024));
  expect_found(kEdest);
}

TEST_F(EdestDirect, failure_to_count_the_data_sets_is_swallowed_and_leads_to_the_walk) {
  for (const std::uint32_t status : {kFailure, kNoItem, kNoEdest}) {
    fake::fail("rov_ses_get_num_dsets", status);
    expect_walk_finds_nothing();
    EXPECT_EQ(fake::count("rov_ses_dset_name_get"), 0u);
  }
  fake::fail("rov_ses_get_num_dsets", kFailure);
  expect_walk_finds_hidden();
}

// ---- Failures --------------------------------------------------------------------------------

TEST_F(EdestDirect, failing_base_handle_ends_the_lookup_at_line_1688) {
  for (const std::uint32_t status : {kFailure, kNoItem, kNoEdest}) {
    fake::clear_calls();
    fake::fail("rov_ses_orig_handle", status);
    EXPECT_EQ(lookup(dest_), status);
    EXPECT_EQ(fake::names(), Names{"rov_ses_orig_handle"});
  }
  expect_untouched();
  EXPECT_EQ(reports_of(kLookup), (Places{{kFailure, 1688}, {kNoItem, 1688}, {kNoEdest, 1688}}));
}

TEST_F(EdestDirect, missing_name_leads_to_the_walk_unreported) {
  fake::remove_node(kEdest);
  expect_walk_finds_nothing();
  EXPECT_EQ(fake::calls_of("rov_ses_dset_name_get").size(), 1u);
  expect_walk_finds_hidden();
}

TEST_F(EdestDirect, failing_name_query_ends_the_lookup_at_line_1729) {
  put_pinst({kEdest});
  const std::uint32_t statuses[] = {kFailure, kNoLink, kNoEdest, kInvalid};
  Places expected;
  for (const std::uint32_t status : statuses) {
    fake::fail("rov_ses_dset_name_get", status);
    EXPECT_EQ(lookup(dest_), status);
    expected.push_back({status, 1729});
  }
  expect_untouched();
  EXPECT_EQ(fake::count("rov_node_ref_get_all"), 0u);
  EXPECT_EQ(opened(), Ids{});
  EXPECT_EQ(reports_of(kLookup), expected);
}

TEST_F(EdestDirect, open_that_finds_no_item_or_no_destination_leads_to_the_walk) {
  for (const std::uint32_t status : {kNoItem, kNoEdest}) {
    fake::fail("rov_node_parms_get", status);
    expect_walk_finds_nothing();
    fake::fail("rov_node_data_get", status);
    expect_walk_finds_nothing();
  }
  fake::fail("mem_alloc_ary", kNoEdest, 2);  // the first is that of the test's own copy
  expect_walk_finds_hidden();
}

TEST_F(EdestDirect, failing_open_is_reported_at_line_1711_and_again_at_1782) {
  put_pinst({kEdest});
  const std::uint32_t statuses[] = {kFailure, kNoLink, kInvalid, kNodeType};
  Places expected;
  for (const std::uint32_t status : statuses) {
    fake::fail("rov_node_parms_get", status);
    EXPECT_EQ(lookup(dest_), status);
    expected.push_back({status, 1711});
    expected.push_back({status, 1782});
  }
  expect_untouched();
  EXPECT_EQ(fake::count("rov_node_ref_get_all"), 0u);
  EXPECT_EQ(reports_of(kLookup), expected);
}

TEST_F(EdestDirect, identifier_0_behind_the_name_fails_the_open) {
  fake::script("rov_ses_dset_name_get", [](const fake::Call&) { return 0u; });
  EXPECT_EQ(lookup(dest_), kInvalid);
  EXPECT_EQ(reports_of(kLookup), (Places{{kInvalid, 1711}, {kInvalid, 1782}}));
}

// An open whose scratch cannot be freed hands out the node with its failure; that node is closed.
TEST_F(EdestDirect, node_of_a_failed_open_is_closed_at_the_common_exit) {
  fake::fail("mem_free", kFailure);
  EXPECT_EQ(lookup(dest_), kFailure);
  expect_untouched();
  EXPECT_EQ(reports_of(kLookup), (Places{{kFailure, 1711}, {kFailure, 1782}}));
  expect_left(1);
}

TEST_F(EdestDirect, failure_comes_before_that_of_the_close_at_the_common_exit) {
  fake::fail("mem_free", kFailure, 1);
  unsigned frees = 0;
  fake::script("mem_free", [&frees](const fake::Call& made) {
    ++frees;
    const bool node = fake::block_size(made.pointer<void>(0)) == sizeof(qim_node_cache_entry_t);
    if (node) return kOtherFailure;
    fake::release(made.pointer<void>(0));
    return 0u;
  });
  EXPECT_EQ(lookup(dest_), kFailure);
  EXPECT_EQ(reports_of(kLookup), (Places{{kFailure, 1711}, {kFailure, 1782}}));
  EXPECT_EQ(frees, 2u) << "the name and, once, the node; the first call did not come so far";
  expect_left(2);
}

TEST_F(EdestDirect, node_of_an_open_that_found_no_item_is_closed_before_the_walk) {
  constexpr qim_node_id_t kHidden = kEdest + 5;
  put_hidden_edest(kHidden, dest_);
  put_pinst({kHidden});
  fake::fail("mem_free", kNoItem);
  EXPECT_EQ(lookup(dest_), 0u);
  EXPECT_EQ(reports_of(kLookup), Places{});
  EXPECT_EQ(opened(), (Ids{kEdest, kHidden}));
  expect_left(1);  // the scratch buffer that could not be freed
  fake::release(fake::hit().call.pointer<void>(0));
  expect_left(0);
  expect_found(kHidden);
}

TEST_F(EdestDirect, failing_close_after_a_hit_is_reported_at_line_1726_only) {
  fake::fail("mem_free", kFailure, 3);  // the TLV and the name are freed first
  EXPECT_EQ(lookup(dest_), kFailure);
  EXPECT_TRUE(hit_node(fake::hit()));
  EXPECT_EQ(fake::count("mem_free"), 3u) << "a node that could not be closed is not closed again";
  EXPECT_EQ(reports_of(kLookup), (Places{{kFailure, 1726}}));
  EXPECT_EQ(fake::count("rov_node_ref_get_all"), 0u);
  expect_left(1);
  expect_found(kEdest);
}

// No status of a close after a hit leads anywhere else.
TEST_F(EdestDirect, failing_close_after_a_hit_is_no_miss_whatever_the_status) {
  for (const std::uint32_t status : {kNoItem, kNoEdest}) {
    fake::clear_calls();
    fake::fail("mem_free", status, 3);
    EXPECT_EQ(lookup(dest_), status);
    EXPECT_EQ(fake::count("rov_node_ref_get_all"), 0u);
  }
  EXPECT_EQ(reports_of(kLookup), (Places{{kNoItem, 1726}, {kNoEdest, 1726}}));
  expect_left(2);
}

// ---- What is no hit --------------------------------------------------------------------------

class EdestDirectMiss : public EdestDirect {
 protected:
  // The node that bears the name is opened, closed before the walk, and not the answer.
  void expect_miss() {
    fake::script("rov_node_ref_get_all", [](const fake::Call& made) {
      EXPECT_EQ(fake::live_blocks(), 0u) << "the node is closed before the walk";
      made.pointer<rov_node_id_t>(5)[0] = fake::id(kEdest + 5);
      return 0u;
    });
    expect_walk_finds_hidden();
    EXPECT_EQ(opened(), (Ids{kEdest, kEdest + 5, kEdest + 5})) << "the last time by the test";
  }
};

TEST_F(EdestDirectMiss, node_of_another_type) {
  fake::node(kEdest).pinst();
  expect_miss();
}

TEST_F(EdestDirectMiss, data_set_node_with_the_right_destination_and_link) {
  fake::node(kEdest).data_set();
  expect_miss();
}

TEST_F(EdestDirectMiss, node_at_another_destination) {
  fake::script("rov_ses_dset_name_get", [](const fake::Call& made) {
    made.pointer<rov_node_parms_t>(3)->id = fake::id(kEdest);
    return 0u;
  });
  fake::node(kEdest).dset_name(name_of(at_interface(0x11223345)));
  expect_miss();
}

TEST_F(EdestDirectMiss, node_that_leads_to_another_policy_instance) {
  fake::node(kEdest).link(kBackLink, kOtherPinst);
  expect_miss();
}

TEST_F(EdestDirectMiss, node_that_leads_there_by_its_second_identifier_only) {
  fake::node(kEdest).link(kBackLink, {.node = kOtherPinst, .node2 = kPinst, .val = kPinst});
  expect_miss();
}

TEST_F(EdestDirectMiss, node_without_the_link) {
  fake::remove_node(kEdest);
  fake::node(kEdest).edest().dset_name(name_of(dest_));
  expect_miss();
}

TEST_F(EdestDirect, node_that_leads_elsewhere_gives_no_destination_when_nothing_refers) {
  fake::node(kEdest).link(kBackLink, kOtherPinst);
  expect_walk_finds_nothing();
  EXPECT_EQ(opened(), Ids{kEdest});
}

TEST_F(EdestDirect, destination_of_an_unknown_format_is_no_hit) {
  dest_ = of_format(7);
  fake::node(kEdest).dset_name(name_of(dest_));
  expect_walk_finds_nothing();
  EXPECT_EQ(opened(), Ids{kEdest});
}

TEST_F(EdestDirect, failing_close_of_a_miss_ends_the_lookup_at_line_1735_and_1782) {
  fake::node(kEdest).link(kBackLink, kOtherPinst);
  put_pinst({kEdest});
  fake::fail("mem_free", kFailure, 3);
  EXPECT_EQ(lookup(dest_), kFailure);
  EXPECT_TRUE(hit_node(fake::hit()));
  EXPECT_EQ(fake::count("mem_free"), 3u) << "a node that could not be closed is not closed again";
  EXPECT_EQ(fake::count("rov_node_ref_get_all"), 0u);
  expect_untouched();
  EXPECT_EQ(reports_of(kLookup), (Places{{kFailure, 1735}, {kFailure, 1782}}));
  expect_left(1);
}

TEST_F(EdestDirect, reports_under_the_debug_bit_only) {
  report_nothing();
  for (const char* const function :
       {"rov_ses_orig_handle", "rov_ses_dset_name_get", "rov_node_parms_get"}) {
    fake::fail(function, kFailure);
    EXPECT_EQ(lookup(dest_), kFailure);
  }
  fake::fail("mem_free", kFailure, 3);
  EXPECT_EQ(lookup(dest_), kFailure);
  fake::node(kEdest).link(kBackLink, kOtherPinst);
  fake::fail("mem_free", kFailure, 3);
  EXPECT_EQ(lookup(dest_), kFailure);
  EXPECT_EQ(fake::reports().size(), 0u);
  expect_left(2);
}

}  // namespace
