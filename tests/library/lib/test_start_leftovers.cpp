// What a start leaves behind: a database that stays open when it failed, and what of the context a
// later start replaces.

#include <cstring>

#include "init_call.h"
#include "rov.h"

namespace {

using fake::call;
using lib_tests::init;
using lib_tests::last_db;

constexpr std::uint32_t kOnceMore = QIM_INIT_AGAIN;
constexpr std::uint32_t kRefused = 0x41170047;

void other_logger(std::uint32_t, const char*, void*) {}

// ---- A start that failed past the database's opening --------------------------------------------

void leaves_the_database_open(const std::function<void()>& spoil, std::uint32_t status) {
  fake::in_child([&] {
    spoil();
    EXPECT_EQ(init(), status);
    EXPECT_EQ(last_db, 0xdbu) << "the handle is given all the same";
    EXPECT_EQ(fake::count("rov_db_close"), 0u);
    fake::clear_calls();
    EXPECT_EQ(qim_lib_close(last_db, 0), 0x4116000eu) << "no use was counted";
    EXPECT_EQ(fake::calls(), fake::Calls{}) << "and the database does not learn of it";
    EXPECT_EQ(rov_db_close(last_db, 0), 0u);
  });
}

TEST(LibInitFailed, past_the_opening_leaves_the_database_open_for_its_own_close) {
  leaves_the_database_open([] { fake::fail("rov_db_reg_node_id_cnv", kRefused); }, kRefused);
  leaves_the_database_open([] { fake::fail("rov_db_init_parms_get", kRefused); }, kRefused);
  leaves_the_database_open([] { fake::settings().parms.vdc = 64; }, 0x4116000cu);
}

CHILD_TEST(LibInitFailed, before_the_opening_gives_no_handle) {
  fake::fail("rov_db_init", kRefused);
  EXPECT_EQ(init(), kRefused);
  EXPECT_EQ(last_db, 0u);
}

CHILD_TEST(LibInitFailed, again_leaves_the_new_database_open_and_the_earlier_use_counted) {
  ASSERT_EQ(init({.flags = kOnceMore}), 0u);
  fake::settings().db = 0xdc;
  fake::fail("rov_db_init_parms_get", kRefused);
  EXPECT_EQ(init({.flags = kOnceMore}), kRefused);
  EXPECT_EQ(last_db, 0xdcu);
  EXPECT_EQ(qim_lib_get()->use_count, 1) << "qim_lib_close would take back the first start";
}

CHILD_TEST(LibInitFailed,
           with_a_vdc_out_of_range_leaves_an_initialised_context_that_is_cleared_so) {
  fake::settings().parms.vdc = 64;
  ASSERT_EQ(init(), 0x4116000cu);
  EXPECT_EQ(init({.id = 0x1e}), 0x41160005u) << "it belongs to that identity";
  EXPECT_EQ(init(), 0x41160005u);
  EXPECT_EQ(init({.flags = kOnceMore}), 0u);
  EXPECT_EQ(qim_lib_get()->db_parms.vdc, 64u) << "only the bit of the first start refreshes";
  EXPECT_EQ(qim_lib_close(last_db, 0), 0u);
  EXPECT_EQ(qim_lib_get()->init_id, 0u);
}

// ---- The database library's handle --------------------------------------------------------------

CHILD_TEST(LibHandle, of_a_start_that_failed_stays_and_the_next_start_must_name_it_or_none) {
  fake::fail("rov_db_init", kRefused);
  ASSERT_EQ(init({.rov_lib = 0x77}), kRefused);
  EXPECT_EQ(qim_lib_get()->rov_lib, 0x77u);
  EXPECT_EQ(init({.rov_lib = 0x78}), 0x41160005u);
  EXPECT_EQ(init({.rov_lib = 0x77}), 0u);
}

CHILD_TEST(LibHandle, is_the_contexts_where_none_is_named) {
  ASSERT_EQ(qim_lib_defaults(1, 1), 0u);
  EXPECT_EQ(init({.rov_lib = 0x11c}), 0x41160005u) << "also in a first start";
  EXPECT_EQ(init({.rov_lib = 0}), 0u);
  EXPECT_EQ(fake::calls_of("rov_db_init")[0].u32(0), 0x11bu);
}

CHILD_TEST(LibHandle, is_any_again_after_the_last_close) {
  ASSERT_EQ(init({.rov_lib = 0x77}), 0u);
  ASSERT_EQ(qim_lib_close(last_db, 0), 0u);
  EXPECT_EQ(init({.rov_lib = 0x78}), 0u);
}

// ---- What a repeated start refreshes ------------------------------------------------------------

CHILD_TEST(LibRefresh, takes_logger_and_debug_flags_from_the_database_opened_last) {
  ASSERT_EQ(init({.flags = kOnceMore}), 0u);
  ASSERT_EQ(qim_db_reg_logger(last_db, fake::logger, nullptr), 0u);
  ASSERT_EQ(qim_db_debug(last_db, QIM_DBG_REPORT), 0u);
  ASSERT_EQ(init({.flags = kOnceMore}), 0u);
  const rov_db_parms_t& parms = qim_lib_get()->db_parms;
  EXPECT_EQ(parms.logger, nullptr) << "what was registered for the first is gone";
  EXPECT_EQ(parms.dbg_flags, 0u);
}

CHILD_TEST(LibRefresh, keeps_what_the_parameters_of_the_new_database_carry) {
  ASSERT_EQ(init({.flags = kOnceMore}), 0u);
  fake::settings().parms.logger = other_logger;
  fake::settings().parms.dbg_flags = QIM_DBG_STRICT;
  fake::settings().parms.mem.limit = 77;
  ASSERT_EQ(init({.arg = 0xbb, .flags = kOnceMore}), 0u);
  const qim_lib_ctx_t& ctx = *qim_lib_get();
  EXPECT_EQ(ctx.db_parms.logger, other_logger);
  EXPECT_EQ(ctx.db_parms.dbg_flags, QIM_DBG_STRICT);
  EXPECT_EQ(ctx.db_parms.mem.limit, 77u);
  EXPECT_EQ(ctx.init_arg, 0xbbu);
}

CHILD_TEST(LibRefresh, is_left_out_without_the_bit_in_the_present_flags) {
  ASSERT_EQ(init(), 0u);
  ASSERT_EQ(qim_db_reg_logger(last_db, fake::logger, nullptr), 0u);
  ASSERT_EQ(init({.flags = kOnceMore}), 0u);
  EXPECT_EQ(qim_lib_get()->db_parms.logger, fake::logger);
  EXPECT_EQ(qim_lib_get()->init_flags, 0u) << "the bit of this call is not kept";
}

CHILD_TEST(LibRefresh, replaces_the_flags_so_that_the_first_starts_bit_may_be_gone) {
  ASSERT_EQ(init({.flags = kOnceMore}), 0u);
  ASSERT_EQ(init(), 0u) << "the present flags allow it";
  EXPECT_EQ(qim_lib_get()->init_flags, 0u);
  EXPECT_EQ(init(), 0x41160005u) << "they do not any more";
  EXPECT_EQ(init({.flags = kOnceMore}), 0u) << "the call's own do";
  EXPECT_EQ(qim_lib_get()->use_count, 3);
}

// ---- Uses ---------------------------------------------------------------------------------------

CHILD_TEST(LibUses, count_a_repeated_start_whose_last_registration_failed) {
  ASSERT_EQ(init(), 0u);
  fake::fail("rov_reg_dbg_dsetname_print", kRefused);
  ASSERT_EQ(init({.flags = kOnceMore}), kRefused);
  EXPECT_EQ(last_db, 0xdbu);
  EXPECT_EQ(qim_lib_close(last_db, 0), 0u);
  EXPECT_EQ(qim_lib_get()->use_count, 1) << "that close belonged to the start that failed";
  EXPECT_EQ(qim_lib_close(last_db, 0), 0u);
  EXPECT_EQ(qim_lib_close(last_db, 0), 0x4116000eu);
}

CHILD_TEST(LibUses, are_taken_back_although_the_database_refuses_to_close) {
  ASSERT_EQ(init({.flags = kOnceMore}), 0u);
  ASSERT_EQ(init(), 0u);
  fake::fail_every("rov_db_close", 0x41170003);
  EXPECT_EQ(qim_lib_close(0x999, 0), 0x41170003u);
  EXPECT_EQ(qim_lib_get()->use_count, 1);
  EXPECT_EQ(qim_lib_close(0x999, 0), 0x41170003u);
  EXPECT_EQ(qim_lib_get()->init_id, 0u) << "the context is cleared all the same";
  EXPECT_EQ(qim_lib_close(0x999, 0), 0x4116000eu);
}

}  // namespace
