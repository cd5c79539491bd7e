// Links read from the database: the three getters share one shape.

#include <cstring>

#include "tests/support/fake/fixture.h"

namespace {

using fake::any;
using fake::call;
using fake::kSes;

qim_link_t garbage() {
  qim_link_t link;
  std::memset(&link, fake::kGarbage, sizeof link);
  return link;
}

bool same(const qim_link_t& a, const qim_link_t& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// A getter, the database's function behind it, and where it reports.
struct Getter {
  const char* name;
  const char* database;
  std::uint32_t (*get)(std::uint32_t ses, qim_node_id_t node, std::uint32_t field,
                       qim_link_t* link);
  std::uint32_t stored;  // field under which the database finds what 0x141 asks for
  int id_line;
  int database_line;
};
void PrintTo(const Getter& getter, std::ostream* os) {
  *os << getter.name;
}

std::uint32_t field_get(std::uint32_t ses, qim_node_id_t node, std::uint32_t field,
                        qim_link_t* link) {
  return qim_link_field_get(ses, node, static_cast<std::uint16_t>(field), link);
}

class LinkGetters : public testing::WithParamInterface<Getter>, public fake::Test {
 protected:
  std::uint32_t get(std::uint32_t node, std::uint32_t field, qim_link_t* link) {
    return GetParam().get(kSes, node, field, link);
  }
  void expect_zero(const qim_link_t& link) { EXPECT_TRUE(same(link, qim_link_t{})); }
};

TEST_P(LinkGetters, convert_the_databases_record) {
  fake::node(7).link(static_cast<std::uint16_t>(GetParam().stored),
                     {.node = 0x01020304, .node2 = 0x11121314, .val = 0x21222324, .tag = 0x3132});
  qim_link_t link = garbage();
  ASSERT_EQ(get(7, 0x141, &link), 0u);
  EXPECT_EQ(link.node, 0x01020304u);
  EXPECT_EQ(link.node2, 0x11121314u);
  EXPECT_EQ(link.val, 0x21222324u);
  EXPECT_EQ(link.tag, 0x3132u);
  EXPECT_EQ(link.field, GetParam().stored) << "the database's, not the one asked for";
}

TEST_P(LinkGetters, read_these_bytes_of_the_databases_record_and_no_others) {
  fake::script(GetParam().database, [](const fake::Call& made) {
    std::uint8_t bytes[72];
    for (std::size_t i = 0; i < sizeof bytes; ++i) bytes[i] = static_cast<std::uint8_t>(i);
    const std::uint16_t field = 0x1617;
    const std::uint32_t val = 0x40414243;
    const std::uint16_t tag = 0x6061;
    std::memcpy(bytes + 16, &field, sizeof field);
    std::memcpy(bytes + 40, &val, sizeof val);
    std::memcpy(bytes + 60, &tag, sizeof tag);
    std::memcpy(made.pointer<void>(made.args.size() - 1), bytes, sizeof bytes);
    return 0u;
  });
  qim_link_t link = garbage();
  ASSERT_EQ(get(7, 0x141, &link), 0u);
  const qim_link_t expected = {0x18191a1b, 0x2c2d2e2f, 0x40414243, 0x6061, 0x1617};
  EXPECT_TRUE(same(link, expected));
}

TEST_P(LinkGetters, check_nothing_of_what_the_database_gives) {
  fake::node(7).link(static_cast<std::uint16_t>(GetParam().stored), fake::Link{});
  qim_link_t link = garbage();
  EXPECT_EQ(get(7, 0x141, &link), 0u);
  EXPECT_EQ(link.node, 0u);
}

TEST_P(LinkGetters, refuse_node_0_without_asking_the_database) {
  fake::report_everything(ctx());
  qim_link_t link = garbage();
  EXPECT_EQ(get(0, 0x141, &link), 0x41160005u);
  expect_zero(link);
  EXPECT_EQ(fake::calls(), fake::Calls{});
  EXPECT_EQ(fake::report_texts(), std::vector<std::string>{fake::report(0x41160005, GetParam().name,
                                                                        GetParam().id_line)});
}

TEST_P(LinkGetters, return_the_databases_status_unchanged_with_a_zeroed_link) {
  fake::report_everything(ctx());
  for (const std::uint32_t status : {0x41170006u, 0x4117000fu, 0x41170003u, 1u, 0xffffffffu}) {
    SCOPED_TRACE(status);
    fake::fail(GetParam().database, status);
    qim_link_t link = garbage();
    EXPECT_EQ(get(7, 0x141, &link), status);
    expect_zero(link);
    EXPECT_EQ(fake::report_texts().back(),
              fake::report(status, GetParam().name, GetParam().database_line));
  }
  EXPECT_EQ(fake::reports().size(), 5u);
}

TEST_P(LinkGetters, return_a_missing_links_status_as_it_is) {
  fake::node(7);
  qim_link_t link = garbage();
  EXPECT_EQ(get(7, 0x141, &link), 0x4117000fu);
  expect_zero(link);
  EXPECT_EQ(get(8, 0x141, &link), 0x41170006u);
}

TEST_P(LinkGetters, report_under_the_debug_bit_only) {
  ctx()->db_parms.logger = fake::logger;
  ctx()->db_parms.dbg_flags = QIM_DBG_ALL;
  qim_link_t link;
  get(0, 0x141, &link);
  get(7, 0x141, &link);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_P(LinkGetters, clear_the_link_before_they_ask) {
  qim_link_t link = garbage();
  fake::script(GetParam().database, [&](const fake::Call&) {
    expect_zero(link);
    return 1u;
  });
  EXPECT_EQ(get(7, 0x141, &link), 1u);
}

TEST_P(LinkGetters, use_no_memory) {
  fake::node(7).link(static_cast<std::uint16_t>(GetParam().stored), 9);
  qim_link_t link;
  ASSERT_EQ(get(7, 0x141, &link), 0u);
  EXPECT_EQ(fake::names(), std::vector<std::string>{GetParam().database});
  EXPECT_EQ(fake::system_calls(fake::System::malloc), 0u);
}

INSTANTIATE_TEST_SUITE_P(All, LinkGetters,
                         testing::Values(Getter{"qim_link_field_get", "rov_node_ln_field_get",
                                                field_get, 0x141, 1034, 1038},
                                         Getter{"qim_link_get", "rov_node_link_get", qim_link_get,
                                                0x141, 1081, 1085},
                                         Getter{"qim_link_opt_get", "rov_node_link_match",
                                                qim_link_opt_get, 0x8141, 1128, 1133}),
                         [](const auto& tested) { return std::string(tested.param.name); });

class LinkArguments : public fake::Test {};

TEST_F(LinkArguments, of_field_get_are_the_widened_code) {
  qim_link_t link;
  qim_link_field_get(kSes, 7, 0x8141, &link);
  qim_link_field_get(0xffffffff, 0xfedcba98, 0xffff, &link);
  EXPECT_EQ(
      fake::calls(),
      (fake::Calls{call("rov_node_ln_field_get", kSes, fake::id(7), 0x8141, any),
                   call("rov_node_ln_field_get", 0xffffffff, fake::id(0xfedcba98), 0xffff, any)}));
}

TEST_F(LinkArguments, of_get_are_the_code_in_all_32_bits) {
  qim_link_t link;
  qim_link_get(kSes, 7, 0xabcd0141, &link);
  EXPECT_EQ(fake::calls(),
            fake::Calls{call("rov_node_link_get", kSes, fake::id(7), 0xabcd0141, any)});
}

TEST_F(LinkArguments, of_opt_get_are_the_code_and_three_constants) {
  qim_link_t link;
  qim_link_opt_get(kSes, 7, 0xabcd0141, &link);
  EXPECT_EQ(fake::calls(), fake::Calls{call("rov_node_link_match", kSes, fake::id(7), 0xabcd0141,
                                            0x8000, 0x8000, 16, any)});
}

TEST_F(LinkArguments, never_lead_to_the_callers_record) {
  qim_link_t link;
  qim_link_field_get(kSes, 7, 1, &link);
  qim_link_get(kSes, 7, 1, &link);
  qim_link_opt_get(kSes, 7, 1, &link);
  for (const fake::Call& made : fake::calls()) {
    EXPECT_NE(made.args.back(), fake::Arg(&link));
  }
}

TEST(LinkRecords, of_the_database_hold_these_members) {
  EXPECT_EQ(sizeof(rov_link_t), 72u);
  EXPECT_EQ(offsetof(rov_link_t, field), 16u);
  EXPECT_EQ(offsetof(rov_link_t, node), 24u);
  EXPECT_EQ(offsetof(rov_link_t, val), 40u);
  EXPECT_EQ(offsetof(rov_link_t, node2), 44u);
  EXPECT_EQ(offsetof(rov_link_t, tag), 60u);
}

}  // namespace
