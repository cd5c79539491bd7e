// The platform that other tests rely on, checked by itself.

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

#include "mem.h"
#include "rov.h"
#include "tests/support/fake/child.h"
#include "tests/support/fake/fake.h"
#include "tests/support/fake/faults.h"
#include "tests/support/fake/nodes.h"
#include "tlvo.h"

namespace {

using fake::any;
using fake::call;

class Fake : public testing::Test {
 protected:
  void SetUp() override { fake::reset(); }
  void TearDown() override { fake::reset(); }
};

// A record of the tests' own, with one field of each simple kind.
struct Inner {
  uint64_t wide;
  uint32_t narrow;
  uint32_t gap;
};
struct Outer {
  uint32_t number;
  uint32_t gap;
  Inner inner;
};
struct InnerTable {
  tlvo_table_t head;
  tlvo_field_t fields[3];
};
const InnerTable inner_table = {
    {sizeof(Inner), "inner", 51, {}},
    {{0,
      1,
      8,
      offsetof(Inner, wide),
      TLVO_KIND_INT,
      0,
      nullptr,
      {},
      nullptr,
      nullptr,
      nullptr,
      nullptr,
      {}},
     {0,
      2,
      4,
      offsetof(Inner, narrow),
      TLVO_KIND_INT,
      0,
      nullptr,
      {},
      nullptr,
      nullptr,
      nullptr,
      nullptr,
      {}},
     {0, 0, 0, TLVO_FIELD_END, 0, 0, nullptr, {}, nullptr, nullptr, nullptr, nullptr, {}}}};
const InnerTable outer_table = {
    {sizeof(Outer), "outer", 50, {}},
    {{0,
      7,
      4,
      offsetof(Outer, number),
      TLVO_KIND_INT,
      0,
      nullptr,
      {},
      nullptr,
      nullptr,
      nullptr,
      nullptr,
      {}},
     {0,
      8,
      sizeof(Inner),
      offsetof(Outer, inner),
      TLVO_KIND_RECORD,
      0,
      &inner_table.head,
      {},
      nullptr,
      nullptr,
      nullptr,
      nullptr,
      {}},
     {0, 0, 0, TLVO_FIELD_END, 0, 0, nullptr, {}, nullptr, nullptr, nullptr, nullptr, {}}}};

const fake::Bytes outer_bytes = {0, 50, 0, 7, 0, 0, 0, 4,  1, 2,  3,  4,              // number
                                 0, 50, 0, 8, 0, 0, 0, 28,                            // inner
                                 0, 51, 0, 1, 0, 0, 0, 8,  1, 2,  3,  4, 5, 6, 7, 8,  // wide
                                 0, 51, 0, 2, 0, 0, 0, 4,  9, 10, 11, 12};            // narrow

TEST_F(Fake, records_calls_in_order_with_their_arguments) {
  uint32_t db = 0;
  rov_parms_t parms{};
  rov_db_init(1, 2, 3, 4, 5, 6, &parms, 7, &db);
  rov_db_close(db, 0xffffffff);
  EXPECT_EQ(fake::calls(), (fake::Calls{call("rov_db_init", 1, 2, 3, 4, 5, 6, &parms, 7, &db),
                                        call("rov_db_close", 0xdb, -1)}));
  EXPECT_NE(fake::calls()[1], call("rov_db_close", 0xdb, 0));
  EXPECT_EQ(fake::calls()[1], call("rov_db_close", any, any));
  EXPECT_NE(fake::calls()[1], call("rov_db_close", any));
}

TEST_F(Fake, records_identifiers_word_by_word) {
  rov_node_parms_t parms;
  rov_node_parms_get(9, fake::id(7), &parms);
  rov_node_id_t dirty = fake::id(7);
  dirty.word[3] = 1;
  rov_node_parms_get(9, dirty, &parms);
  EXPECT_EQ(fake::calls()[0], call("rov_node_parms_get", 9, fake::id(7), &parms));
  EXPECT_NE(fake::calls()[1], call("rov_node_parms_get", 9, fake::id(7), &parms));
}

TEST_F(Fake, fails_the_nth_call_of_a_function_once) {
  fake::fail("rov_ses_timeout", 77, 2);
  EXPECT_EQ(rov_ses_timeout(1), 0u);
  EXPECT_EQ(fake::injected(), "");
  EXPECT_EQ(rov_ses_timeout(1), 77u);
  EXPECT_EQ(fake::injected(), "rov_ses_timeout");
  EXPECT_EQ(rov_ses_timeout(1), 0u);
  fake::fail_every("rov_ses_timeout", 78);
  EXPECT_EQ(rov_ses_timeout(1), 78u);
  EXPECT_EQ(rov_ses_timeout(1), 78u);
}

TEST_F(Fake, fails_the_nth_call_of_any_function_that_returns_a_status) {
  rov_dbg_abort_chk();
  fake::fail_nth(5, 2);
  EXPECT_EQ(rov_ses_timeout(1), 0u);
  rov_dbg_abort_chk();
  EXPECT_EQ(rov_db_close(1, 1), 5u);
  EXPECT_EQ(rov_ses_timeout(1), 0u);
  EXPECT_EQ(fake::injected(), "rov_db_close");
  EXPECT_EQ(fake::fallible_calls(), 3u);
}

TEST_F(Fake, tells_which_call_a_failure_hit) {
  EXPECT_EQ(fake::hit().nth, 0u);
  fake::fail("rov_db_close", 77, 2);
  rov_db_close(1, 10);
  rov_ses_timeout(1);
  rov_db_close(1, 11);
  rov_db_close(1, 12);
  EXPECT_EQ(fake::hit().call, call("rov_db_close", 1, 11));
  EXPECT_EQ(fake::hit().nth, 2u);
}

TEST_F(Fake, runs_a_script_in_the_place_of_a_function) {
  fake::script("rov_ses_open_ro", [](const fake::Call& made) {
    *made.pointer<uint32_t>(1) = made.u32(0) + 1;
    return 3u;
  });
  uint32_t ses = 0;
  EXPECT_EQ(rov_ses_open_ro(41, &ses), 3u);
  EXPECT_EQ(ses, 42u);
}

TEST_F(Fake, keeps_what_a_script_wrote_and_spoils_what_it_did_not) {
  fake::script("rov_node_link_get", [](const fake::Call& made) {
    made.pointer<rov_link_t>(made.args.size() - 1)->val = 5;
    return 0u;
  });
  rov_link_t link{};
  EXPECT_EQ(rov_node_link_get(1, fake::id(7), 0x141, &link), 0u);
  EXPECT_EQ(link.val, 5u);
  EXPECT_EQ(link.reserved1, fake::kGarbageWord);
}

TEST_F(Fake, refuses_a_function_that_does_not_exist) {
  EXPECT_NE(fake::ending_of([] { fake::fail("rov_misspelt", 1); }).signal, 0);
}

TEST_F(Fake, counts_blocks_and_bad_frees) {
  rov_mem_ctx_t pool{};
  rov_mem_ctx_t other{};
  void* a = nullptr;
  void* b = nullptr;
  ASSERT_EQ(mem_zalloc(8, &pool, &a), 0u);
  const mem_request_t requests[] = {{4, &b}};
  ASSERT_EQ(mem_alloc_ary(1, requests, &pool), 0u);
  EXPECT_EQ(fake::live_blocks(), 2u);
  EXPECT_EQ(fake::block_size(a), 8u);
  EXPECT_EQ(fake::block_size(b), 4u);
  EXPECT_EQ(fake::block_size(&pool), 0u);
  EXPECT_EQ(mem_free(a, &other), static_cast<uint32_t>(ROV_ERR_INVALID));
  EXPECT_EQ(mem_free(nullptr, &pool), static_cast<uint32_t>(ROV_ERR_INVALID));
  EXPECT_EQ(fake::bad_frees(), 2u);
  EXPECT_EQ(mem_free(a, &pool), 0u);
  EXPECT_EQ(mem_free(a, &pool), static_cast<uint32_t>(ROV_ERR_INVALID));
  EXPECT_EQ(fake::bad_frees(), 3u);
  EXPECT_TRUE(fake::is_live(b));
  EXPECT_EQ(fake::live_blocks(), 1u);
}

TEST_F(Fake, allocates_cleared_or_dirty_and_empty_blocks_as_told) {
  rov_mem_ctx_t pool{};
  void* block = nullptr;
  void* empty = &pool;
  const mem_request_t requests[] = {{4, &block}, {0, &empty}};
  const uint32_t zero = 0;
  ASSERT_EQ(mem_alloc_ary(2, requests, &pool), 0u);
  EXPECT_EQ(std::memcmp(block, &zero, 4), 0);
  EXPECT_EQ(empty, nullptr);
  fake::settings().zero_ary = false;
  fake::settings().empty_blocks = true;
  ASSERT_EQ(mem_alloc_ary(2, requests, &pool), 0u);
  EXPECT_EQ(std::memcmp(block, &fake::kGarbageWord, 4), 0);
  EXPECT_TRUE(fake::is_live(empty));
  EXPECT_EQ(mem_free(empty, &pool), 0u);
}

TEST_F(Fake, decodes_integers_and_embedded_records_and_skips_the_unknown) {
  fake::Bytes bytes = fake::Tlv().u32(99, 7, 1).u32(50, 9, 1).data();
  bytes.insert(bytes.end(), outer_bytes.begin(), outer_bytes.end());
  Outer record{};
  void* at = &record;
  ASSERT_EQ(tlvo_dec_tlva_to_struct(&at, bytes.data(), static_cast<uint32_t>(bytes.size()),
                                    &outer_table.head, TLVO_DEC_IN_PLACE),
            0u);
  EXPECT_EQ(record.number, 0x01020304u);
  EXPECT_EQ(record.inner.wide, 0x0102030405060708u);
  EXPECT_EQ(record.inner.narrow, 0x090a0b0cu);
}

TEST_F(Fake, encodes_what_it_decodes) {
  const Outer record = {0x01020304, 0, {0x0102030405060708, 0x090a0b0c, 0}};
  EXPECT_EQ(tlvo_enc_struct_to_tlva_size(&outer_table.head, &record), outer_bytes.size());
  fake::Bytes bytes(outer_bytes.size());
  uint32_t len = 0;
  uint32_t count = 0;
  ASSERT_EQ(tlvo_enc_struct_to_tlva(bytes.data(), static_cast<uint32_t>(bytes.size()),
                                    &outer_table.head, &record, &len, &count, 0),
            0u);
  EXPECT_EQ(bytes, outer_bytes);
  EXPECT_EQ(len, outer_bytes.size());
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(tlvo_enc_struct_to_tlva(bytes.data(), static_cast<uint32_t>(bytes.size()) - 1,
                                    &outer_table.head, &record, &len, &count, 0),
            static_cast<uint32_t>(ROV_ERR_TLV_ROOM));
}

TEST_F(Fake, refuses_truncated_arrays) {
  for (uint32_t len = 1; len < outer_bytes.size(); ++len) {
    if (len == 12) continue;  // ends between attributes
    const fake::Bytes cut(outer_bytes.begin(), outer_bytes.begin() + len);
    Outer record{};
    void* at = &record;
    EXPECT_EQ(tlvo_dec_tlva_to_struct(&at, cut.data(), len, &outer_table.head, 1),
              static_cast<uint32_t>(ROV_ERR_TLV_TRUNCATED))
        << len;
  }
}

TEST_F(Fake, answers_from_its_nodes) {
  fake::node(7).action({.type = 3}).link(0x141, {.node = 9, .node2 = 8, .val = 5, .tag = 6});
  rov_node_parms_t parms;
  ASSERT_EQ(rov_node_parms_get(1, fake::id(7), &parms), 0u);
  EXPECT_EQ(parms.links, 1u);
  EXPECT_EQ(parms.reserved[0], fake::kGarbageWord);
  rov_link_t link;
  ASSERT_EQ(rov_node_link_get(1, fake::id(7), 0x141, &link), 0u);
  EXPECT_EQ(fake::node_of(link.node), 9u);
  EXPECT_EQ(fake::node_of(link.node2), 8u);
  EXPECT_EQ(link.reserved1, fake::kGarbageWord);
  EXPECT_EQ(rov_node_link_get(1, fake::id(7), 0x142, &link),
            static_cast<uint32_t>(ROV_ERR_NO_LINK));
  EXPECT_EQ(rov_node_parms_get(1, fake::id(8), &parms), static_cast<uint32_t>(ROV_ERR_NO_ITEM));
  EXPECT_EQ(parms.links, fake::kGarbageWord);
}

TEST_F(Fake, makes_system_functions_fail) {
  fake::reset_system();
  fake::fail_system(fake::System::malloc, 2);
  void* const first = std::malloc(4);
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(std::malloc(4), nullptr);
  EXPECT_EQ(fake::system_blocks(), 1u);
  EXPECT_EQ(fake::last_system_size(), 4u);
  EXPECT_EQ(fake::system_frees(), 0u);
  std::free(first);
  EXPECT_EQ(fake::system_frees(), 1u);
  EXPECT_EQ(fake::system_blocks(), 0u);
  EXPECT_EQ(fake::system_calls(fake::System::malloc), 2u);
  fake::reset_system();
}

TEST_F(Fake, fails_with_a_child_that_failed) {
  const auto fail = [] { fake::in_child([] { EXPECT_EQ(1, 2) << "as it should"; }); };
  const auto free_nothing = [] { fake::in_child([] { mem_free(nullptr, nullptr); }); };
  EXPECT_TRUE(fake::ending_of(fail).failed);
  EXPECT_TRUE(fake::ending_of(free_nothing).failed);
  EXPECT_FALSE(fake::ending_of([] { fake::in_child([] {}); }).failed);
  EXPECT_NONFATAL_FAILURE(fake::in_child([] { std::abort(); }), "signal");
}

TEST_F(Fake, tells_how_a_child_ended) {
  EXPECT_TRUE(fake::ending_of([] {}).returned);
  const fake::Ending aborted = fake::ending_of([] { std::abort(); });
  EXPECT_FALSE(aborted.returned);
  EXPECT_EQ(aborted.signal, SIGABRT);
}

CHILD_TEST(FakeChild, runs_in_another_process_and_can_be_relied_on) {
  EXPECT_EQ(fake::calls().size(), 0u);
}

}  // namespace
