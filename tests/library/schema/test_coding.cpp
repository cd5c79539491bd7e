// Records through the codec and back: the tables, the callbacks and the allocator at work together.

#include <algorithm>
#include <cstring>

#include "rov.h"
#include "schema/rows.h"
#include "tests/support/fake/fixture.h"
#include "tests/support/fake/records.h"
#include "tlvo.h"

namespace {

using fake::Bytes;
using fake::call;

class Coding : public fake::Test {
 protected:
  // Decodes into `record` as node decode does.
  std::uint32_t decode(const Bytes& tlv) {
    qim_node_t* at = &record;
    return qim_node_to_struct(&at, tlv.data(), static_cast<std::uint32_t>(tlv.size()),
                              TLVO_DEC_IN_PLACE);
  }

  static Bytes encode(const qim_node_t& node) {
    const std::uint32_t size = qim_node_get_tlv_sz(&node);
    Bytes bytes(size);
    std::uint32_t len = 0;
    std::uint32_t count = 0;
    EXPECT_EQ(qim_node_to_tlv(&node, bytes.data(), size, &len, &count, 0), 0u);
    EXPECT_EQ(len, size);
    EXPECT_EQ(count, 3u);
    return bytes;
  }

  // Has the body more fields than the table of layouts knows?
  bool has_grown() const {
    const qim::schema::Record& body = *qim::schema::node_type(record.type)->body;
    const auto coded = std::count_if(body.begin(), body.end(), [](const qim::schema::Row& row) {
      return row.coding != qim::schema::Coding::none;
    });
    return static_cast<std::size_t>(coded) > fake::record_layout(body.kind).tlv_order.size();
  }

  // Decodes the node's TLV, and encodes it to the same bytes; to more when the record has grown,
  // which are decoded to the same record.
  void there_and_back(const fake::Node& node) {
    ASSERT_EQ(decode(node.tlv_bytes()), 0u);
    const Bytes encoded = encode(record);
    if (!has_grown()) {
      EXPECT_EQ(encoded, node.tlv_bytes());
      return;
    }
    const qim_node_t first = record;
    record = {};
    ASSERT_EQ(decode(encoded), 0u);
    EXPECT_EQ(std::memcmp(&record, &first, sizeof first), 0);
  }

  static bool is_zero(const void* at, std::size_t size) {
    const auto* const bytes = static_cast<const std::uint8_t*>(at);
    return std::all_of(bytes, bytes + size, [](std::uint8_t byte) { return byte == 0; });
  }

  qim_node_t record{};
};

TEST_F(Coding, node_header) {
  there_and_back(fake::node(7).group(0x11).flags(0x22).ifelse());
  EXPECT_EQ(record.group, 0x11u);
  EXPECT_EQ(record.flags, 0x22u);
  EXPECT_EQ(record.type, 3u);
  EXPECT_EQ(record.links_total, 0u);
  EXPECT_EQ(record.id, 0u);
}

TEST_F(Coding, filter_with_criteria_in_order) {
  there_and_back(fake::node(7).filter(
      {.flags = 1, .match = 2, .nomatch = 3, .criteria = {{10, {1, 2, 3}}, {11, {}}, {12, {4}}}}));
  const qim_filter_t& filter = record.body.filter;
  EXPECT_EQ(filter.flags, 1u);
  EXPECT_EQ(filter.match, 2u);
  EXPECT_EQ(filter.nomatch, 3u);
  EXPECT_EQ(filter.crit_aux, 3u) << "the list routine reached its bookkeeping word";
  EXPECT_EQ(filter.crit_cnt, 0u) << "the codec counts nothing";
  EXPECT_EQ(filter.crit_bytes, 0u);
  const qim_criterion_t* const first = filter.crit;
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->type, 10u);
  ASSERT_EQ(first->args_len, 3u);
  EXPECT_EQ(std::memcmp(first->args, "\1\2\3", 3), 0);
  const qim_criterion_t* const second = first->next;
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second->type, 11u);
  EXPECT_EQ(second->args_len, 0u);
  EXPECT_EQ(second->args, nullptr);
  ASSERT_NE(second->next, nullptr);
  EXPECT_EQ(second->next->type, 12u);
  EXPECT_EQ(second->next->next, nullptr);
}

