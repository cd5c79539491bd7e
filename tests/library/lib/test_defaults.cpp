// The optional first step, and the start-up calls that only forward.

#include <cstring>

#include "tests/support/fake/fixture.h"

namespace {

using fake::call;

class LibDefaults : public fake::Test {};

TEST_F(LibDefaults, starts_the_database_library_once) {
  EXPECT_EQ(qim_lib_defaults(0x1d, 0xa4), 0u);
  EXPECT_EQ(qim_lib_defaults(0x2d, 0xa5), 0u);
  EXPECT_EQ(fake::calls(), (fake::Calls{call("rov_lib_init", 0x1d, &ctx()->rov_lib),
                                        call("rov_lib_defaults", 0x11b, 0xa4),
                                        call("rov_lib_defaults", 0x11b, 0xa5)}));
  EXPECT_EQ(ctx()->rov_lib, 0x11bu);
  EXPECT_EQ(ctx()->init_id, 0u) << "the context is not initialised by it";
}

TEST_F(LibDefaults, reports_a_database_library_that_does_not_start_at_line_135) {
  fake::report_everything(ctx());
  fake::fail("rov_lib_init", 0x41170004);
  EXPECT_EQ(qim_lib_defaults(0x1d, 0xa4), 0x41170004u);
  EXPECT_EQ(fake::report_texts(),
            std::vector<std::string>{fake::report(0x41170004, "qim_lib_defaults", 135)});
  EXPECT_EQ(fake::count("rov_lib_defaults"), 0u);
  EXPECT_EQ(ctx()->rov_lib, 0u);
}

TEST_F(LibDefaults, reports_under_the_debug_bit_only) {
  ctx()->db_parms.logger = fake::logger;
  ctx()->db_parms.dbg_flags = QIM_DBG_ALL;
  fake::fail("rov_lib_init", 0x41170004);
  EXPECT_EQ(qim_lib_defaults(0x1d, 0xa4), 0x41170004u);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(LibDefaults, returns_the_failure_of_the_second_step_unreported) {
  fake::report_everything(ctx());
  fake::fail("rov_lib_defaults", 0x41170002);
  EXPECT_EQ(qim_lib_defaults(0x1d, 0xa4), 0x41170002u);
  EXPECT_EQ(fake::reports().size(), 0u);
  EXPECT_EQ(ctx()->rov_lib, 0x11bu);
}

class LibForward : public fake::Test {};

TEST_F(LibForward, init_locks_replaces_its_first_argument_by_the_library_handle) {
  ctx()->rov_lib = 0x99;
  fake::fail("rov_lib_init_locks", 0x41170001, 2);
  EXPECT_EQ(qim_lib_init_locks(1, 2, 3, 4, 5), 0u);
  EXPECT_EQ(qim_lib_init_locks(7, 2, 3, 4, 5), 0x41170001u);
  EXPECT_EQ(fake::calls(), (fake::Calls{call("rov_lib_init_locks", 0x99, 2, 3, 4, 5),
                                        call("rov_lib_init_locks", 0x99, 2, 3, 4, 5)}));
}

TEST_F(LibForward, parameter_block_initialisation) {
  rov_parms_t parms;
  fake::settings().defaults.vdc = 12;
  EXPECT_EQ(qim_db_init_parms_init(&parms, 3), 0u);
  EXPECT_EQ(parms.p.vdc, 12u);
  fake::fail("rov_db_init_parms_init", 0x41170002);
  EXPECT_EQ(qim_db_init_parms_init(&parms, 4), 0x41170002u);
  EXPECT_EQ(fake::calls(), (fake::Calls{call("rov_db_init_parms_init", &parms, 3),
                                        call("rov_db_init_parms_init", &parms, 4)}));
}

TEST_F(LibForward, opening_a_session) {
  std::uint32_t ses = 0;
  EXPECT_EQ(qim_ses_open_ro(0xdb, &ses), 0u);
  EXPECT_EQ(ses, fake::settings().ses);
  fake::fail("rov_ses_open_ro", 0x41170003);
  EXPECT_EQ(qim_ses_open_ro(0xdc, &ses), 0x41170003u);
  EXPECT_EQ(fake::calls(), (fake::Calls{call("rov_ses_open_ro", 0xdb, &ses),
                                        call("rov_ses_open_ro", 0xdc, &ses)}));
}

TEST_F(LibForward, the_base_session) {
  std::uint32_t base = 0;
  EXPECT_EQ(qim_ses_orig_handle(7, &base), 0u);
  EXPECT_EQ(base, fake::settings().base_ses);
  fake::fail("rov_ses_orig_handle", 0x41170003);
  EXPECT_EQ(qim_ses_orig_handle(8, &base), 0x41170003u);
  EXPECT_EQ(fake::calls(), (fake::Calls{call("rov_ses_orig_handle", 7, &base),
                                        call("rov_ses_orig_handle", 8, &base)}));
}

TEST_F(LibForward, ps_sizes) {
  fake::fail("rov_db_set_ps_sizes", 0x41170001, 2);
  EXPECT_EQ(qim_db_set_ps_sizes(1, 2, 3), 0u);
  EXPECT_EQ(qim_db_set_ps_sizes(1, 2, 3), 0x41170001u);
  EXPECT_EQ(fake::calls(), (fake::Calls{call("rov_db_set_ps_sizes", 1, 2, 3),
                                        call("rov_db_set_ps_sizes", 1, 2, 3)}));
}

}  // namespace
