// The history of failures, what may be retried, loggers and debug flags, the abort check.
#include <thread>

#include "tests/database/database_fixture.h"

namespace {

using namespace testing_rov;

using DiagnosticsTest = DatabaseTest;

// Fails with ROV_ERR_NO_ITEM for that node.
void look_for(uint32_t ses, uint32_t node) {
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(ses, id(node), &parms), ROV_ERR_NO_ITEM);
}

TEST_F(DiagnosticsTest, TheNewestFailureComesFirstAndThenTheOnesBefore) {
  const uint32_t ses = read();
  look_for(ses, 0x11);
  look_for(ses, 0x22);
  rov_err_t err = {};
  ASSERT_OK(rov_err_getprev(&err));
  EXPECT_EQ(err.status, uint32_t{ROV_ERR_NO_ITEM});
  EXPECT_NE(std::string(err.message).find("0x00000022"), std::string::npos);
  const uint32_t newest = err.seq;
  ASSERT_OK(rov_err_getprev(&err));
  EXPECT_EQ(err.seq, newest - 1);
  EXPECT_NE(std::string(err.message).find("0x00000011"), std::string::npos);
}

TEST_F(DiagnosticsTest, SixteenFailuresAreKept) {
  const uint32_t ses = read();
  for (uint32_t node = 1; node <= 40; ++node) look_for(ses, node);
  rov_err_t err = {};
  uint32_t kept = 0;
  while (rov_err_getprev(&err) == ROV_OK) ++kept;
  EXPECT_EQ(kept, 16U);
  EXPECT_NE(std::string(err.message).find("0x00000019"), std::string::npos) << err.message;
}

TEST_F(DiagnosticsTest, AThreadSeesItsOwnFailuresOnly) {
  look_for(read(), 5);
  std::thread([] {
    rov_err_t err = {};
    EXPECT_STATUS(rov_err_getprev(&err), ROV_ERR_NO_VALUE);
    EXPECT_STREQ(rov_err_message(), "");
  }).join();
  EXPECT_STATUS(rov_err_getprev(nullptr), ROV_ERR_INVALID);
}

TEST(RetryTest, EveryStatusHasATrueAnswer) {
  struct Row {
    uint32_t status;
    uint32_t same;
    uint32_t reopened;
  };
  constexpr Row kRows[] = {
      {ROV_OK, 0, 0},
      {ROV_ERR_GENERIC, 0, 0},
      {ROV_ERR_NOT_SUPPORTED, 0, 0},
      {ROV_ERR_INVALID, 0, 0},
      {ROV_ERR_HANDLE, 0, 1},
      {ROV_ERR_NO_MEM, 1, 1},
      {ROV_ERR_NO_ITEM, 0, 1},
      {ROV_ERR_LENGTH, 0, 0},
      {ROV_ERR_READ_ONLY, 0, 0},
      {ROV_ERR_NO_LINK, 0, 0},
      {ROV_ERR_TLV_TRUNCATED, 0, 0},
      {ROV_ERR_TLV_ROOM, 0, 0},
      {ROV_ERR_OPEN, 0, 0},
      {ROV_ERR_FORMAT, 0, 0},
      {ROV_ERR_WORD_SIZE, 0, 0},
      {ROV_ERR_BYTE_ORDER, 0, 0},
      {ROV_ERR_CORRUPT, 0, 0},
      {ROV_ERR_FULL, 1, 1},
      {ROV_ERR_BUSY, 1, 1},
      {ROV_ERR_IO, 0, 1},
      {ROV_ERR_SES_EXPIRED, 0, 1},
      {ROV_ERR_NO_VALUE, 0, 0},
      {ROV_ERR_PS_SIZE, 0, 0},
      {ROV_ERR_SES_HELD, 0, 1},
      {0x41160005, 0, 0},
  };
  for (const Row& row : kRows) {
    EXPECT_EQ(rov_err_retry_ok(row.status, 0), row.same) << rov_status_name(row.status);
    EXPECT_EQ(rov_cl_err_retry_ok(row.status, 0), row.reopened) << rov_status_name(row.status);
  }
}

TEST(RetryTest, NobodyTriesMoreThanTenTimes) {
  EXPECT_EQ(rov_err_retry_ok(ROV_ERR_BUSY, 9), 1U);
  EXPECT_EQ(rov_err_retry_ok(ROV_ERR_BUSY, 10), 0U);
  EXPECT_EQ(rov_cl_err_retry_ok(ROV_ERR_HANDLE, 9), 1U);
  EXPECT_EQ(rov_cl_err_retry_ok(ROV_ERR_HANDLE, 10), 0U);
}

