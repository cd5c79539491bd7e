// A whole node: its record, and every variable part in the caller's buffer.

#include <cstring>

#include "rov.h"
#include "tests/library/query/support.h"

namespace {

using fake::any;
using fake::call;
using namespace query_test;

constexpr qim_node_id_t kRead = 0x08300050;
constexpr const char* kReadAll = "qim_node_readall";

const Bytes kPriv = {0xa1, 0xa2, 0xa3, 0xa4, 0xa5};

void put_action(const Bytes& args, const Bytes& priv = {}) {
  fake::remove_node(kRead);
  fake::node(kRead).action({.type = 1, .args = args}).link(0x141, 9).priv(priv);
}
void put_def(const Bytes& args, const Bytes& priv = {}) {
  fake::remove_node(kRead);
  fake::node(kRead).def({.type = 1, .args = args}).link(0x301, 9).link(0x302, 9).priv(priv);
}
void put_filter(const std::vector<fake::Criterion>& criteria, const Bytes& priv = {}) {
  fake::remove_node(kRead);
  fake::node(kRead).filter({.match = 1, .criteria = criteria}).link(0x081, 9).priv(priv);
}

class ReadAll : public QueryTest {
 protected:
  void SetUp() override {
    QueryTest::SetUp();
    spoil(out_);
  }

  std::uint32_t read(Buffer& buffer, std::int32_t type = 0) {
    return read(buffer, static_cast<std::int32_t>(buffer.size()), type);
  }
  std::uint32_t read(Buffer& buffer, std::int32_t length, std::int32_t type) {
    return qim_node_readall(kSes, kRead, type, &out_, length, buffer.data());
  }

  // The record is what reading the node gives, but for these pointers.
  void expect_record(const void* priv, const void* variable) {
    qim_node_t expected;
    ASSERT_EQ(qim_node_read(kSes, kRead, 0, &expected), 0u);
    expected.priv_buf = static_cast<std::uint8_t*>(const_cast<void*>(priv));
    auto* const bytes = static_cast<std::uint8_t*>(const_cast<void*>(variable));
    if (expected.type == QIM_NODE_FILTER) {
      expected.body.filter.crit = reinterpret_cast<qim_criterion_t*>(bytes);
    } else if (expected.type == QIM_NODE_ACTION) {
      expected.body.action.args = bytes;
    } else if (expected.type == QIM_NODE_DEF) {
      expected.body.def.args = bytes;
    } else {
      EXPECT_EQ(variable, nullptr);
    }
    EXPECT_EQ(bytes_of(out_), bytes_of(expected));
  }

