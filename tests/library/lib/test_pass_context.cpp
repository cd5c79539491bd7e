// The passed-on operations that do something of their own: the library's handle, the logger and the
// debug flags in the context, and the call that goes through another exported one.

#include <thread>

#include "tests/support/fake/fixture.h"

namespace {

using fake::call;
using fake::Calls;

constexpr std::uint32_t kDb = 0xdb;
constexpr std::uint32_t kFailure = 0x41170047;

void other_logger(std::uint32_t, const char*, void*) {}

class PassContext : public fake::Test {};

// ---- The library's handle --------------------------------------------------------------------

TEST_F(PassContext, locks_are_set_for_the_contexts_library_whatever_was_given) {
  ctx()->rov_lib = 0x11b;
  for (const std::uint32_t given : {0u, 0x11bu, 0x77u, 0xffffffffu}) {
    fake::clear_calls();
    EXPECT_EQ(qim_lib_init_locks(given, 0xb, 0xc, 0xd, 0xe), 0u);
    EXPECT_EQ(fake::calls(), (Calls{call("rov_lib_init_locks", 0x11b, 0xb, 0xc, 0xd, 0xe)}));
  }
}

TEST_F(PassContext, locks_of_an_empty_context_are_the_databases_to_refuse) {
  fake::fail("rov_lib_init_locks", kFailure);
  EXPECT_EQ(qim_lib_init_locks(0x77, 1, 2, 3, 4), kFailure);
  EXPECT_EQ(fake::calls(), (Calls{call("rov_lib_init_locks", 0, 1, 2, 3, 4)}));
}

// ---- The logger ------------------------------------------------------------------------------

TEST_F(PassContext, logger_receives_the_librarys_own_reports_from_then_on) {
  int arg = 0;
  EXPECT_EQ(qim_db_reg_logger(kDb, fake::logger, &arg), 0u);
  qim_dbg_errors(QIM_ERR_INVALID, "somewhere", 7, ctx());
  EXPECT_EQ(fake::reports(),
            (std::vector<fake::Report>{{2, fake::report(QIM_ERR_INVALID, "somewhere", 7), &arg}}));
}

TEST_F(PassContext, logger_is_in_the_context_before_the_database_hears_of_it) {
  int arg = 0;
  fake::script("rov_db_reg_logger", [&](const fake::Call&) {
    EXPECT_EQ(ctx()->db_parms.logger, fake::logger);
    EXPECT_EQ(ctx()->db_parms.logger_arg, &arg);
    return 0u;
  });
  EXPECT_EQ(qim_db_reg_logger(kDb, fake::logger, &arg), 0u);
  EXPECT_EQ(fake::count("rov_db_reg_logger"), 1u);
}

TEST_F(PassContext, logger_stays_in_the_context_when_the_database_refuses_it) {
  int arg = 0;
  ctx()->db_parms.logger = other_logger;
  fake::fail("rov_db_reg_logger", kFailure);
  EXPECT_EQ(qim_db_reg_logger(kDb, fake::logger, &arg), kFailure);
  EXPECT_EQ(ctx()->db_parms.logger, fake::logger);
  EXPECT_EQ(ctx()->db_parms.logger_arg, &arg);
}

TEST_F(PassContext, null_takes_the_logger_away) {
  fake::report_everything(ctx());
  EXPECT_EQ(qim_db_reg_logger(kDb, nullptr, nullptr), 0u);
  qim_dbg_errors(QIM_ERR_INVALID, "somewhere", 7, ctx());
  EXPECT_EQ(fake::reports().size(), 0u);
}

CHILD_TEST(PassThreads, logger_is_the_calling_threads_alone) {
  ASSERT_EQ(qim_lib_tls_init(0), 0u);
  std::thread([] {
    ASSERT_EQ(qim_lib_tls_init(0), 0u);
    EXPECT_EQ(qim_db_reg_logger(kDb, fake::logger, nullptr), 0u);
    EXPECT_EQ(qim_lib_get()->db_parms.logger, fake::logger);
  }).join();
  EXPECT_EQ(qim_lib_get()->db_parms.logger, nullptr);
}

// ---- The debug flags -------------------------------------------------------------------------

TEST_F(PassContext, flags_decide_from_then_on_what_is_reported) {
  ctx()->db_parms.logger = fake::logger;
  qim_link_t link;
  EXPECT_EQ(qim_link_field_get(fake::kSes, 0, 0x81, &link), std::uint32_t{QIM_ERR_INVALID});
  EXPECT_EQ(fake::reports().size(), 0u);
  EXPECT_EQ(qim_db_debug(kDb, QIM_DBG_REPORT), 0u);
  EXPECT_EQ(qim_link_field_get(fake::kSes, 0, 0x81, &link), std::uint32_t{QIM_ERR_INVALID});
  EXPECT_EQ(fake::reports().size(), 1u);
}

TEST_F(PassContext, flags_are_in_the_context_before_the_database_hears_of_them) {
  fake::script("rov_db_debug", [](const fake::Call&) {
    EXPECT_EQ(ctx()->db_parms.dbg_flags, 0x90000001u);
    return 0u;
  });
  EXPECT_EQ(qim_db_debug(kDb, 0x90000001), 0u);
  EXPECT_EQ(fake::count("rov_db_debug"), 1u);
}

TEST_F(PassContext, flags_stay_in_the_context_when_the_database_refuses_them) {
  ctx()->db_parms.dbg_flags = 0x70;
  fake::fail("rov_db_debug", kFailure);
  EXPECT_EQ(qim_db_debug(kDb, 0x90000001), kFailure);
  EXPECT_EQ(ctx()->db_parms.dbg_flags, 0x90000001u);
}

CHILD_TEST(PassThreads, flags_of_another_thread_stay_as_they_are) {
  ASSERT_EQ(qim_lib_tls_init(0), 0u);
  EXPECT_EQ(qim_db_debug(kDb, 4), 0u);
  std::thread([] {
    ASSERT_EQ(qim_lib_tls_init(0), 0u);
    EXPECT_EQ(qim_lib_get()->db_parms.dbg_flags, 0u);
    EXPECT_EQ(qim_db_debug(kDb, QIM_DBG_REPORT), 0u);
    EXPECT_EQ(qim_lib_get()->db_parms.dbg_flags, QIM_DBG_REPORT);
  }).join();
  EXPECT_EQ(qim_lib_get()->db_parms.dbg_flags, 4u);
}

CHILD_TEST(PassThreads, flags_of_the_process_hold_in_every_thread_without_per_thread_contexts) {
  std::thread([] { EXPECT_EQ(qim_db_debug(kDb, 5), 0u); }).join();
  EXPECT_EQ(qim_lib_get()->db_parms.dbg_flags, 5u);
}

CHILD_TEST(PassThreads, locks_are_set_for_the_library_of_the_threads_own_context) {
  ASSERT_EQ(qim_lib_tls_init(0), 0u);
  qim_lib_get()->rov_lib = 1;
  std::thread([] {
    ASSERT_EQ(qim_lib_tls_init(0), 0u);
    qim_lib_get()->rov_lib = 2;
    EXPECT_EQ(qim_lib_init_locks(9, 3, 4, 5, 6), 0u);
  }).join();
  EXPECT_EQ(fake::calls(), (Calls{call("rov_lib_init_locks", 2, 3, 4, 5, 6)}));
}

// ---- Recovery --------------------------------------------------------------------------------

TEST_F(PassContext, recovery_asks_with_a_zero_for_the_flags) {
  rov_priv_t priv{};
  EXPECT_EQ(qim_db_priv_recover(0xa, 0xb, &priv), 0u);
  EXPECT_EQ(fake::calls(), (Calls{call("rov_db_priv_recover2", 0xa, 0xb, 0, &priv)}));
}

}  // namespace