TEST_F(Coding, filter_takes_criteria_and_arguments_from_the_contexts_pool) {
  fake::node(7).filter({.criteria = {{10, {1, 2, 3}}, {11, {}}}});
  ASSERT_EQ(decode(fake::node(7).tlv_bytes()), 0u);
  EXPECT_EQ(fake::calls_of("mem_zalloc"),
            (fake::Calls{call("mem_zalloc", sizeof(qim_criterion_t), pool(), fake::any),
                         call("mem_zalloc", sizeof(qim_criterion_t), pool(), fake::any)}));
  ASSERT_EQ(fake::count("rov_tlv_to_bufptr"), 1u);
  EXPECT_EQ(fake::calls_of("rov_tlv_to_bufptr")[0].args[2], fake::Arg(pool()));
  EXPECT_EQ(fake::live_blocks(), 3u);
}

TEST_F(Coding, filter_without_criteria_has_none) {
  there_and_back(fake::node(7).filter({.flags = 5}));
  EXPECT_EQ(record.body.filter.crit, nullptr);
  EXPECT_EQ(fake::live_blocks(), 0u);
}

TEST_F(Coding, hfilter) {
  there_and_back(
      fake::node(7).hfilter({.type = 1, .true_act = 2, .false_act = 3, .nomatch_act = 4}));
  EXPECT_EQ(record.body.hfilter.type, 1u);
  EXPECT_EQ(record.body.hfilter.true_act, 2u);
  EXPECT_EQ(record.body.hfilter.false_act, 3u);
  EXPECT_EQ(record.body.hfilter.nomatch_act, 4u);
}

TEST_F(Coding, action) {
  there_and_back(fake::node(7).action({.type = 9, .args = {8, 7, 6, 5, 4}}));
  EXPECT_EQ(record.body.action.type, 9u);
  ASSERT_EQ(record.body.action.args_len, 5u);
  EXPECT_EQ(std::memcmp(record.body.action.args, "\10\7\6\5\4", 5), 0);
}

TEST_F(Coding, action_without_arguments) {
  there_and_back(fake::node(7).action({.type = 9}));
  EXPECT_EQ(record.body.action.args_len, 0u);
  EXPECT_EQ(record.body.action.args, nullptr);
  EXPECT_EQ(fake::live_blocks(), 0u);
}

TEST_F(Coding, haction) {
  there_and_back(fake::node(7).haction({.type = 0xfedcba98}));
  EXPECT_EQ(record.body.haction.type, 0xfedcba98u);
}

TEST_F(Coding, police_in_place_without_allocating) {
  there_and_back(fake::node(7).police({.committed = {1, 0x0102030405060708, 2, 0xffffffffffffffff},
                                       .peak = {3, 0x8000000000000000, 4, 5}}));
  const qim_police_t& police = record.body.police;
  EXPECT_EQ(police.comt_bw.rate_units, 1u);
  EXPECT_EQ(police.comt_bw.rate, 0x0102030405060708u);
  EXPECT_EQ(police.comt_bw.burst_units, 2u);
  EXPECT_EQ(police.comt_bw.burst, 0xffffffffffffffffu);
  EXPECT_EQ(police.peak_bw.rate_units, 3u);
  EXPECT_EQ(police.peak_bw.rate, 0x8000000000000000u);
  EXPECT_EQ(police.peak_bw.burst_units, 4u);
  EXPECT_EQ(police.peak_bw.burst, 5u);
  EXPECT_TRUE(is_zero(&police, offsetof(qim_police_t, comt_bw)));
  EXPECT_TRUE(is_zero(&police.reserved, 8));
  EXPECT_EQ(fake::live_blocks(), 0u);
  EXPECT_EQ(fake::count("mem_zalloc"), 0u);
}

TEST_F(Coding, police_without_a_third_field) {
  const fake::Tlv tlv = fake::Tlv().u32(8, 3, 77);
  ASSERT_EQ(decode(fake::node(7).body(6, tlv).tlv_bytes()), 0u);
  EXPECT_TRUE(is_zero(&record.body, sizeof record.body));
}

TEST_F(Coding, def) {
  there_and_back(fake::node(7).def({.type = 3, .args = {1, 2}}));
  EXPECT_EQ(record.body.def.type, 3u);
  ASSERT_EQ(record.body.def.args_len, 2u);
  EXPECT_EQ(std::memcmp(record.body.def.args, "\1\2", 2), 0);
}

