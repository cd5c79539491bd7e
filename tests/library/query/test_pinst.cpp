// The policy instance behind a data set: by selector, by name, and by a node's selector.

#include <cstring>
#include <functional>

#include "rov.h"
#include "tests/library/query/support.h"

namespace {

using fake::any;
using fake::call;
using namespace query_test;

constexpr qim_node_id_t kDset = 0x08300020;
constexpr qim_node_id_t kNoName = 0x08300021;
constexpr qim_node_id_t kPlain = 0x08300022;

// A data set with a name, one without, and a node that is none.
void put_all() {
  fake::node(kDset)
      .data_set()
      .dset_name(name_of(at_interface(5)))
      .link(0x2c1, {.node = 0x11, .node2 = 0x12, .val = 0x13, .tag = 0x14})
      .priv({1, 2, 3});
  fake::node(kNoName).data_set();
  fake::node(kPlain).edest().dset_name(name_of(at_service(6))).link(0x2c1, 0x15);
}

class Pinst : public QueryTest {
 protected:
  void SetUp() override {
    QueryTest::SetUp();
    put_all();
    spoil(out_);
    spoil(key_);
    key_.fields.dest = at_interface(5);
    key_.fields.type = kType;
    key_.fields.dir = kDir;
  }

  // What reading this node gives.
  static Bytes read(qim_node_id_t id) {
    qim_node_t node;
    EXPECT_EQ(qim_node_read(kSes, id, 0, &node), 0u);
    return bytes_of(node);
  }
  void expect_read(qim_node_id_t id) { EXPECT_EQ(bytes_of(out_), read(id)); }
  void expect_untouched() { EXPECT_EQ(bytes_of(out_), Bytes(sizeof out_, 0xee)); }
  void expect_cleared() { EXPECT_EQ(bytes_of(out_), Bytes(sizeof out_)); }

  std::uint32_t by_selector(std::uint32_t selector = 0) {
    return qim_ses_pinst_get(kSes, selector, &out_);
  }
  std::uint32_t by_name() { return qim_ses_pinst_name_get(kSes, &key_, &out_); }
  std::uint32_t by_node(std::uint32_t node = kDset, std::uint32_t selector = 0) {
    return qim_node_pinst_get(kSes, node, selector, &out_);
  }

  // Puts parameters of this node into the place of what the database would answer.
  static void answer(const char* function, std::size_t parms_at, qim_node_id_t id) {
    fake::script(function, [parms_at, id](const fake::Call& made) {
      auto* const parms = made.pointer<rov_node_parms_t>(parms_at);
      EXPECT_EQ(bytes_of(*parms), Bytes(sizeof *parms)) << "zeroed before the call";
      *parms = fake::node(id).parms();
      return 0u;
    });
  }

