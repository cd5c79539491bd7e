// Start-up: its steps, in order, and what each failure leaves.

#include <cstring>

#include "init_call.h"

namespace {

using fake::any;
using fake::call;
using lib_tests::init;
using lib_tests::Init;
using lib_tests::kA1;
using lib_tests::kA2;
using lib_tests::kA6;
using lib_tests::last_db;
using lib_tests::report_all;
using lib_tests::reports_of_init;

// The block that the database was opened with.
rov_parms_t block_of_db_init() {
  rov_parms_t block{};
  const fake::Calls calls = fake::calls_of("rov_db_init");
  if (calls.size() != 1 || calls[0].bytes.size() != sizeof block) {
    ADD_FAILURE() << "the database was not opened once";
  } else {
    std::memcpy(&block, calls[0].bytes.data(), sizeof block);
  }
  return block;
}

CHILD_TEST(LibInit, calls_the_platform_in_this_order_with_these_arguments) {
  rov_parms_t parms{};
  ASSERT_EQ(init({.parms = &parms, .flags = 0xf4}), 0u);
  EXPECT_EQ(
      fake::calls(),
      (fake::Calls{call("rov_lib_init", 0x1d, &qim_lib_get()->rov_lib),
                   call("rov_db_init", 0x11b, 1, kA1, kA2, 4, kA6, &parms, 0xf4, &last_db),
                   call("rov_db_reg_node_id_cnv", 0xdb, &rov_node_id_to_qim, &rov_node_id_from_qim),
                   call("rov_reg_show_output", 0xdb, &qim_dbg_tlva_handler),
                   call("rov_reg_show_output", 0xdb, &qim_dbg_dsetname),
                   call("rov_reg_extract_pinst", 0xdb, &qim_extract_pinst_from_sub),
                   call("rov_reg_dbg_dsetname_print", 0xdb, &qim_dbg_dsetname_print),
                   call("rov_db_init_parms_get", 0xdb, 1, any)}));
}

CHILD_TEST(LibInit, gives_the_database_handle_and_fills_the_context) {
  fake::settings().parms.vdc = 63;
  fake::settings().parms.dbg_flags = 0x1234;
  fake::settings().parms.reserved2[9] = 0x99;
  ASSERT_EQ(init({.arg = 0xa4, .flags = 0x10}), 0u);
  EXPECT_EQ(last_db, 0xdbu);
  const qim_lib_ctx_t* const ctx = qim_lib_get();
  EXPECT_EQ(ctx->rov_lib, 0x11bu);
  EXPECT_EQ(ctx->init_id, 0x1du);
  EXPECT_EQ(ctx->init_arg, 0xa4u);
  EXPECT_EQ(ctx->init_flags, 0x10u);
  EXPECT_EQ(ctx->use_count, 1);
  EXPECT_EQ(std::memcmp(&ctx->db_parms, &fake::settings().parms, sizeof ctx->db_parms), 0);
}

CHILD_TEST(LibInit, clears_the_handle_first) {
  fake::fail("rov_lib_init", 0x41170004);
  EXPECT_EQ(init(), 0x41170004u);
  EXPECT_EQ(last_db, 0u);
}

// ---- The parameter block ------------------------------------------------------------------------

CHILD_TEST(LibInit, writes_the_identity_into_word_14_of_the_callers_block_and_nothing_else) {
  rov_parms_t parms;
  std::memset(&parms, 0x3c, sizeof parms);
  rov_parms_t expected = parms;
  expected.p.init_id = 0x1d;
  ASSERT_EQ(init({.parms = &parms}), 0u);
  EXPECT_EQ(std::memcmp(&parms, &expected, sizeof parms), 0);
  const rov_parms_t passed = block_of_db_init();
  EXPECT_EQ(std::memcmp(&passed, &expected, sizeof passed), 0);
  EXPECT_NE(fake::calls_of("rov_db_init_parms_get")[0].pointer<rov_parms_t>(2), &parms);
  EXPECT_EQ(fake::count("rov_db_init_parms_init"), 0u);
}

CHILD_TEST(LibInit, uses_default_parameters_of_version_1_when_given_none) {
  fake::settings().defaults.vdc = 17;
  ASSERT_EQ(init(), 0u);
  const fake::Calls made = fake::calls_of("rov_db_init_parms_init");
  ASSERT_EQ(made.size(), 1u);
  EXPECT_EQ(made[0].u32(1), 1u);
  EXPECT_EQ(made[0].args[0], fake::calls_of("rov_db_init")[0].args[6]);
  EXPECT_EQ(fake::names()[0], "rov_lib_init");
  EXPECT_EQ(fake::names()[1], "rov_db_init_parms_init");
  EXPECT_EQ(fake::names()[2], "rov_db_init");
  const rov_parms_t passed = block_of_db_init();
  EXPECT_EQ(passed.version, 1u);
  EXPECT_EQ(passed.p.vdc, 17u);
  EXPECT_EQ(passed.p.init_id, 0x1du);
}

CHILD_TEST(LibInit, does_not_look_at_the_status_of_the_default_parameters) {
  report_all();
  fake::fail("rov_db_init_parms_init", 0x41170002);
  EXPECT_EQ(init(), 0u);
  EXPECT_EQ(block_of_db_init().p.init_id, 0x1du);
  EXPECT_EQ(fake::reports().size(), 0u);
  EXPECT_EQ(qim_lib_get()->use_count, 1);
}

// ---- The database-library handle ----------------------------------------------------------------

CHILD_TEST(LibInit, takes_the_callers_library_handle) {
  ASSERT_EQ(init({.rov_lib = 0x77}), 0u);
  EXPECT_EQ(fake::count("rov_lib_init"), 0u);
  EXPECT_EQ(qim_lib_get()->rov_lib, 0x77u);
  EXPECT_EQ(fake::calls_of("rov_db_init")[0].u32(0), 0x77u);
}

CHILD_TEST(LibInit, uses_the_library_handle_that_the_context_has) {
  ASSERT_EQ(qim_lib_defaults(1, 1), 0u);
  ASSERT_EQ(init(), 0u);
  EXPECT_EQ(fake::count("rov_lib_init"), 1u);
}

CHILD_TEST(LibInit, accepts_the_same_library_handle_again) {
  ASSERT_EQ(qim_lib_defaults(1, 1), 0u);
  ASSERT_EQ(init({.rov_lib = 0x11b}), 0u);
  EXPECT_EQ(qim_lib_get()->rov_lib, 0x11bu);
}

CHILD_TEST(LibInit, refuses_another_library_handle_at_line_210) {
  report_all();
  ASSERT_EQ(qim_lib_defaults(1, 1), 0u);
  fake::clear_calls();
  EXPECT_EQ(init({.rov_lib = 0x77}), 0x41160005u);
  EXPECT_EQ(fake::report_texts(), reports_of_init(0x41160005, 210));
  EXPECT_EQ(fake::calls(), fake::Calls{});
  EXPECT_EQ(qim_lib_get()->rov_lib, 0x11bu);
  EXPECT_EQ(last_db, 0u);
}

// ---- Failures of the steps
// ------------------------------------------------------------------------

struct Failing {
  const char* function;
  int line;
  bool keeps_rov_lib;
};

void fails_at(const Failing& step, bool debug) {
  fake::in_child([&] {
    report_all();
    if (!debug) qim_lib_get()->db_parms.dbg_flags = QIM_DBG_ALL;
    fake::fail(step.function, 0x41170099);
    EXPECT_EQ(init(), 0x41170099u);
    EXPECT_EQ(fake::report_texts(),
              debug ? reports_of_init(0x41170099, step.line) : std::vector<std::string>{});
    EXPECT_EQ(fake::names().back(), step.function) << "nothing follows a failed step";
    EXPECT_EQ(qim_lib_get()->rov_lib, step.keeps_rov_lib ? 0x11bu : 0u);
    EXPECT_EQ(qim_lib_get()->init_id, 0u);
    EXPECT_EQ(qim_lib_get()->use_count, 0);
  });
}

constexpr Failing kFailing[] = {{"rov_lib_init", 203, false},
                                {"rov_db_init", 222, true},
                                {"rov_db_reg_node_id_cnv", 230, true},
                                {"rov_db_init_parms_get", 247, true}};

TEST(LibInit, reports_and_returns_the_failure_of_each_step) {
  for (const Failing& step : kFailing) {
    SCOPED_TRACE(step.function);
    fails_at(step, true);
  }
}

TEST(LibInit, reports_under_the_debug_bit_only) {
  for (const Failing& step : kFailing) {
    SCOPED_TRACE(step.function);
    fails_at(step, false);
  }
}

CHILD_TEST(LibInit, keeps_what_a_failed_start_left_and_goes_on_from_there) {
  fake::fail("rov_db_init", 0x41170040);
  EXPECT_EQ(init(), 0x41170040u);
  EXPECT_EQ(last_db, 0u);
  EXPECT_EQ(init(), 0u);
  EXPECT_EQ(fake::count("rov_lib_init"), 1u);
}

// ---- Registrations
// ----------------------------------------------------------------------------------

struct Registration {
  const char* function;
  unsigned nth;
  int line;
};
constexpr Registration kRegistrations[] = {{"rov_reg_show_output", 1, 233},
                                           {"rov_reg_show_output", 2, 236},
                                           {"rov_reg_extract_pinst", 1, 239},
                                           {"rov_reg_dbg_dsetname_print", 1, 242}};

TEST(LibInitRegistration, that_fails_is_reported_whatever_the_debug_flags_and_start_up_goes_on) {
  for (const Registration& r : kRegistrations) {
    SCOPED_TRACE(r.line);
    fake::in_child([&r] {
      qim_lib_get()->db_parms.logger = fake::logger;
      fake::fail(r.function, 0x41170002, r.nth);
      EXPECT_EQ(init(), 0u);
      EXPECT_EQ(fake::report_texts(), reports_of_init(0x41160003, r.line));
      EXPECT_EQ(fake::count("rov_dbg_abort_chk"), 1u);
      EXPECT_EQ(fake::count("rov_reg_show_output"), 2u);
      EXPECT_EQ(fake::count("rov_reg_extract_pinst"), 1u);
      EXPECT_EQ(fake::count("rov_reg_dbg_dsetname_print"), 1u);
      EXPECT_EQ(qim_lib_get()->use_count, 1);
    });
  }
}

CHILD_TEST(LibInitRegistration, reaches_the_abort_check_without_a_logger) {
  for (const Registration& r : kRegistrations) fake::fail(r.function, 0x41170002, r.nth);
  fake::fail_every("rov_reg_show_output", 0x41170002);
  EXPECT_EQ(init(), 0u);
  EXPECT_EQ(fake::count("rov_dbg_abort_chk"), 4u);
}

// ---- The VDC
// ----------------------------------------------------------------------------------------

void refuses_vdc(std::uint32_t vdc) {
  fake::in_child([vdc] {
    report_all();
    fake::settings().parms.vdc = vdc;
    EXPECT_EQ(init({.flags = 0x10}), 0x4116000cu);
    EXPECT_EQ(fake::reports().size(), 0u);
    const qim_lib_ctx_t* const ctx = qim_lib_get();
    EXPECT_EQ(ctx->db_parms.vdc, vdc);
    EXPECT_EQ(ctx->init_id, 0x1du);
    EXPECT_EQ(ctx->init_arg, 0xa4u);
    EXPECT_EQ(ctx->init_flags, 0x10u);
    EXPECT_EQ(ctx->use_count, 0);
    EXPECT_EQ(qim_lib_close(last_db, 0), 0x4116000eu);
  });
}

TEST(LibInit, refuses_a_vdc_above_63_unreported_and_keeps_the_parameters) {
  refuses_vdc(64);
  refuses_vdc(0xffffffff);
}

}  // namespace