  qim_node_t out_;
};

// ---- What comes back -------------------------------------------------------------------------

TEST_F(ReadAll, five_bytes_of_private_data_and_twenty_of_arguments_fit_32_bytes) {
  put_action(counting(20), kPriv);
  Buffer buffer(32);
  EXPECT_EQ(read(buffer), 0u);
  EXPECT_EQ(buffer.bytes(0, 5), kPriv);
  EXPECT_EQ(buffer.bytes(5, 3), Bytes(3, 0xee));
  EXPECT_EQ(buffer.bytes(8, 20), counting(20));
  EXPECT_EQ(buffer.bytes(28, 4), Bytes(4, 0xee)) << "what lies beyond them is not touched";
  EXPECT_EQ(fake::reports().size(), 0u);
  expect_record(buffer.data(), buffer.data() + 8);
}

TEST_F(ReadAll, action_arguments_without_private_data_start_the_buffer) {
  put_action(counting(3));
  Buffer buffer(3, 1);
  EXPECT_EQ(read(buffer), 0u);
  EXPECT_EQ(buffer.bytes(), counting(3));
  expect_record(nullptr, buffer.data());
}

TEST_F(ReadAll, def_arguments) {
  put_def(counting(20), kPriv);
  Buffer buffer(28);
  EXPECT_EQ(read(buffer), 0u);
  EXPECT_EQ(buffer.bytes(8, 20), counting(20));
  expect_record(buffer.data(), buffer.data() + 8);
}

TEST_F(ReadAll, filter_criteria) {
  put_filter({{5, {1, 2, 3}}, {6, {}}}, kPriv);
  Buffer buffer(8 + 67);
  EXPECT_EQ(read(buffer), 0u);
  expect_record(buffer.data(), buffer.data() + 8);
  const qim_criterion_t* const first = out_.body.filter.crit;
  EXPECT_EQ(first->type, 5u);
  EXPECT_EQ(Bytes(first->args, first->args + first->args_len), (Bytes{1, 2, 3}));
  ASSERT_NE(first->next, nullptr);
  EXPECT_EQ(first->next->type, 6u);
  EXPECT_EQ(first->next->next, nullptr);
  EXPECT_EQ(buffer.bytes(0, 5), kPriv) << "the criteria's buffer begins behind it";
}

TEST_F(ReadAll, criteria_take_all_that_remains_of_the_buffer) {
  put_filter({{5, {1}}}, kPriv);
  Buffer buffer(200);
  EXPECT_EQ(read(buffer), 0u);
  EXPECT_EQ(buffer.bytes(5, 3), Bytes(3, 0xee));
  EXPECT_EQ(buffer.bytes(100, 100), Bytes(100)) << "zeroed to the end";
}

TEST_F(ReadAll, private_data_alone) {
  fake::node(kRead).ifelse().priv(kPriv);
  for (std::uint16_t field = 0x241; field <= 0x244; ++field) fake::node(kRead).link(field, 9);
  Buffer buffer(5);
  EXPECT_EQ(read(buffer), 0u);
  EXPECT_EQ(buffer.bytes(), kPriv);
  expect_record(buffer.data(), nullptr);
}

TEST_F(ReadAll, types_without_variable_parts_need_no_buffer) {
  const std::vector<std::function<void(fake::Node&)>> kinds = {
      [](fake::Node& node) { node.ifelse(); },
      [](fake::Node& node) { node.hfilter({}); },
      [](fake::Node& node) { node.haction({}); },
      [](fake::Node& node) { node.police({}); },
      [](fake::Node& node) { node.group_body({}); },
      [](fake::Node& node) { node.pinst(); },
      [](fake::Node& node) { node.edest(); },
      [](fake::Node& node) { node.data_set(); },
      [](fake::Node& node) { node.data_set().dset_name(name_of(at_interface(5))); }};
  for (const auto& kind : kinds) {
    fake::remove_node(kRead);
    kind(fake::node(kRead));
    fake::clear_calls();
    spoil(out_);
    EXPECT_EQ(qim_node_readall(kSes, kRead, 0, &out_, 0, nullptr), 0u);
    EXPECT_EQ(fake::count("rov_node_parms_get"), 1u) << "the read is all";
    expect_record(nullptr, nullptr);
  }
}

TEST_F(ReadAll, filter_without_criteria_has_no_head_and_nothing_more_is_called) {
  put_filter({});
  EXPECT_EQ(qim_node_readall(kSes, kRead, 0, &out_, 0, nullptr), 0u);
  EXPECT_EQ(out_.body.filter.crit, nullptr);
  EXPECT_EQ(fake::count("rov_node_parms_get"), 1u);
}

TEST_F(ReadAll, action_and_def_without_arguments_have_no_pointer_and_nothing_more_is_called) {
  for (const auto put : {put_action, put_def}) {
    put({}, {});
    fake::clear_calls();
    spoil(out_);
    EXPECT_EQ(qim_node_readall(kSes, kRead, 0, &out_, 0, nullptr), 0u);
    EXPECT_EQ(fake::count("rov_node_parms_get"), 1u);
    expect_record(nullptr, nullptr);
  }
}

TEST_F(ReadAll, parts_are_aligned_as_addresses) {
  put_action(counting(4), kPriv);
  for (std::size_t shift = 0; shift < 16; ++shift) {
    Buffer buffer(32, shift);
    EXPECT_EQ(read(buffer), 0u);
    const auto address = reinterpret_cast<std::uintptr_t>(out_.body.action.args);
    EXPECT_EQ(address % 8, 0u);
    EXPECT_EQ(address, (reinterpret_cast<std::uintptr_t>(buffer.data()) + 5 + 7) / 8 * 8);
    EXPECT_EQ(Bytes(out_.body.action.args, out_.body.action.args + 4), counting(4));
  }
}

TEST_F(ReadAll, private_data_makes_a_misaligned_buffer_good_for_criteria) {
  put_filter({{5, {1}}}, kPriv);
  Buffer buffer(64, 1);
  EXPECT_EQ(read(buffer), 0u);
  EXPECT_EQ(out_.body.filter.crit, reinterpret_cast<qim_criterion_t*>(buffer.data() + 7));
}

// ---- How it is read --------------------------------------------------------------------------

TEST_F(ReadAll, reads_the_record_then_the_private_data_then_the_variable_part) {
  put_action(counting(20), kPriv);
  Buffer buffer(32);
  EXPECT_EQ(qim_node_readall(0xf0000001, kRead, QIM_NODE_ACTION, &out_, 32, buffer.data()), 0u);
  const fake::Calls reads = fake::calls_of("rov_node_data_get");
  ASSERT_EQ(reads.size(), 3u);
  EXPECT_EQ(reads[1], call("rov_node_data_get", 0xf0000001, fake::id(kRead), 0, nullptr, 0, nullptr,
                           5, buffer.data()));
  EXPECT_EQ(fake::calls_of("rov_node_parms_get"),
            (fake::Calls{call("rov_node_parms_get", 0xf0000001, fake::id(kRead), any),
                         call("rov_node_parms_get", 0xf0000001, fake::id(kRead), any)}));
}

TEST_F(ReadAll, hands_the_expected_type_to_the_read) {
  put_action(counting(3));
  Buffer buffer(3);
  EXPECT_EQ(read(buffer, QIM_NODE_ACTION), 0u);
  EXPECT_EQ(read(buffer, QIM_NODE_DEF), kNodeType);
  EXPECT_EQ(bytes_of(out_), Bytes(sizeof out_));
  EXPECT_EQ(reports_of(kReadAll), (Places{{kNodeType, 495}}));
  expect_left(1);  // what was decoded of a node of another type
}

TEST_F(ReadAll, does_not_detect_a_node_that_changes_between_the_reads) {
  put_action(counting(3), kPriv);
  fake::script("rov_node_data_get", [](const fake::Call& made) {
    const fake::Node& node = *fake::find_node(kRead);
    const Bytes tlv = node.tlv_bytes();
    if (made.u32(5) != 0) std::memcpy(made.pointer<void>(6), tlv.data(), tlv.size());
    if (made.u32(9) != 0) std::memcpy(made.pointer<void>(10), kPriv.data(), kPriv.size());
    if (made.u32(5) == 0) put_action(counting(12), kPriv);
    return 0u;
  });
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), 0u);
  EXPECT_EQ(out_.body.action.args_len, 3u);
  EXPECT_EQ(out_.body.action.args, buffer.data() + 8);
  EXPECT_EQ(buffer.bytes(8, 8), Bytes(8, 0xee)) << "the longer arguments did not fit";
  EXPECT_EQ(reports_of("qim_node_arg_get"), (Places{{kBufSmall, 284}}));
}