TEST_F(Coding, group) {
  there_and_back(fake::node(7).group_body({.type = 1, .subtype = 2}));
  EXPECT_EQ(record.body.group.type, 1u);
  EXPECT_EQ(record.body.group.subtype, 2u);
}

// Attributes of every record kind that a body might be, none of which these types carry.
fake::Tlv everything() {
  fake::Tlv tlv;
  for (std::uint16_t record = 1; record <= 12; ++record) {
    for (std::uint16_t field = 1; field <= 4; ++field) tlv.u32(record, field, 0xffffffff);
  }
  return tlv;
}

TEST_F(Coding, ifelse_pinst_and_edest_fill_no_body_field) {
  for (const std::uint32_t type : {3u, 8u, 10u}) {
    SCOPED_TRACE(type);
    record = qim_node_t{};
    ASSERT_EQ(decode(fake::node(7).body(type, everything()).tlv_bytes()), 0u);
    EXPECT_EQ(record.type, type);
    EXPECT_TRUE(is_zero(&record.body, sizeof record.body));
  }
  EXPECT_EQ(fake::live_blocks(), 0u);
}

TEST_F(Coding, edest_and_pinst_encode_alike_but_for_the_type) {
  there_and_back(fake::node(7).pinst());
  const Bytes pinst = encode(record);
  there_and_back(fake::node(8).edest());
  const Bytes edest = encode(record);
  ASSERT_EQ(pinst.size(), edest.size());
  EXPECT_EQ(pinst.back(), 8);
  EXPECT_EQ(edest.back(), 10);
}

TEST_F(Coding, encodes_in_table_order) {
  record.type = 7;
  record.group = 1;
  record.flags = 2;
  const Bytes bytes = encode(record);
  EXPECT_EQ(bytes[3], 2) << "flags, field 2, come first";
  EXPECT_EQ(bytes[12 + 3], 1);
  EXPECT_EQ(bytes[24 + 3], 3);
}

TEST_F(Coding, never_touches_the_link_slots) {
  std::memset(static_cast<void*>(&record.body), 0x77, sizeof record.body);
  ASSERT_EQ(decode(fake::node(7).hfilter({.type = 1}).tlv_bytes()), 0u);
  EXPECT_EQ(record.body.hfilter.ln_081, 0x77777777u);
  EXPECT_EQ(record.body.hfilter.ln_102.node, 0x77777777u);
  EXPECT_EQ(record.body.hfilter.ln_102.field, 0x7777u);
}

TEST_F(Coding, clients_decode_into_new_records_too) {
  const Bytes tlv = fake::Tlv().u32(10, 1, 5).u32(10, 2, 6).data();
  qim_group_t* group = nullptr;
  ASSERT_EQ(qim_group_to_struct(&group, tlv.data(), static_cast<std::uint32_t>(tlv.size()), 0), 0u);
  ASSERT_NE(group, nullptr);
  EXPECT_EQ(group->type, 5u);
  EXPECT_EQ(group->subtype, 6u);
  EXPECT_EQ(group->ln_282, 0u);
}

TEST_F(Coding, gives_the_fixed_records_size) {
  EXPECT_EQ(qim_node_get_struct_sz("tlv"), sizeof(qim_node_t));
  EXPECT_EQ(qim_action_bw_get_struct_sz("tlv"), 32u);
  if (sizeof(void*) == 4) {
    EXPECT_EQ(qim_filter_get_struct_sz("tlv"), 36u);
  }
}

TEST_F(Coding, stops_at_the_first_failure_with_its_status) {
  const Bytes tlv = fake::node(7).filter({.criteria = {{1, {1}}, {2, {2}}}}).tlv_bytes();
  struct {
    const char* function;
    unsigned nth;
  } const failures[] = {{"rov_tlva_to_union", 1}, {"rov_tlv_to_listel", 1},
                        {"rov_tlv_to_listel", 2}, {"mem_zalloc", 1},
                        {"mem_zalloc", 2},        {"rov_tlv_to_bufptr", 1},
                        {"rov_tlv_to_bufptr", 2}, {"tlvo_dec_tlva_to_struct", 1}};
  for (const auto& f : failures) {
    SCOPED_TRACE(testing::Message() << f.function << " " << f.nth);
    record = qim_node_t{};
    fake::clear_calls();
    fake::fail(f.function, 0x41170099, f.nth);
    EXPECT_EQ(decode(tlv), 0x41170099u);
    EXPECT_EQ(fake::names().back(), f.function);
    EXPECT_EQ(fake::count(f.function), f.nth);
  }
}

