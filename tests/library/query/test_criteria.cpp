// A filter's criteria, rebuilt as a list in the caller's buffer.

#include <cstring>

#include "query/align.h"
#include "rov.h"
#include "tests/library/query/support.h"

namespace {

using fake::any;
using fake::call;
using namespace query_test;

constexpr qim_node_id_t kFilter = 0x08300040;
constexpr const char* kCriteriaGet = "qim_filter_criteria_get";

using Criteria = std::vector<fake::Criterion>;

void put(const Criteria& criteria) {
  fake::remove_node(kFilter);
  fake::node(kFilter).filter({.match = 1, .criteria = criteria}).link(0x081, 9);
}

std::uint32_t bytes_needed(const Criteria& criteria) {
  std::uint32_t total = 0;
  for (const fake::Criterion& criterion : criteria) {
    total += 32 + static_cast<std::uint32_t>(criterion.args.size());
  }
  return total;
}

// What the buffer must hold: each record, its arguments at the next multiple of 8, the next record
// at the next; zeros between and behind.
Bytes image_of(const Criteria& criteria, const Buffer& at, std::uint8_t* start) {
  Bytes image(at.size());
  const auto base = reinterpret_cast<std::uintptr_t>(start);
  const auto align = [base](std::size_t position) { return (base + position + 7) / 8 * 8 - base; };
  std::size_t position = 0;
  for (std::size_t i = 0; i < criteria.size(); ++i) {
    const Bytes& args = criteria[i].args;
    const std::size_t args_at = align(position + sizeof(qim_criterion_t));
    const std::size_t following = align(args_at + args.size());
    qim_criterion_t record{};
    if (i + 1 < criteria.size())
      record.next = reinterpret_cast<qim_criterion_t*>(start + following);
    record.type = criteria[i].type;
    record.args_len = static_cast<std::uint32_t>(args.size());
    record.args = start + args_at;
    std::memcpy(&image.at(position), &record, sizeof record);
    std::copy(args.begin(), args.end(), image.begin() + static_cast<std::ptrdiff_t>(args_at));
    position = following;
  }
  return image;
}

class CriteriaGet : public QueryTest {
 protected:
  static std::uint32_t get(Buffer& buffer) {
    return qim_filter_criteria_get(kSes, kFilter, buffer.size(), buffer.data());
  }
  static void expect_image(const Criteria& criteria, Buffer& buffer) {
    EXPECT_EQ(buffer.bytes(), image_of(criteria, buffer, buffer.data()));
  }