  qim_node_t out_;
  qim_pinst_t key_;
};

// One of the three queries: its platform function, where that takes the parameters, its name and
// the line at which it reports that function's failure.
struct Query {
  std::function<std::uint32_t(qim_node_t*)> run;
  const char* function;
  std::size_t parms_at;
  const char* name;
  int line;
};

qim_pinst_t key_of_dset() {
  qim_pinst_t key{};
  key.fields.dest = at_interface(5);
  key.fields.type = kType;
  key.fields.dir = kDir;
  return key;
}

const Query queries[] = {
    {[](qim_node_t* out) { return qim_ses_pinst_get(kSes, 0, out); }, "rov_ses_dset_get", 2,
     "qim_ses_pinst_get", 86},
    {[](qim_node_t* out) {
       const qim_pinst_t key = key_of_dset();
       return qim_ses_pinst_name_get(kSes, &key, out);
     },
     "rov_ses_dset_name_get", 3, "qim_ses_pinst_name_get", 151},
    {[](qim_node_t* out) { return qim_node_pinst_get(kSes, kDset, 0, out); }, "rov_node_dset_get",
     6, "qim_node_pinst_get", 639},
};

// ---- Each key --------------------------------------------------------------------------------

TEST_F(Pinst, by_selector_hands_on_session_and_selector) {
  answer("rov_ses_dset_get", 2, kDset);
  EXPECT_EQ(qim_ses_pinst_get(0xf0000001, 0xffffffff, &out_), 0u);
  EXPECT_EQ(fake::calls()[0], call("rov_ses_dset_get", 0xf0000001, 0xffffffff, any));
  expect_read(kDset);
}

TEST_F(Pinst, by_selector_finds_data_sets_in_the_databases_order) {
  EXPECT_EQ(by_selector(0), 0u);
  expect_read(kDset);
  EXPECT_EQ(by_selector(1), 0u);
  expect_read(kNoName);
}

TEST_F(Pinst, by_name_asks_through_the_session_itself_for_the_21_bytes) {
  EXPECT_EQ(by_name(), 0u);
  EXPECT_EQ(fake::calls()[0], call("rov_ses_dset_name_get", kSes, 21, any, any));
  EXPECT_EQ(fake::calls()[0].bytes, name_of(at_interface(5)));
  EXPECT_EQ(fake::count("rov_ses_orig_handle"), 0u);
  expect_read(kDset);
}

TEST_F(Pinst, by_name_takes_destination_type_and_direction_of_the_record) {
  for (const qim_policy_dest_t& dest : {at_service(7), at_generic(8), at_interface(9)}) {
    fake::clear_calls();
    key_.fields.dest = dest;
    key_.fields.type = 0x81828384;
    key_.fields.dir = 0;
    const Bytes before = bytes_of(key_);
    EXPECT_EQ(by_name(), kNoItem);
    EXPECT_EQ(fake::calls()[0].bytes, name_of(dest, 0x81828384, 0));
    EXPECT_EQ(bytes_of(key_), before) << "the record is only read";
  }
}

TEST_F(Pinst, by_name_has_zeros_where_the_format_uses_no_bytes) {
  std::memset(key_.fields.dest.intf.reserved, 0xff, 3);
  EXPECT_EQ(by_name(), 0u);
  EXPECT_EQ(fake::calls()[0].bytes, name_of(at_interface(5)));
}

TEST_F(Pinst, by_node_hands_on_session_identifier_by_value_and_selector) {
  answer("rov_node_dset_get", 6, kDset);
  EXPECT_EQ(qim_node_pinst_get(0xf0000001, kPlain, 0xffffffff, &out_), 0u);
  EXPECT_EQ(fake::calls()[0],
            call("rov_node_dset_get", 0xf0000001, fake::id(kPlain), 0xffffffff, any));
  expect_read(kDset);
}

TEST_F(Pinst, by_node_refuses_identifier_0_at_line_633_without_asking) {
  EXPECT_EQ(by_node(0), kInvalid);
  EXPECT_EQ(fake::calls().size(), 0u);
  expect_untouched();
  EXPECT_EQ(fake::report_texts(),
            std::vector<std::string>{fake::report(kInvalid, "qim_node_pinst_get", 633)});
}

// ---- What the three have in common -----------------------------------------------------------

TEST_F(Pinst, hand_the_database_zeroed_parameters) {
  for (const Query& query : queries) {
    SCOPED_TRACE(query.name);
    answer(query.function, query.parms_at, kDset);
    EXPECT_EQ(query.run(&out_), 0u);
    expect_read(kDset);
  }
}

TEST_F(Pinst, read_the_node_that_the_parameters_name_without_asking_for_them_again) {
  for (const Query& query : queries) {
    SCOPED_TRACE(query.name);
    fake::clear_calls();
    answer(query.function, query.parms_at, kPlain);
    EXPECT_EQ(query.run(&out_), 0u);
    EXPECT_EQ(fake::names()[0], query.function);
    EXPECT_EQ(fake::names()[1], "memset_s");
    EXPECT_EQ(fake::count("rov_node_parms_get"), 0u);
    const rov_node_parms_t parms = fake::node(kPlain).parms();
    EXPECT_EQ(fake::calls_of("rov_node_data_get"),
              (fake::Calls{call("rov_node_data_get", kSes, fake::id(kPlain), parms.tlv_len, any, 21,
                                any, 0, nullptr)}));
    expect_read(kPlain);
  }
}

TEST_F(Pinst, demand_no_type) {
  for (const Query& query : queries) {
    SCOPED_TRACE(query.name);
    for (const qim_node_id_t id : {kDset, kNoName, kPlain}) {
      answer(query.function, query.parms_at, id);
      EXPECT_EQ(query.run(&out_), 0u);
      expect_read(id);
    }
  }
  EXPECT_EQ(out_.type, static_cast<std::uint32_t>(QIM_NODE_EDEST));
}

TEST_F(Pinst, return_and_report_a_failing_query_and_leave_the_output_exactly_as_it_was) {
  for (const Query& query : queries) {
    SCOPED_TRACE(query.name);
    Places expected;
    for (const std::uint32_t status : {kFailure, kNoItem, kNoLink, kNoEdest}) {
      fake::clear_calls();
      fake::fail(query.function, status);
      EXPECT_EQ(query.run(&out_), status);
      EXPECT_EQ(fake::names(), std::vector<std::string>{query.function});
      expected.push_back({status, query.line});
    }
    expect_untouched();
    EXPECT_EQ(reports_of(query.name), expected);
  }
}

TEST_F(Pinst, leave_the_reports_of_a_failing_read_to_the_read) {
  for (const Query& query : queries) {
    SCOPED_TRACE(query.name);
    fake::fail("rov_node_data_get", kFailure);
    EXPECT_EQ(query.run(&out_), kFailure);
    expect_cleared();
    EXPECT_EQ(reports_of(query.name), Places{});
    EXPECT_EQ(reports_of("qim_node_read_int").back().status, kFailure);
    spoil(out_);
  }
}

TEST_F(Pinst, parameters_without_an_identifier_fail_in_the_read) {
  for (const Query& query : queries) {
    SCOPED_TRACE(query.name);
    fake::script(query.function, [](const fake::Call&) { return 0u; });
    EXPECT_EQ(query.run(&out_), kInvalid);
    expect_cleared();
  }
}

TEST_F(Pinst, failing_close_is_the_result_with_the_output_written) {
  for (const Query& query : queries) {
    SCOPED_TRACE(query.name);
    fake::clear_calls();
    fake::fail("mem_free", kFailure, 3);  // the name and the private data are freed first
    EXPECT_EQ(query.run(&out_), kFailure);
    EXPECT_TRUE(hit_node(fake::hit()));
    expect_read(kDset);
  }
  expect_left(3);
}

TEST_F(Pinst, report_under_the_debug_bit_only) {
  report_nothing();
  for (const Query& query : queries) {
    fake::fail(query.function, kFailure);
    EXPECT_EQ(query.run(&out_), kFailure);
  }
  EXPECT_EQ(by_node(0), kInvalid);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(Pinst, sweep) {
  for (const Query& query : queries) {
    SCOPED_TRACE(query.name);
    const Bytes expected = read(kDset);
    fake::sweep({.prepare = put_all,
                 .run =
                     [&] {
                       spoil(out_);
                       return query.run(&out_);
                     },
                 .check =
                     [&](std::uint32_t returned, const fake::Hit& hit) {
                       if (hit.call.name == query.function) {
                         expect_untouched();
                       } else if (returned == 0 || (hit.call.name == "mem_free" && hit.nth != 1)) {
                         EXPECT_EQ(bytes_of(out_), expected);
                       } else {
                         expect_cleared();
                       }
                     },
                 // Frees: the name, which leaves an open node behind; the private data; the node.
                 .left = [](const fake::Hit& hit) -> std::size_t {
                   return hit.call.name == "mem_free" ? 4 - hit.nth : 0;
                 }},
                kFailure);
    put_all();
  }
}

}  // namespace