TEST_F(Coding, fails_to_encode_an_unknown_type) {
  record.type = TLVO_UNION_MEMBERS + 1;
  EXPECT_EQ(qim_node_get_tlv_sz(&record), 0xffffffffu);
  std::uint8_t room[256];
  std::uint32_t len = 9;
  EXPECT_EQ(qim_node_to_tlv(&record, room, sizeof room, &len, nullptr, 0), 0x41170025u);
}

// ---- The decoder's allocator
// -----------------------------------------------------------------------

class StructAlloc : public fake::Test {};

TEST_F(StructAlloc, gives_a_zeroed_block_of_the_contexts_pool_and_its_size) {
  void* block = nullptr;
  std::uint32_t size = 0;
  ASSERT_EQ(qim_tlv_struct_alloc(24, &block, &size), 0u);
  EXPECT_EQ(size, 24u);
  EXPECT_TRUE(fake::is_live(block));
  EXPECT_EQ(std::memcmp(block, Bytes(24).data(), 24), 0);
  EXPECT_EQ(fake::calls(), (fake::Calls{call("mem_zalloc", 24, pool(), fake::any)}));
  EXPECT_NE(fake::calls()[0].args[2], fake::Arg(&block)) << "the output is written on success only";
}

TEST_F(StructAlloc, clears_both_outputs_before_it_allocates) {
  void* block = this;
  std::uint32_t size = 9;
  fake::script("mem_zalloc", [&](const fake::Call&) {
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(size, 0u);
    return 1u;
  });
  EXPECT_EQ(qim_tlv_struct_alloc(24, &block, &size), 1u);
}

TEST_F(StructAlloc, reports_a_failure_at_line_51_and_leaves_the_outputs_cleared) {
  fake::report_everything(ctx());
  fake::fail("mem_zalloc", 0x41170004);
  void* block = this;
  std::uint32_t size = 9;
  EXPECT_EQ(qim_tlv_struct_alloc(24, &block, &size), 0x41170004u);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(fake::report_texts(),
            std::vector<std::string>{fake::report(0x41170004, "qim_tlv_struct_alloc", 51)});
}

TEST_F(StructAlloc, reports_under_the_debug_bit_only) {
  ctx()->db_parms.logger = fake::logger;
  ctx()->db_parms.dbg_flags = QIM_DBG_ALL;
  fake::fail("mem_zalloc", 0x41170004);
  void* block = nullptr;
  std::uint32_t size = 0;
  EXPECT_EQ(qim_tlv_struct_alloc(24, &block, &size), 0x41170004u);
  EXPECT_EQ(fake::reports().size(), 0u);
}

CHILD_TEST(StructAllocThreads, take_blocks_from_the_calling_threads_own_context) {
  ASSERT_EQ(qim_lib_tls_init(0), 0u);
  void* block = nullptr;
  std::uint32_t size = 0;
  ASSERT_EQ(qim_tlv_struct_alloc(4, &block, &size), 0u);
  qim_criterion_t criterion{};
  ASSERT_EQ(qim_lib_tls_init(0), 0u);
  rov_mem_ctx_t* const mine = &qim_lib_get()->db_parms.mem;
  ASSERT_EQ(qim_tlv_struct_alloc(4, &block, &size), 0u);
  qim_criterion_t* at = &criterion;
  const Bytes tlv = fake::Tlv().bytes(3, 2, {1}).data();
  ASSERT_EQ(qim_criterion_to_struct(&at, tlv.data(), static_cast<std::uint32_t>(tlv.size()), 1),
            0u);
  EXPECT_NE(fake::calls_of("mem_zalloc")[0].args[1], fake::Arg(mine));
  EXPECT_EQ(fake::calls_of("mem_zalloc")[1].args[1], fake::Arg(mine));
  EXPECT_EQ(fake::calls_of("rov_tlv_to_bufptr")[0].args[2], fake::Arg(mine));
}

}  // namespace
