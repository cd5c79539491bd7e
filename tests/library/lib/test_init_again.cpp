// A second initialisation of one context, and shut-down.

#include <cstring>

#include "init_call.h"

namespace {

using fake::call;
using lib_tests::init;
using lib_tests::Init;
using lib_tests::last_db;
using lib_tests::report_all;
using lib_tests::reports_of_init;

constexpr std::uint32_t kAgain = QIM_INIT_AGAIN;

// A context initialised with these flags, and a platform that has forgotten about it.
void initialised(std::uint32_t flags) {
  report_all();
  ASSERT_EQ(init({.flags = flags}), 0u);
  fake::clear_calls();
}

void expect_refusal(const Init& with, int line) {
  EXPECT_EQ(init(with), 0x41160005u);
  EXPECT_EQ(fake::report_texts(), reports_of_init(0x41160005, line));
  EXPECT_EQ(fake::calls(), fake::Calls{});
  EXPECT_EQ(last_db, 0u);
  EXPECT_EQ(qim_lib_get()->use_count, 1);
}

CHILD_TEST(LibInitAgain, is_allowed_by_the_bit_in_the_second_call) {
  initialised(0);
  EXPECT_EQ(init({.flags = kAgain}), 0u);
  EXPECT_EQ(qim_lib_get()->use_count, 2);
  EXPECT_EQ(last_db, 0xdbu);
}

CHILD_TEST(LibInitAgain, is_allowed_by_the_bit_in_the_first_call) {
  initialised(kAgain);
  EXPECT_EQ(init(), 0u);
  EXPECT_EQ(qim_lib_get()->use_count, 2);
}

CHILD_TEST(LibInitAgain, refuses_another_identity_at_line_189) {
  initialised(kAgain);
  expect_refusal({.id = 0x1e, .flags = kAgain}, 189);
}

TEST(LibInitAgain, refuses_a_difference_in_these_flag_bits_at_line_193) {
  for (const std::uint32_t bit : {0x40000000u, 0x40u, 0x20u, 0x2u, 0x1u}) {
    SCOPED_TRACE(bit);
    fake::in_child([bit] {
      initialised(kAgain);
      expect_refusal({.flags = kAgain | bit}, 193);
    });
    fake::in_child([bit] {
      initialised(kAgain | bit);
      expect_refusal({.flags = kAgain}, 193);
    });
  }
}

TEST(LibInitAgain, accepts_a_difference_in_any_other_flag_bit) {
  for (unsigned shift = 0; shift < 32; ++shift) {
    const std::uint32_t bit = 1u << shift;
    if ((bit & (0x40000063u | kAgain)) != 0) continue;
    SCOPED_TRACE(bit);
    fake::in_child([bit] {
      initialised(kAgain);
      EXPECT_EQ(init({.flags = kAgain | bit}), 0u);
    });
  }
}

CHILD_TEST(LibInitAgain, refuses_at_line_196_when_neither_call_has_the_bit) {
  initialised(0);
  expect_refusal({}, 196);
}

CHILD_TEST(LibInitAgain, looks_at_the_identity_before_the_flags) {
  initialised(0);
  expect_refusal({.id = 2, .flags = 1, .rov_lib = 9}, 189);
}

CHILD_TEST(LibInitAgain, looks_at_the_flags_before_the_bit) {
  initialised(0);
  expect_refusal({.flags = 1, .rov_lib = 9}, 193);
}

CHILD_TEST(LibInitAgain, looks_at_the_bit_before_the_library_handle) {
  initialised(0);
  expect_refusal({.rov_lib = 9}, 196);
}

CHILD_TEST(LibInitAgain, refuses_another_library_handle_at_line_210) {
  initialised(kAgain);
  expect_refusal({.rov_lib = 9}, 210);
}

CHILD_TEST(LibInitAgain, reports_refusals_under_the_debug_bit_only) {
  initialised(0);
  qim_lib_get()->db_parms.dbg_flags = QIM_DBG_ALL;
  EXPECT_EQ(init({.id = 2}), 0x41160005u);
  EXPECT_EQ(init({.flags = 1}), 0x41160005u);
  EXPECT_EQ(init(), 0x41160005u);
  EXPECT_EQ(init({.flags = kAgain, .rov_lib = 9}), 0x41160005u);
  EXPECT_EQ(fake::reports().size(), 0u);
}

CHILD_TEST(LibInitAgain, opens_and_registers_anew_but_refreshes_nothing_without_the_first_bit) {
  initialised(0);
  fake::settings().parms.vdc = 64;
  EXPECT_EQ(init({.arg = 0xbb, .flags = kAgain}), 0u);
  EXPECT_EQ(fake::names(), (std::vector<std::string>{
                               "rov_db_init_parms_init", "rov_db_init", "rov_db_reg_node_id_cnv",
                               "rov_reg_show_output", "rov_reg_show_output",
                               "rov_reg_extract_pinst", "rov_reg_dbg_dsetname_print"}));
  const qim_lib_ctx_t* const ctx = qim_lib_get();
  EXPECT_EQ(ctx->init_arg, 0xa4u);
  EXPECT_EQ(ctx->init_flags, 0u);
  EXPECT_EQ(ctx->db_parms.vdc, 0u);
}

CHILD_TEST(LibInitAgain, refreshes_on_every_call_with_the_first_bit) {
  initialised(kAgain);
  fake::settings().parms.vdc = 7;
  EXPECT_EQ(init({.arg = 0xbb, .flags = kAgain | 0x10}), 0u);
  EXPECT_EQ(fake::count("rov_db_init_parms_get"), 1u);
  const qim_lib_ctx_t* const ctx = qim_lib_get();
  EXPECT_EQ(ctx->init_arg, 0xbbu);
  EXPECT_EQ(ctx->init_flags, kAgain | 0x10u);
  EXPECT_EQ(ctx->db_parms.vdc, 7u);
  EXPECT_EQ(ctx->use_count, 2);
}

CHILD_TEST(LibInitAgain, forgets_the_bit_with_a_refresh_that_lacks_it) {
  initialised(kAgain);
  EXPECT_EQ(init(), 0u);
  EXPECT_EQ(qim_lib_get()->init_flags, 0u);
  EXPECT_EQ(init(), 0x41160005u);
}

CHILD_TEST(LibInitAgain, refuses_a_refreshed_vdc_above_63_and_does_not_count_the_use) {
  initialised(kAgain);
  fake::settings().parms.vdc = 64;
  EXPECT_EQ(init({.flags = kAgain}), 0x4116000cu);
  EXPECT_EQ(qim_lib_get()->db_parms.vdc, 64u);
  EXPECT_EQ(qim_lib_get()->use_count, 1);
}

CHILD_TEST(LibInitAgain, reports_a_failed_refresh_at_line_247) {
  initialised(kAgain);
  fake::fail("rov_db_init_parms_get", 0x41170003);
  EXPECT_EQ(init({.arg = 0xbb}), 0x41170003u);
  EXPECT_EQ(fake::report_texts(), reports_of_init(0x41170003, 247));
  EXPECT_EQ(qim_lib_get()->init_arg, 0xa4u);
  EXPECT_EQ(qim_lib_get()->use_count, 1);
}

CHILD_TEST(LibInitAgain, returns_the_last_registrations_failure_although_the_use_counts) {
  initialised(0);
  fake::fail("rov_reg_dbg_dsetname_print", 0x41170002);
  EXPECT_EQ(init({.flags = kAgain}), 0x41170002u);
  EXPECT_EQ(qim_lib_get()->use_count, 2);
  EXPECT_EQ(fake::report_texts(), reports_of_init(0x41160003, 242));
}

CHILD_TEST(LibInitAgain, forgets_the_failures_of_the_earlier_registrations) {
  initialised(0);
  fake::fail_every("rov_reg_show_output", 0x41170002);
  fake::fail("rov_reg_extract_pinst", 0x41170002);
  EXPECT_EQ(init({.flags = kAgain}), 0u);
  EXPECT_EQ(fake::reports().size(), 3u);
}

CHILD_TEST(LibInitAgain, forgets_the_last_registrations_failure_with_a_refresh) {
  initialised(kAgain);
  fake::fail("rov_reg_dbg_dsetname_print", 0x41170002);
  EXPECT_EQ(init({.flags = kAgain}), 0u);
}

// ---- Shut-down
// --------------------------------------------------------------------------------------

CHILD_TEST(LibClose, without_a_use_does_not_touch_the_database) {
  report_all();
  EXPECT_EQ(qim_lib_close(0xdb, 1), 0x4116000eu);
  qim_lib_get()->use_count = -1;
  EXPECT_EQ(qim_lib_close(0xdb, 1), 0x4116000eu);
  EXPECT_EQ(qim_lib_get()->use_count, -1);
  EXPECT_EQ(fake::calls(), fake::Calls{});
  EXPECT_EQ(fake::reports().size(), 0u);
}

CHILD_TEST(LibClose, counts_down_and_clears_the_context_at_zero) {
  initialised(kAgain);
  ASSERT_EQ(init(), 0u);
  fake::clear_calls();
  EXPECT_EQ(qim_lib_close(0xdb, 0x21), 0u);
  EXPECT_EQ(qim_lib_get()->use_count, 1);
  EXPECT_EQ(qim_lib_get()->init_id, 0x1du);
  EXPECT_EQ(qim_lib_close(0xdc, 0x22), 0u);
  const qim_lib_ctx_t zero{};
  EXPECT_EQ(std::memcmp(qim_lib_get(), &zero, sizeof zero), 0);
  EXPECT_EQ(fake::calls(),
            (fake::Calls{call("rov_db_close", 0xdb, 0x21), call("rov_db_close", 0xdc, 0x22)}));
  EXPECT_EQ(qim_lib_close(0xdc, 0), 0x4116000eu);
}

CHILD_TEST(LibClose, clears_every_byte_of_the_context) {
  qim_lib_ctx_t* const ctx = qim_lib_get();
  std::memset(static_cast<void*>(ctx), 0x77, sizeof *ctx);
  ctx->use_count = 1;
  EXPECT_EQ(qim_lib_close(0xdb, 0), 0u);
  const qim_lib_ctx_t zero{};
  EXPECT_EQ(std::memcmp(ctx, &zero, sizeof zero), 0);
}

CHILD_TEST(LibClose, clears_before_the_database_closes_and_returns_its_status_unreported) {
  initialised(0);
  fake::script("rov_db_close", [](const fake::Call&) {
    EXPECT_EQ(qim_lib_get()->init_id, 0u);
    return 0x41170003u;
  });
  EXPECT_EQ(qim_lib_close(0xdb, 0), 0x41170003u);
  EXPECT_EQ(qim_lib_get()->use_count, 0);
  EXPECT_EQ(fake::reports().size(), 0u);
}

CHILD_TEST(LibClose, makes_the_next_start_a_first_one) {
  initialised(0);
  ASSERT_EQ(qim_lib_close(0xdb, 0), 0u);
  fake::clear_calls();
  EXPECT_EQ(init({.id = 0x33}), 0u);
  EXPECT_EQ(fake::names()[0], "rov_lib_init");
  EXPECT_EQ(fake::count("rov_db_init_parms_get"), 1u);
  EXPECT_EQ(qim_lib_get()->init_id, 0x33u);
}

}  // namespace
