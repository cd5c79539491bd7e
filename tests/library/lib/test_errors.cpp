// Failure reports: which statuses are printed, how, and which reach the abort check.

#include <algorithm>
#include <cstring>

#include "tests/support/fake/fixture.h"

namespace {

constexpr std::uint32_t kListed[] = {0x41160000, 0x41160001, 0x41160003, 0x41160004,
                                     0x41160005, 0x41160006, 0x4116000c, 0x4116000d,
                                     0x4116000e, 0x4116000f, 0x41160010};
constexpr std::uint32_t kUnlisted[] = {
    0,          1,          0x41160002, 0x41160007, 0x41160008, 0x41160009, 0x4116000a, 0x4116000b,
    0x41160011, 0x41170000, 0x41170003, 0x41170005, 0x41170006, 0x4117000f, 0x00000005, 0xffffffff};

class Errors : public fake::Test {
 protected:
  void SetUp() override {
    fake::Test::SetUp();
    ctx()->db_parms.logger = fake::logger;
    std::memset(qim_dbgmsg, 0, sizeof qim_dbgmsg);
  }

  // What a report did.
  static std::size_t printed(std::uint32_t status, std::uint32_t flags) {
    const std::size_t before = fake::reports().size();
    ctx()->db_parms.dbg_flags = flags;
    qim_dbg_errors(status, "f", 1, ctx());
    return fake::reports().size() - before;
  }
  static std::size_t checked(std::uint32_t status, qim_lib_ctx_t* context) {
    const std::size_t before = fake::count("rov_dbg_abort_chk");
    qim_dbg_errors(status, "f", 1, context);
    return fake::count("rov_dbg_abort_chk") - before;
  }
  static std::size_t checked(std::uint32_t status, std::uint32_t flags) {
    ctx()->db_parms.dbg_flags = flags;
    return checked(status, ctx());
  }
};

TEST_F(Errors, have_these_codes) {
  EXPECT_EQ(QIM_ERR_GENERIC, 0x41160000);
  EXPECT_EQ(QIM_ERR_NOT_SUPPORTED, 0x41160001);
  EXPECT_EQ(QIM_ERR_NODE_TYPE, 0x41160002);
  EXPECT_EQ(QIM_ERR_INTERNAL, 0x41160003);
  EXPECT_EQ(QIM_ERR_THREAD, 0x41160004);
  EXPECT_EQ(QIM_ERR_INVALID, 0x41160005);
  EXPECT_EQ(QIM_ERR_6, 0x41160006);
  EXPECT_EQ(QIM_ERR_NO_EDEST, 0x41160008);
  EXPECT_EQ(QIM_ERR_VDC_RANGE, 0x4116000c);
  EXPECT_EQ(QIM_ERR_BUF_SMALL, 0x4116000d);
  EXPECT_EQ(QIM_ERR_NOT_INIT, 0x4116000e);
  EXPECT_EQ(QIM_ERR_DEST_FMT, 0x4116000f);
  EXPECT_EQ(QIM_ERR_NO_MEM, 0x41160010);
}

TEST_F(Errors, are_one_line_with_status_function_and_line_at_severity_2) {
  int arg = 0;
  ctx()->db_parms.logger_arg = &arg;
  qim_dbg_errors(0x41160005, "qim_lib_init", 189, ctx());
  EXPECT_EQ(
      fake::reports(),
      (std::vector<fake::Report>{{2, "ERROR STATUS: 0x41160005 (qim_lib_init/189)\n", &arg}}));
  EXPECT_STREQ(qim_dbgmsg, "ERROR STATUS: 0x41160005 (qim_lib_init/189)\n");
}

const char* logged_at;
void keep_address(std::uint32_t, const char* text, void*) {
  logged_at = text;
}

TEST_F(Errors, are_handed_to_the_logger_in_the_exported_buffer) {
  ctx()->db_parms.logger = keep_address;
  qim_dbg_errors(0x41160005, "f", 1, ctx());
  EXPECT_EQ(logged_at, qim_dbgmsg);
  EXPECT_EQ(sizeof qim_dbgmsg, 512u);
}

TEST_F(Errors, print_the_status_in_hexadecimal_and_the_line_as_signed) {
  ctx()->db_parms.dbg_flags = QIM_DBG_ALL;
  qim_dbg_errors(0xffffffff, "f", -7, ctx());
  qim_dbg_errors(0, "f", 0, ctx());
  EXPECT_EQ(fake::report_texts(), (std::vector<std::string>{"ERROR STATUS: 0xffffffff (f/-7)\n",
                                                            "ERROR STATUS: 0x0 (f/0)\n"}));
}

TEST_F(Errors, cut_the_functions_name_at_64_characters) {
  const std::string kept(64, 'n');
  qim_dbg_errors(0x41160005, kept.c_str(), 1, ctx());
  qim_dbg_errors(0x41160005, (kept + "x").c_str(), 1, ctx());
  qim_dbg_errors(0x41160005, (kept + std::string(1000, 'x')).c_str(), 1, ctx());
  const std::string text = "ERROR STATUS: 0x41160005 (" + kept + "/1)\n";
  EXPECT_EQ(fake::report_texts(), (std::vector<std::string>{text, text, text}));
}

TEST_F(Errors, need_no_terminator_behind_64_characters) {
  std::vector<char> name(64, 'n');
  qim_dbg_errors(0x41160005, name.data(), 1, ctx());
  EXPECT_EQ(fake::report_texts()[0], "ERROR STATUS: 0x41160005 (" + std::string(64, 'n') + "/1)\n");
}

TEST_F(Errors, of_the_listed_set_are_printed_whatever_the_flags) {
  for (const std::uint32_t status : kListed) EXPECT_EQ(printed(status, 0), 1u) << status;
}

TEST_F(Errors, outside_the_listed_set_are_printed_under_their_own_bit_only) {
  for (const std::uint32_t status : kUnlisted) {
    EXPECT_EQ(printed(status, 0xffffffff & ~QIM_DBG_ALL), 0u) << status;
    EXPECT_EQ(printed(status, QIM_DBG_ALL), 1u) << status;
  }
}

TEST_F(Errors, are_not_formatted_without_a_logger_but_still_checked) {
  ctx()->db_parms.logger = nullptr;
  std::strcpy(qim_dbgmsg, "before");
  EXPECT_EQ(checked(0x41160003, QIM_DBG_ALL), 1u);
  EXPECT_STREQ(qim_dbgmsg, "before");
}

TEST_F(Errors, are_not_formatted_without_a_context_but_still_checked) {
  std::strcpy(qim_dbgmsg, "before");
  EXPECT_EQ(checked(0x41160005, nullptr), 1u);
  EXPECT_STREQ(qim_dbgmsg, "before");
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(Errors, stay_in_the_buffer_until_the_next_printed_one) {
  qim_dbg_errors(0x41160005, "first", 1, ctx());
  qim_dbg_errors(0x41170006, "second", 2, ctx());
  EXPECT_STREQ(qim_dbgmsg, "ERROR STATUS: 0x41160005 (first/1)\n");
}

TEST_F(Errors, of_the_listed_set_reach_the_abort_check_under_the_strict_bit_or_without_context) {
  for (const std::uint32_t status : kListed) {
    const std::size_t always = status == 0x41160003 ? 1 : 0;
    EXPECT_EQ(checked(status, QIM_DBG_REPORT), always) << status;
    EXPECT_EQ(checked(status, 0xffffffff & ~QIM_DBG_STRICT), always) << status;
    EXPECT_EQ(checked(status, QIM_DBG_REPORT | QIM_DBG_STRICT), 1u) << status;
    EXPECT_EQ(checked(status, QIM_DBG_STRICT), 1u) << status;
    EXPECT_EQ(checked(status, nullptr), 1u) << status;
  }
}

TEST_F(Errors, outside_the_listed_set_never_reach_the_abort_check) {
  for (const std::uint32_t status : kUnlisted) {
    EXPECT_EQ(checked(status, 0xffffffff), 0u) << status;
    EXPECT_EQ(checked(status, nullptr), 0u) << status;
  }
}

std::size_t checks_when_logged;
void count_checks(std::uint32_t, const char*, void*) {
  checks_when_logged = fake::count("rov_dbg_abort_chk");
}

TEST_F(Errors, are_logged_before_the_abort_check) {
  ctx()->db_parms.logger = count_checks;
  checks_when_logged = 99;
  EXPECT_EQ(checked(0x41160003, 0u), 1u);
  EXPECT_EQ(checks_when_logged, 0u);
}

TEST_F(Errors, leave_the_client_word_alone) {
  qim_dbg = 0x1234;
  qim_dbg_errors(0x41160003, "f", 1, ctx());
  EXPECT_EQ(qim_dbg, 0x1234u);
  qim_dbg = 0;
}

}  // namespace