// ---- Room ------------------------------------------------------------------------------------

TEST_F(ReadAll, private_data_without_room_fails_at_line_504) {
  put_action(counting(20), kPriv);
  Buffer buffer(4);
  EXPECT_EQ(read(buffer), kBufSmall);
  EXPECT_TRUE(buffer.untouched());
  EXPECT_EQ(fake::count("rov_node_data_get"), 1u);
  EXPECT_EQ(reports_of(kReadAll), (Places{{kBufSmall, 504}}));
  expect_record(nullptr, nullptr);
}

TEST_F(ReadAll, action_arguments_without_room_fail_at_line_535_with_the_private_data_in_place) {
  put_action(counting(20), kPriv);
  Buffer buffer(27);
  EXPECT_EQ(read(buffer), kBufSmall);
  EXPECT_EQ(buffer.bytes(0, 5), kPriv);
  EXPECT_EQ(buffer.bytes(5, 22), Bytes(22, 0xee));
  EXPECT_EQ(fake::count("rov_node_parms_get"), 1u) << "the node is not opened again";
  EXPECT_EQ(reports_of(kReadAll), (Places{{kBufSmall, 535}}));
  expect_record(buffer.data(), nullptr);
  Buffer enough(28);
  EXPECT_EQ(read(enough), 0u);
}