struct Lines {
  std::vector<std::string> text;
  uint32_t severity = 0;

  static void take(uint32_t severity, const char* text, void* arg) {
    auto* lines = static_cast<Lines*>(arg);
    lines->text.emplace_back(text);
    lines->severity = severity;
  }
};

TEST_F(DiagnosticsTest, FailuresAreLoggedWhileTheFlagsAskForThem) {
  Lines lines;
  ASSERT_OK(rov_db_reg_logger(db_, Lines::take, &lines));
  EXPECT_STATUS(rov_ses_close(0x12345), ROV_ERR_HANDLE);
  EXPECT_TRUE(lines.text.empty());
  ASSERT_OK(rov_db_debug(db_, ROV_DBG_FLAG_LOG));
  EXPECT_STATUS(rov_ses_close(0x12345), ROV_ERR_HANDLE);
  ASSERT_EQ(lines.text.size(), 1U);
  EXPECT_EQ(lines.text[0].rfind("ROV_ERR_HANDLE (0x41170003): handle 0x00012345", 0), 0U)
      << lines.text[0];
  EXPECT_EQ(lines.text[0].back(), '\n');
  EXPECT_EQ(lines.severity, 2U);
  ASSERT_OK(rov_db_debug(db_, 0));
  EXPECT_STATUS(rov_ses_close(0x12345), ROV_ERR_HANDLE);
  EXPECT_EQ(lines.text.size(), 1U);
}

TEST_F(DiagnosticsTest, AnswersAreLoggedOnlyWhenAllIsAskedFor) {
  Lines lines;
  ASSERT_OK(rov_db_reg_logger(db_, Lines::take, &lines));
  ASSERT_OK(rov_db_debug(db_, ROV_DBG_FLAG_LOG));
  const uint32_t ses = read();
  look_for(ses, 7);
  EXPECT_TRUE(lines.text.empty());
  ASSERT_OK(rov_db_debug(db_, ROV_DBG_FLAG_LOG | ROV_DBG_FLAG_ALL));
  look_for(ses, 7);
  EXPECT_EQ(lines.text.size(), 1U);
}

TEST_F(DiagnosticsTest, ALoggerGoesWithNullAndWithItsDatabase) {
  Lines lines;
  ASSERT_OK(rov_db_reg_logger(db_, Lines::take, &lines));
  ASSERT_OK(rov_db_debug(db_, ROV_DBG_FLAG_LOG));
  ASSERT_OK(rov_db_reg_logger(db_, nullptr, nullptr));
  EXPECT_STATUS(rov_ses_close(1), ROV_ERR_HANDLE);
  ASSERT_OK(rov_db_reg_logger(db_, Lines::take, &lines));
  close();
  EXPECT_STATUS(rov_ses_close(1), ROV_ERR_HANDLE);
  EXPECT_TRUE(lines.text.empty());
  EXPECT_STATUS(rov_db_reg_logger(0x7777, Lines::take, &lines), ROV_ERR_HANDLE);
  EXPECT_STATUS(rov_db_debug(0x7777, 1), ROV_ERR_HANDLE);
}

TEST_F(DiagnosticsTest, TheParametersTellLoggerAndFlags) {
  Lines lines;
  ASSERT_OK(rov_db_reg_logger(db_, Lines::take, &lines));
  ASSERT_OK(rov_db_debug(db_, 0x40));
  rov_parms_t parms;
  ASSERT_OK(rov_db_init_parms_get(db_, ROV_VERSION, &parms));
  EXPECT_EQ(parms.p.logger, &Lines::take);
  EXPECT_EQ(parms.p.logger_arg, &lines);
  EXPECT_EQ(parms.p.dbg_flags, 0x40U);
}

TEST_F(DiagnosticsTest, TheAbortCheckReturnsUnlessASettingAsksForMore) {
  rov_dbg_abort_chk();
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        rov_db_debug(db_, ROV_DBG_FLAG_ABORT);
        rov_dbg_abort_chk();
      },
      "");
  EXPECT_DEATH(
      {
        setenv("ROV_DBG_ABORT", "1", 1);
        rov_dbg_abort_chk();
      },
      "");
}

}  // namespace