  // Lets the decoder build a filter whose criteria claim these numbers of argument bytes. Each has
  // an argument buffer of 8 bytes.
  static void decode_claiming(const std::vector<std::uint32_t>& lengths) {
    fake::node(kFilter).filter({}).link(0x081, 9);
    fake::script("tlvo_dec_tlva_to_struct", [lengths](const fake::Call& made) {
      qim_node_t& node = **made.pointer<qim_node_t*>(0);
      node.type = QIM_NODE_FILTER;
      qim_criterion_t** link = &node.body.filter.crit;
      for (const std::uint32_t length : lengths) {
        *link = static_cast<qim_criterion_t*>(fake::allocate(sizeof(qim_criterion_t), pool()));
        (*link)->type = 3;
        (*link)->args_len = length;
        (*link)->args = static_cast<std::uint8_t*>(fake::allocate(8, pool()));
        link = &(*link)->next;
      }
      return 0u;
    });
  }
};

const Criteria kTwo = {{5, {1, 2, 3}}, {6, {}}};

TEST(Align8, rounds_addresses_up_to_multiples_of_8) {
  for (std::uintptr_t address = 0; address < 64; ++address) {
    EXPECT_EQ(qim::query::qim_align8(address), (address + 7) / 8 * 8);
  }
  const std::uintptr_t last = ~std::uintptr_t{7};
  EXPECT_EQ(qim::query::qim_align8(last), last);
  EXPECT_EQ(qim::query::qim_align8(last - 1), last);
}

TEST_F(CriteriaGet, lays_out_records_and_arguments_at_multiples_of_8) {
  put(kTwo);
  Buffer buffer(bytes_needed(kTwo));
  EXPECT_EQ(get(buffer), 0u);
  expect_image(kTwo, buffer);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(CriteriaGet, starts_with_the_first_record_and_ends_the_list_with_null) {
  put(kTwo);
  Buffer buffer(200);
  EXPECT_EQ(get(buffer), 0u);
  const auto* const first = reinterpret_cast<const qim_criterion_t*>(buffer.data());
  EXPECT_EQ(first->type, 5u);
  ASSERT_EQ(first->args_len, 3u);
  EXPECT_EQ(Bytes(first->args, first->args + 3), (Bytes{1, 2, 3}));
  ASSERT_NE(first->next, nullptr);
  EXPECT_EQ(first->next->type, 6u);
  EXPECT_EQ(first->next->args_len, 0u);
  EXPECT_EQ(first->next->next, nullptr);
}

TEST_F(CriteriaGet, points_at_nothing_outside_the_buffer) {
  put({{5, counting(9)}, {6, counting(1)}, {7, counting(8)}});
  Buffer buffer(160);
  EXPECT_EQ(get(buffer), 0u);
  const std::uint8_t* const start = buffer.data();
  const std::uint8_t* const end = start + buffer.size();
  const auto* at = reinterpret_cast<const qim_criterion_t*>(start);
  for (; at != nullptr; at = at->next) {
    EXPECT_GE(at->args, start);
    EXPECT_LE(at->args + at->args_len, end);
    EXPECT_GE(reinterpret_cast<const std::uint8_t*>(at), start);
  }
}

TEST_F(CriteriaGet, any_list_fits_a_buffer_of_exactly_its_total_bytes_at_any_alignment_allowed) {
  for (std::size_t first = 0; first <= 17; ++first) {
    for (std::size_t second = 0; second <= 17; ++second) {
      const Criteria criteria = {{1, counting(first)}, {2, counting(second)}, {3, counting(first)}};
      put(criteria);
      for (std::size_t shift = 0; shift < 16; shift += alignof(qim_criterion_t)) {
        SCOPED_TRACE(testing::Message() << first << ", " << second << " at " << shift);
        Buffer buffer(bytes_needed(criteria), shift);
        ASSERT_EQ(get(buffer), 0u);
        expect_image(criteria, buffer);
      }
    }
  }
}

TEST_F(CriteriaGet, zeroes_the_whole_buffer_first_and_nothing_beyond_it) {
  put({{5, {1}}});
  Buffer buffer(1000);
  EXPECT_EQ(get(buffer), 0u);
  EXPECT_EQ(buffer.bytes(100, 900), Bytes(900));
}

TEST_F(CriteriaGet, filter_without_criteria_zeroes_the_buffer) {
  put({});
  Buffer buffer(24);
  EXPECT_EQ(get(buffer), 0u);
  EXPECT_EQ(buffer.bytes(), Bytes(24));
}

TEST_F(CriteriaGet, filter_without_criteria_needs_no_buffer) {
  put({});
  EXPECT_EQ(qim_filter_criteria_get(kSes, kFilter, 0, nullptr), 0u);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(CriteriaGet, opens_the_node_through_the_session_and_closes_it) {
  put(kTwo);
  Buffer buffer(100);
  EXPECT_EQ(qim_filter_criteria_get(0xf0000001, kFilter, 100, buffer.data()), 0u);
  EXPECT_EQ(fake::calls()[0], call("rov_node_parms_get", 0xf0000001, fake::id(kFilter), any));
  EXPECT_EQ(fake::count("rov_node_parms_get"), 1u);
}

// ---- Failures --------------------------------------------------------------------------------

TEST_F(CriteriaGet, failing_open_is_returned_and_reported_at_line_209) {
  Buffer buffer(100);
  EXPECT_EQ(get(buffer), kNoItem);
  EXPECT_EQ(qim_filter_criteria_get(kSes, 0, 100, buffer.data()), kInvalid);
  fake::node(kFilter).hfilter({}).link(0x081, 9).link(0x102, 9);
  EXPECT_EQ(get(buffer), kNodeType);
  EXPECT_TRUE(buffer.untouched());
  EXPECT_EQ(reports_of(kCriteriaGet), (Places{{kNoItem, 209}, {kInvalid, 209}, {kNodeType, 209}}));
}

TEST_F(CriteriaGet, buffer_shorter_than_the_total_fails_at_line_214_untouched) {
  put(kTwo);
  Buffer buffer(bytes_needed(kTwo) - 1);
  EXPECT_EQ(get(buffer), kBufSmall);
  EXPECT_EQ(qim_filter_criteria_get(kSes, kFilter, 0, buffer.data()), kBufSmall);
  EXPECT_TRUE(buffer.untouched());
  EXPECT_EQ(fake::live_blocks(), 0u);
  EXPECT_EQ(reports_of(kCriteriaGet), (Places{{kBufSmall, 214}, {kBufSmall, 214}}));
}

TEST_F(CriteriaGet, total_is_compared_without_a_sign) {
  decode_claiming({0x7fffffe0});  // a total of 0x80000000
  Buffer buffer(100);
  EXPECT_EQ(get(buffer), kBufSmall);
  EXPECT_TRUE(buffer.untouched());
}

TEST_F(CriteriaGet, misaligned_buffer_fails_at_line_218_before_anything_is_written) {
  put(kTwo);
  Places expected;
  for (std::size_t shift = 1; shift < 16; ++shift) {
    if (shift % alignof(qim_criterion_t) == 0) continue;
    SCOPED_TRACE(shift);
    Buffer buffer(100, shift);
    EXPECT_EQ(get(buffer), kInvalid);
    EXPECT_TRUE(buffer.untouched());
    expected.push_back({kInvalid, 218});
  }
  EXPECT_EQ(reports_of(kCriteriaGet), expected);
  EXPECT_GE(expected.size(), 12u);
}

TEST_F(CriteriaGet, records_decide_the_alignment_that_is_asked_for) {
  EXPECT_EQ(alignof(qim_criterion_t), sizeof(void*));
  put(kTwo);
  Buffer buffer(100, 4);
  EXPECT_EQ(get(buffer), sizeof(void*) == 4 ? 0u : kInvalid);
}

TEST_F(CriteriaGet, length_is_looked_at_before_alignment) {
  put(kTwo);
  Buffer buffer(bytes_needed(kTwo) - 1, 2);
  EXPECT_EQ(get(buffer), kBufSmall);
}

TEST_F(CriteriaGet, alignment_is_asked_for_even_without_criteria) {
  put({});
  Buffer buffer(8, 2);
  EXPECT_EQ(get(buffer), kInvalid);
  EXPECT_TRUE(buffer.untouched());
}

// Totals wrap around where the decoder gives lengths that no filter can have.
TEST_F(CriteriaGet, criterion_that_does_not_fit_fails_at_line_240) {
  for (const std::uint32_t length : {0xffffffe0u, 0xffffffe8u, 0xfffffff0u, 0xffffffffu}) {
    SCOPED_TRACE(length);
    fake::clear_calls();
    decode_claiming({length});
    Buffer buffer(72);
    EXPECT_EQ(get(buffer), kInternal);
    EXPECT_EQ(buffer.bytes(), Bytes(72)) << "zeroed, and no record";
    EXPECT_EQ(fake::live_blocks(), 0u) << "the node is closed";
    EXPECT_EQ(reports_of(kCriteriaGet).back(), (Place{kInternal, 240}));
  }
}

TEST_F(CriteriaGet, records_written_before_one_that_does_not_fit_stay) {
  decode_claiming({8, 0xffffffb8});  // 40 and 0xffffffd8: a total of 0
  Buffer buffer(72);
  EXPECT_EQ(get(buffer), kInternal);
  EXPECT_EQ(buffer.bytes(), image_of({{3, Bytes(8)}}, buffer, buffer.data()))
      << "the first, linked to none";
}

// A total of 0 lets every buffer length through to the place where each criterion is measured: the
// first needs the record, 8 bytes, and none behind.
TEST_F(CriteriaGet, criterion_fits_only_with_its_arguments_and_the_gap_behind_them) {
  for (const std::uint32_t length : {1u, 7u, 8u}) {
    SCOPED_TRACE(length);
    const std::uint32_t enough = sizeof(qim_criterion_t) + 8;
    decode_claiming({length, 0xffffffc0 - length});
    Buffer fits(enough);
    EXPECT_EQ(get(fits), kInternal) << "the second";
    EXPECT_EQ(fits.bytes(), image_of({{3, Bytes(length)}}, fits, fits.data()));
    Buffer short_of_one(enough - 1);
    EXPECT_EQ(get(short_of_one), kInternal) << "the first";
    EXPECT_EQ(short_of_one.bytes(), Bytes(enough - 1));
  }
}

// Where addresses have 32 bits these arguments would end at the beginning of memory, before the
// buffer's end.
TEST_F(CriteriaGet, arguments_that_end_beyond_the_last_address_do_not_fit) {
  alignas(8) std::uint8_t buffer[72] = {};
  const auto args = reinterpret_cast<std::uintptr_t>(buffer) + sizeof(qim_criterion_t);
  const std::uint32_t length = 64 - static_cast<std::uint32_t>(args);
  decode_claiming({length, 0xffffffc0 - length});
  EXPECT_EQ(qim_filter_criteria_get(kSes, kFilter, sizeof buffer, buffer), kInternal);
  EXPECT_EQ(reports_of(kCriteriaGet).back(), (Place{kInternal, 240}));
}

TEST_F(CriteriaGet, failing_close_is_ignored) {
  put(kTwo);
  Buffer buffer(100);
  fake::fail("mem_free", kFailure, 2);  // the TLV is freed first
  EXPECT_EQ(get(buffer), 0u);
  EXPECT_EQ(fake::injected(), "mem_free");
  expect_image(kTwo, buffer);
  EXPECT_EQ(reports_of(kCriteriaGet), Places{});
  expect_left(4);
}

TEST_F(CriteriaGet, failing_close_is_ignored_after_a_failure_too) {
  put(kTwo);
  Buffer buffer(4);
  fake::fail("mem_free", kFailure, 2);
  EXPECT_EQ(get(buffer), kBufSmall);
  expect_left(4);
}

TEST_F(CriteriaGet, reports_under_the_debug_bit_only) {
  report_nothing();
  Buffer buffer(100, 1);
  EXPECT_EQ(get(buffer), kNoItem);
  put(kTwo);
  EXPECT_EQ(get(buffer), kInvalid);
  EXPECT_EQ(qim_filter_criteria_get(kSes, kFilter, 0, buffer.data()), kBufSmall);
  decode_claiming({0xffffffe0});
  Buffer aligned(72);
  EXPECT_EQ(get(aligned), kInternal);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(CriteriaGet, sweep) {
  const Criteria one = {{5, {1, 2, 3}}};
  const NodeBlocks blocks = {.scratch = 1, .decoded = 2, .priv = false};
  Buffer buffer(bytes_needed(one));
  fake::sweep(
      {.prepare = [&] { put(one); },
       .run =
           [&] {
             buffer.refill();
             return get(buffer);
           },
       .check =
           [&](std::uint32_t returned, const fake::Hit&) {
             if (returned == 0) {
               expect_image(one, buffer);
             } else {
               EXPECT_TRUE(buffer.untouched());
             }
           },
       .expected = [&](const fake::Hit& hit,
                       std::uint32_t status) { return hit_close(hit, blocks) ? 0 : status; },
       .left = [&](const fake::Hit& hit) { return left_behind(hit, blocks); }},
      kFailure);
}

}  // namespace