TEST_F(ReadAll, def_arguments_without_room_fail_at_line_547) {
  put_def(counting(20), kPriv);
  Buffer buffer(27);
  EXPECT_EQ(read(buffer), kBufSmall);
  EXPECT_EQ(reports_of(kReadAll), (Places{{kBufSmall, 547}}));
  expect_record(buffer.data(), nullptr);
}

TEST_F(ReadAll, criteria_without_room_fail_at_line_522) {
  put_filter({{5, {1, 2, 3}}}, kPriv);
  Buffer buffer(8 + 34);
  EXPECT_EQ(read(buffer), kBufSmall);
  EXPECT_EQ(fake::count("rov_node_parms_get"), 1u);
  EXPECT_EQ(reports_of(kReadAll), (Places{{kBufSmall, 522}}));
  expect_record(buffer.data(), nullptr);
}

TEST_F(ReadAll, what_remains_may_turn_negative) {
  put_action({}, kPriv);
  Buffer buffer(5);
  EXPECT_EQ(read(buffer), 0u) << "nothing more is needed";
  put_action(counting(1), kPriv);
  EXPECT_EQ(read(buffer), kBufSmall);
  Buffer aligned(8);
  EXPECT_EQ(read(aligned), kBufSmall) << "nothing remains";
  EXPECT_EQ(reports_of(kReadAll), (Places{{kBufSmall, 535}, {kBufSmall, 535}}));
}

TEST_F(ReadAll, buffer_length_has_a_sign) {
  Buffer buffer(8);
  put_action({});
  EXPECT_EQ(read(buffer, -1, 0), 0u) << "nothing is needed";
  put_action(counting(1));
  EXPECT_EQ(read(buffer, -1, 0), kBufSmall);
  put_action({}, kPriv);
  EXPECT_EQ(read(buffer, INT32_MIN, 0), kBufSmall);
  put_def(counting(1));
  EXPECT_EQ(read(buffer, -1, 0), kBufSmall);
  put_filter({{1, {}}});
  EXPECT_EQ(read(buffer, -1, 0), kBufSmall);
  EXPECT_TRUE(buffer.untouched());
  EXPECT_EQ(reports_of(kReadAll),
            (Places{{kBufSmall, 535}, {kBufSmall, 504}, {kBufSmall, 547}, {kBufSmall, 522}}));
}

// Lengths that no node has are negative and so never too great.
class ReadAllHugeLength : public ReadAll {
 protected:
  // The database claims so many bytes of private data for the node, and writes none.
  static void claim_private_data(std::uint32_t length) {
    fake::script("rov_node_parms_get", [length](const fake::Call& made) {
      auto& parms = *made.pointer<rov_node_parms_t>(5);
      parms = fake::find_node(kRead)->parms();
      parms.priv_len = length;
      return 0u;
    });
    fake::script("mem_alloc_ary", [](const fake::Call& made) {
      for (std::size_t i = 1; i + 1 < made.args.size(); i += 2) {
        const std::uint32_t size = made.u32(i);
        const bool none = size == 0 || size > 4096;
        *made.pointer<void*>(i + 1) = none ? nullptr : fake::allocate(size, pool());
      }
      return 0u;
    });
    fake::script("rov_node_data_get", [](const fake::Call& made) {
      const Bytes tlv = fake::find_node(kRead)->tlv_bytes();
      if (made.u32(5) != 0) std::memcpy(made.pointer<void>(6), tlv.data(), tlv.size());
      return 0u;
    });
  }
};

