// The arguments of actions and defaults.

#include <ostream>

#include "rov.h"
#include "tests/library/query/support.h"

namespace {

using fake::any;
using fake::call;
using namespace query_test;

constexpr qim_node_id_t kNode = 0x08300030;
constexpr const char* kArgGet = "qim_node_arg_get";

const Bytes kArgs = {1, 2, 3, 4, 5};

// The two functions, which do the same for nodes of different types.
struct Getter {
  const char* name;
  std::uint32_t (*get)(std::uint32_t ses, qim_node_id_t node, std::uint32_t len, void* buf);
  bool is_def;

  // A node of the getter's type, and one of the other's.
  void put(const Bytes& args) const { put_node(kNode, is_def, args); }
  void put_other(const Bytes& args) const { put_node(kNode, !is_def, args); }

 private:
  static void put_node(qim_node_id_t id, bool def, const Bytes& args) {
    fake::remove_node(id);
    if (def) {
      fake::node(id).def({.type = 1, .args = args}).link(0x301, 9).link(0x302, 9);
    } else {
      fake::node(id).action({.type = 1, .args = args}).link(0x141, 9);
    }
  }
};
void PrintTo(const Getter& getter, std::ostream* os) {
  *os << getter.name;
}

class ArgGet : public QueryTest, public testing::WithParamInterface<Getter> {
 protected:
  void SetUp() override {
    QueryTest::SetUp();
    GetParam().put(kArgs);
  }
  static std::uint32_t get(std::uint32_t len, void* buf, qim_node_id_t node = kNode) {
    return GetParam().get(kSes, node, len, buf);
  }
};

INSTANTIATE_TEST_SUITE_P(Args, ArgGet,
                         testing::Values(Getter{"action", qim_action_arg_get, false},
                                         Getter{"def", qim_def_arg_get, true}),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(ArgGetLayout, length_and_pointer_are_the_words_that_the_device_has_them_in) {
  if (sizeof(void*) == 4) {
    EXPECT_EQ(offsetof(qim_node_t, body.action.args_len), 48u);
    EXPECT_EQ(offsetof(qim_node_t, body.action.args), 52u);
    EXPECT_EQ(offsetof(qim_node_t, body.def.args_len), 64u);
    EXPECT_EQ(offsetof(qim_node_t, body.def.args), 68u);
  }
  EXPECT_EQ(sizeof(qim_action_t::args_len), 4u);
}

TEST_P(ArgGet, copies_the_arguments_and_nothing_beyond_them) {
  Buffer buffer(9, 1);
  EXPECT_EQ(get(9, buffer.data()), 0u);
  EXPECT_EQ(buffer.bytes(), (Bytes{1, 2, 3, 4, 5, 0xee, 0xee, 0xee, 0xee}));
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_P(ArgGet, fits_a_buffer_of_exactly_their_length) {
  Buffer buffer(5);
  EXPECT_EQ(get(5, buffer.data()), 0u);
  EXPECT_EQ(buffer.bytes(), kArgs);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_P(ArgGet, opens_the_node_through_the_session_and_closes_it) {
  Buffer buffer(5);
  EXPECT_EQ(GetParam().get(0xf0000001, kNode, 5, buffer.data()), 0u);
  EXPECT_EQ(fake::calls()[0], call("rov_node_parms_get", 0xf0000001, fake::id(kNode), any));
  EXPECT_EQ(fake::count("rov_node_parms_get"), 1u);
  EXPECT_EQ(fake::live_blocks(), 0u);
}

TEST_P(ArgGet, short_buffer_is_reported_at_line_284_but_answered_with_success_and_left_alone) {
  Buffer buffer(4);
  for (const std::uint32_t len : {4u, 1u, 0u}) {
    EXPECT_EQ(get(len, buffer.data()), 0u);
    EXPECT_EQ(fake::live_blocks(), 0u);
  }
  EXPECT_TRUE(buffer.untouched());
  EXPECT_EQ(fake::report_texts(),
            std::vector<std::string>(3, fake::report(kBufSmall, kArgGet, 284)));
}

TEST_P(ArgGet, buffer_length_has_no_sign) {
  Buffer buffer(5);
  EXPECT_EQ(get(0xffffffff, buffer.data()), 0u);
  EXPECT_EQ(buffer.bytes(), kArgs);
}

TEST_P(ArgGet, node_without_arguments_writes_nothing_even_to_no_buffer) {
  GetParam().put({});
  Buffer buffer(4);
  EXPECT_EQ(get(4, buffer.data()), 0u);
  EXPECT_EQ(get(0, buffer.data()), 0u);
  EXPECT_EQ(get(0, nullptr), 0u);
  EXPECT_TRUE(buffer.untouched());
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_P(ArgGet, other_type_fails_with_the_opens_status_at_line_279) {
  GetParam().put_other({});
  Buffer buffer(5);
  EXPECT_EQ(get(5, buffer.data()), kNodeType);
  EXPECT_TRUE(buffer.untouched());
  EXPECT_EQ(reports_of(kArgGet), (Places{{kNodeType, 279}}));
}

TEST_P(ArgGet, failing_open_is_returned_and_reported_at_line_279) {
  Buffer buffer(5);
  EXPECT_EQ(get(5, buffer.data(), 0), kInvalid);
  EXPECT_EQ(get(5, buffer.data(), 0x999), kNoItem);
  fake::fail("rov_node_data_get", kFailure);
  EXPECT_EQ(get(5, buffer.data()), kFailure);
  EXPECT_TRUE(buffer.untouched());
  EXPECT_EQ(reports_of(kArgGet), (Places{{kInvalid, 279}, {kNoItem, 279}, {kFailure, 279}}));
}

TEST_P(ArgGet, failing_close_is_ignored) {
  Buffer buffer(5);
  fake::fail("mem_free", kFailure, 2);  // the TLV is freed first
  EXPECT_EQ(get(5, buffer.data()), 0u);
  EXPECT_EQ(fake::injected(), "mem_free");
  EXPECT_EQ(buffer.bytes(), kArgs);
  EXPECT_EQ(reports_of(kArgGet), Places{});
  EXPECT_EQ(get(4, buffer.data()), 0u);
  expect_left(2);
}

TEST_P(ArgGet, reports_under_the_debug_bit_only) {
  report_nothing();
  Buffer buffer(5);
  EXPECT_EQ(get(5, buffer.data(), 0), kInvalid);
  EXPECT_EQ(get(4, buffer.data()), 0u);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_P(ArgGet, sweep) {
  const NodeBlocks blocks = {.scratch = 1, .decoded = 1, .priv = false};
  Buffer buffer(5);
  fake::sweep(
      {.prepare = [] { GetParam().put(kArgs); },
       .run =
           [&] {
             buffer.refill();
             return get(5, buffer.data());
           },
       .check =
           [&](std::uint32_t returned, const fake::Hit&) {
             EXPECT_EQ(buffer.bytes(), returned == 0 ? kArgs : Bytes(5, 0xee));
           },
       .expected = [&](const fake::Hit& hit,
                       std::uint32_t status) { return hit_close(hit, blocks) ? 0 : status; },
       .left = [&](const fake::Hit& hit) { return left_behind(hit, blocks); }},
      kFailure);
}

}  // namespace
