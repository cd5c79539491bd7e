// Statuses in words, and the small entries that need no database.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <thread>

#include "database/base/error.h"
#include "rov.h"
#include "rov_edit.h"

namespace {

TEST(Status, EveryStatusHasANameAndASentence) {
  const uint32_t all[] = {ROV_OK,
                          ROV_ERR_GENERIC,
                          ROV_ERR_NOT_SUPPORTED,
                          ROV_ERR_INVALID,
                          ROV_ERR_HANDLE,
                          ROV_ERR_NO_MEM,
                          ROV_ERR_NO_ITEM,
                          ROV_ERR_LENGTH,
                          ROV_ERR_READ_ONLY,
                          ROV_ERR_NO_LINK,
                          ROV_ERR_TLV_TRUNCATED,
                          ROV_ERR_TLV_OVERLONG,
                          ROV_ERR_TLV_DEPTH,
                          ROV_ERR_TLV_WIDTH,
                          ROV_ERR_TLV_DUPLICATE,
                          ROV_ERR_TLV_UNION,
                          ROV_ERR_TLV_PADDING,
                          ROV_ERR_TLV_TABLE,
                          ROV_ERR_TLV_ROOM,
                          ROV_ERR_OPEN,
                          ROV_ERR_FORMAT,
                          ROV_ERR_WORD_SIZE,
                          ROV_ERR_BYTE_ORDER,
                          ROV_ERR_CORRUPT,
                          ROV_ERR_FULL,
                          ROV_ERR_BUSY,
                          ROV_ERR_IO,
                          ROV_ERR_SES_EXPIRED,
                          ROV_ERR_NO_VALUE,
                          ROV_ERR_PS_SIZE,
                          ROV_ERR_SES_HELD};
  std::set<std::string> names;
  std::set<std::string> texts;
  for (uint32_t status : all) {
    EXPECT_STRNE(rov_status_name(status), "ROV_ERR_UNKNOWN") << std::hex << status;
    EXPECT_TRUE(names.insert(rov_status_name(status)).second);
    EXPECT_TRUE(texts.insert(rov_status_text(status)).second);
    EXPECT_EQ(rov_status_text(status)[strlen(rov_status_text(status)) - 1], '.');
  }
  EXPECT_STREQ(rov_status_name(ROV_ERR_CORRUPT), "ROV_ERR_CORRUPT");
  EXPECT_STREQ(rov_status_name(ROV_OK), "ROV_OK");
  EXPECT_STREQ(rov_status_name(0x41170005), "ROV_ERR_UNKNOWN");
  EXPECT_STRNE(rov_status_text(0x41170005), "");
}

TEST(Status, MessagesAreOfTheThread) {
  EXPECT_EQ(rov_ses_close(0), uint32_t{ROV_ERR_HANDLE});
  EXPECT_NE(std::string(rov_err_message()).find("0x00000000"), std::string::npos);
  std::thread other([] { EXPECT_STREQ(rov_err_message(), ""); });
  other.join();
}

TEST(Status, EveryNoteMakesASentence) {
  for (int note = 1; note < static_cast<int>(rov::Note::kText); ++note) {
    rov::fail(ROV_ERR_GENERIC, static_cast<rov::Note>(note), 0x1234, 5);
    const std::string message = rov_err_message();
    EXPECT_GT(message.size(), 10U) << note;
    rov::fail(ROV_ERR_GENERIC, rov::Note::kNone);
    EXPECT_STREQ(rov_err_message(), "");
  }
}

TEST(Status, ALongSentenceIsCut) {
  const std::string text(2000, 'x');
  EXPECT_EQ(rov::fail_text(ROV_ERR_IO, "%s", text.c_str()), uint32_t{ROV_ERR_IO});
  EXPECT_EQ(strlen(rov_err_message()), 511U);
}

TEST(DataCpy, CopiesWhatFitsWhole) {
  const char source[] = "abcd";
  char target[6] = "-----";
  EXPECT_EQ(rov_data_cpy(5, target, 4, source), uint32_t{ROV_OK});
  EXPECT_STREQ(target, "abcd-");
  EXPECT_EQ(rov_data_cpy(4, target, 4, "wxyz"), uint32_t{ROV_OK});
  EXPECT_STREQ(target, "wxyz-");
}

TEST(DataCpy, CopiesNothingWhenItDoesNotFit) {
  char target[4] = "---";
  EXPECT_EQ(rov_data_cpy(3, target, 4, "abcd"), uint32_t{ROV_ERR_LENGTH});
  EXPECT_STREQ(target, "---");
  EXPECT_EQ(rov_data_cpy(3, nullptr, 3, "abc"), uint32_t{ROV_ERR_INVALID});
  EXPECT_EQ(rov_data_cpy(3, target, 3, nullptr), uint32_t{ROV_ERR_INVALID});
  EXPECT_EQ(rov_data_cpy(0, nullptr, 0, nullptr), uint32_t{ROV_OK});
}

TEST(AbortCheckDeathTest, AbortsOnlyWhenTheSettingSaysSo) {
  unsetenv("ROV_DBG_ABORT");
  rov_dbg_abort_chk();
  setenv("ROV_DBG_ABORT", "0", 1);
  rov_dbg_abort_chk();
  setenv("ROV_DBG_ABORT", "1", 1);
  EXPECT_DEATH(rov_dbg_abort_chk(), "");
  unsetenv("ROV_DBG_ABORT");
}

}  // namespace