TEST_F(ReadAllHugeLength, of_private_data_passes) {
  put_action({});
  claim_private_data(0x80000000);
  Buffer buffer(64);
  EXPECT_EQ(read(buffer), 0u);
  EXPECT_EQ(out_.priv_buf, buffer.data());
  EXPECT_EQ(fake::calls_of("rov_node_data_get").at(1).u32(9), 0x80000000u);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(ReadAllHugeLength, of_private_data_leaves_no_room_for_arguments) {
  put_action(counting(1));
  claim_private_data(0x80000000);
  Buffer buffer(64);
  EXPECT_EQ(read(buffer), kBufSmall);
  EXPECT_EQ(reports_of(kReadAll), (Places{{kBufSmall, 535}}));
}

TEST_F(ReadAllHugeLength, of_criteria_passes_here_and_fails_where_they_are_fetched) {
  fake::node(kRead).filter({}).link(0x081, 9);
  fake::script("tlvo_dec_tlva_to_struct", [](const fake::Call& made) {
    qim_node_t& node = **made.pointer<qim_node_t*>(0);
    node.type = QIM_NODE_FILTER;
    auto* const criterion =
        static_cast<qim_criterion_t*>(fake::allocate(sizeof(qim_criterion_t), pool()));
    criterion->args_len = 0x7fffffe0;  // a total of 0x80000000
    criterion->args = static_cast<std::uint8_t*>(fake::allocate(8, pool()));
    node.body.filter.crit = criterion;
    return 0u;
  });
  Buffer buffer(64);
  EXPECT_EQ(read(buffer), kBufSmall);
  EXPECT_EQ(reports_of("qim_filter_criteria_get"), (Places{{kBufSmall, 214}}));
  EXPECT_EQ(reports_of(kReadAll), (Places{{kBufSmall, 526}}));
  EXPECT_EQ(out_.body.filter.crit, nullptr);
}

// ---- Failures --------------------------------------------------------------------------------

TEST_F(ReadAll, failing_read_is_returned_and_reported_at_line_495) {
  Buffer buffer(64);
  EXPECT_EQ(read(buffer), kNoItem);
  EXPECT_EQ(bytes_of(out_), Bytes(sizeof out_));
  put_action(counting(3), kPriv);
  spoil(out_);
  fake::fail("rov_node_data_get", kFailure);
  EXPECT_EQ(read(buffer), kFailure);
  EXPECT_EQ(bytes_of(out_), Bytes(sizeof out_));
  EXPECT_EQ(qim_node_readall(kSes, 0, 0, &out_, 64, buffer.data()), kInvalid);
  EXPECT_TRUE(buffer.untouched());
  EXPECT_EQ(reports_of(kReadAll), (Places{{kNoItem, 495}, {kFailure, 495}, {kInvalid, 495}}));
}

TEST_F(ReadAll, failing_close_of_the_read_is_a_failing_read) {
  put_action(counting(3));
  Buffer buffer(64);
  fake::fail("mem_free", kFailure, 3);  // the TLV, the arguments, the node
  EXPECT_EQ(read(buffer), kFailure);
  EXPECT_TRUE(buffer.untouched());
  EXPECT_EQ(reports_of(kReadAll), (Places{{kFailure, 495}}));
  EXPECT_EQ(out_.id, kRead) << "what the read wrote stays";
  expect_left(1);
}

TEST_F(ReadAll, failing_fetch_of_private_data_is_reported_at_line_508) {
  put_action(counting(3), kPriv);
  Buffer buffer(64);
  fake::fail("rov_node_data_get", kFailure, 2);
  EXPECT_EQ(read(buffer), kFailure);
  EXPECT_TRUE(buffer.untouched());
  EXPECT_EQ(reports_of(kReadAll), (Places{{kFailure, 508}}));
  expect_record(nullptr, nullptr);
}

TEST_F(ReadAll, failing_fetch_of_a_variable_part_is_reported_at_its_line) {
  Places expected;
  const auto expect_failure = [&](int line) {
    Buffer buffer(64);
    fake::clear_calls();
    fake::fail("rov_node_parms_get", kFailure, 2);
    EXPECT_EQ(read(buffer), kFailure);
    EXPECT_EQ(buffer.bytes(0, 5), kPriv);
    EXPECT_EQ(buffer.bytes(5, 59), Bytes(59, 0xee));
    expected.push_back({kFailure, line});
    expect_record(buffer.data(), nullptr);
  };
  put_filter({{5, {1, 2, 3}}}, kPriv);
  expect_failure(526);
  put_action(counting(3), kPriv);
  expect_failure(538);
  put_def(counting(3), kPriv);
  expect_failure(550);
  EXPECT_EQ(reports_of(kReadAll), expected);
}

TEST_F(ReadAll, misaligned_buffer_fails_where_criteria_are_fetched) {
  put_filter({{5, {1}}});
  Buffer buffer(64, 2);
  EXPECT_EQ(read(buffer), kInvalid);
  EXPECT_TRUE(buffer.untouched());
  EXPECT_EQ(reports_of(kReadAll), (Places{{kInvalid, 526}}));
}

TEST_F(ReadAll, failing_close_in_a_fetch_is_ignored) {
  put_action(counting(3));
  Buffer buffer(64);
  fake::fail("mem_free", kFailure, 6);  // the second open's node
  EXPECT_EQ(read(buffer), 0u);
  EXPECT_EQ(fake::injected(), "mem_free");
  expect_record(nullptr, buffer.data());
  expect_left(1);
}

TEST_F(ReadAll, reports_under_the_debug_bit_only) {
  report_nothing();
  Buffer buffer(64, 2);
  EXPECT_EQ(read(buffer), kNoItem);
  put_action(counting(3), kPriv);
  EXPECT_EQ(read(buffer, 4, 0), kBufSmall);
  fake::fail("rov_node_data_get", kFailure, 2);
  EXPECT_EQ(read(buffer), kFailure);
  EXPECT_EQ(read(buffer, 5, 0), kBufSmall);
  put_filter({{5, {1}}});
  EXPECT_EQ(read(buffer), kInvalid);
  EXPECT_EQ(fake::reports().size(), 0u);
}

// ---- Every platform call fails ---------------------------------------------------------------

struct Whole {
  const char* name;
  std::function<void()> put;
  std::size_t decoded;  // blocks of the pool
};
void PrintTo(const Whole& whole, std::ostream* os) {
  *os << whole.name;
}

class ReadAllSweep : public ReadAll, public testing::WithParamInterface<Whole> {
 protected:
  // In the second open's close no failure matters.
  static std::uint32_t expected(const fake::Hit& hit, std::uint32_t status) {
    return hit_close(hit, blocks()) && hit.nth > blocks().freed() ? 0 : status;
  }
  static NodeBlocks blocks() { return {.scratch = 1, .decoded = GetParam().decoded, .priv = true}; }
};

INSTANTIATE_TEST_SUITE_P(Types, ReadAllSweep,
                         testing::Values(Whole{"filter",
                                               [] {
                                                 put_filter({{5, {1, 2, 3}}}, kPriv);
                                               },
                                               2},
                                         Whole{"action", [] { put_action(counting(20), kPriv); },
                                               1},
                                         Whole{"def", [] { put_def(counting(20), kPriv); }, 1}),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(ReadAllSweep, leaves_the_record_self_contained) {
  Buffer buffer(64);
  fake::sweep({.prepare = GetParam().put,
               .run =
                   [&] {
                     buffer.refill();
                     spoil(out_);
                     return read(buffer);
                   },
               .check =
                   [&](std::uint32_t returned, const fake::Hit&) {
                     if (returned == 0) expect_record(buffer.data(), buffer.data() + 8);
                     const bool inside = out_.priv_buf == nullptr || out_.priv_buf == buffer.data();
                     EXPECT_TRUE(inside);
                   },
               .expected = expected,
               .left = [](const fake::Hit& hit) { return left_behind(hit, blocks()); }},
              kFailure);
}

}  // namespace
