// Marks: what is noted of a database's contents in the commit that stores them.
#include "tests/database/database_fixture.h"

namespace {

using namespace testing_rov;

class MarksTest : public DatabaseTest {
 protected:
  static uint32_t put_mark(uint32_t ses, const char* name, const std::string& text) {
    return rov_edit_mark_put(ses, name, text.data(), static_cast<uint32_t>(text.size()));
  }
  // "-" when there is none.
  static std::string mark(uint32_t ses, const char* name) {
    std::string text(ROV_MARK_BYTES, '\0');
    uint32_t len = 0;
    const uint32_t status =
        rov_mark_get(ses, name, static_cast<uint32_t>(text.size()), text.data(), &len);
    if (status == ROV_ERR_NO_VALUE) return "-";
    EXPECT_OK(status);
    return text.substr(0, len);
  }
  static std::string all_marks(uint32_t ses) {
    std::string all;
    char name[ROV_MARK_NAME] = "";
    while (rov_mark_next(ses, name, name) == ROV_OK) all += std::string(name) + " ";
    return all;
  }
};

TEST_F(MarksTest, AMarkComesWithTheContentsOfItsCommit) {
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 7, {}));
  ASSERT_OK(put_mark(writer, "policy", "revision 1"));
  EXPECT_EQ(mark(writer, "policy"), "revision 1");
  const uint32_t before = read();
  EXPECT_EQ(mark(before, "policy"), "-");
  commit(writer);
  EXPECT_EQ(mark(before, "policy"), "-");
  EXPECT_EQ(mark(read(), "policy"), "revision 1");
}

TEST_F(MarksTest, WhatIsAbandonedLeavesNoMark) {
  const uint32_t writer = begin();
  ASSERT_OK(put_mark(writer, "policy", "revision 1"));
  ASSERT_OK(rov_edit_abandon(writer));
  EXPECT_EQ(mark(read(), "policy"), "-");
}

TEST_F(MarksTest, AMarkIsReplacedAndTakenAway) {
  uint32_t writer = begin();
  ASSERT_OK(put_mark(writer, "policy", "1"));
  commit(writer);
  writer = begin();
  ASSERT_OK(put_mark(writer, "policy", "22"));
  commit(writer);
  EXPECT_EQ(mark(read(), "policy"), "22");
  writer = begin();
  ASSERT_OK(put_mark(writer, "policy", ""));
  ASSERT_OK(put_mark(writer, "policy", ""));
  commit(writer);
  EXPECT_EQ(mark(read(), "policy"), "-");
}

TEST_F(MarksTest, TheyAreListedInTheOrderOfTheirNames) {
  // What client 0 keeps on the database lies before the marks, and is none.
  close();
  ASSERT_OK(open_database(path(), 0, 0, &db_));
  uint8_t kept[4] = {};
  rov_priv_t piece = {};
  piece.key = 5;
  piece.len = sizeof kept;
  piece.data = kept;
  ASSERT_OK(rov_db_priv_write(db_, &piece));
  const uint32_t writer = begin();
  EXPECT_EQ(all_marks(writer), "");
  for (const char* name : {"zz", "abcd", "abcdefgh", "abce", "!", "~~~~~~~~", "abcde"}) {
    ASSERT_OK(put_mark(writer, name, name));
  }
  commit(writer);
  EXPECT_EQ(all_marks(read()), "! abcd abcde abcdefgh abce zz ~~~~~~~~ ");
  char name[ROV_MARK_NAME] = "";
  ASSERT_OK(rov_mark_next(read(), nullptr, name));
  EXPECT_STREQ(name, "!");
  piece.key = 0;
  ASSERT_OK(rov_db_priv_recover2(db_, 0, 0, &piece));
  EXPECT_EQ(piece.key, 5U);
  EXPECT_STATUS(rov_db_priv_recover2(db_, 5, 0, &piece), ROV_ERR_NO_VALUE);
}

TEST_F(MarksTest, ARoomThatIsTooSmallIsToldTheLength) {
  const uint32_t writer = begin();
  ASSERT_OK(put_mark(writer, "policy", "12345"));
  uint32_t len = 0;
  EXPECT_STATUS(rov_mark_get(writer, "policy", 0, nullptr, &len), ROV_ERR_LENGTH);
  EXPECT_EQ(len, 5U);
}

TEST_F(MarksTest, TheLargestMarkFitsAndALargerOneIsRefused) {
  const uint32_t writer = begin();
  ASSERT_OK(put_mark(writer, "policy", std::string(ROV_MARK_BYTES, 'x')));
  EXPECT_STATUS(put_mark(writer, "policy", std::string(ROV_MARK_BYTES + 1, 'y')), ROV_ERR_LENGTH);
  commit(writer);
  EXPECT_EQ(mark(read(), "policy"), std::string(ROV_MARK_BYTES, 'x'));
}

TEST_F(MarksTest, BadArguments) {
  const uint32_t writer = begin();
  uint8_t byte = 0;
  uint32_t len = 0;
  char name[ROV_MARK_NAME];
  for (const char* bad : {"", "ninebytes", "a b", "\n", "\x7f", "\xc3\xa4"}) {
    EXPECT_STATUS(rov_edit_mark_put(writer, bad, &byte, 1), ROV_ERR_INVALID);
    EXPECT_STATUS(rov_mark_get(writer, bad, 1, &byte, &len), ROV_ERR_INVALID);
    if (*bad != '\0') {
      EXPECT_STATUS(rov_mark_next(writer, bad, name), ROV_ERR_INVALID);
    }
  }
  EXPECT_STATUS(rov_edit_mark_put(writer, nullptr, &byte, 1), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_edit_mark_put(writer, "policy", nullptr, 1), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_mark_get(writer, nullptr, 1, &byte, &len), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_mark_get(writer, "policy", 1, nullptr, &len), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_mark_get(writer, "policy", 1, &byte, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_mark_next(writer, "", nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_edit_mark_put(read(), "policy", &byte, 1), ROV_ERR_READ_ONLY);
  EXPECT_STATUS(rov_edit_mark_put(0, "policy", &byte, 1), ROV_ERR_HANDLE);
  EXPECT_STATUS(rov_mark_get(0, "policy", 1, &byte, &len), ROV_ERR_HANDLE);
  EXPECT_STATUS(rov_mark_next(0, "", name), ROV_ERR_HANDLE);
  ASSERT_OK(put_node(writer, 7, {}));
  commit(writer);  // none of this has spoilt the session
}

TEST_F(MarksTest, TheFileWithMarksIsVerifiedAndCompacted) {
  const uint32_t writer = begin();
  ASSERT_OK(put_mark(writer, "policy", "kept"));
  commit(writer);
  rov_verify_t report;
  EXPECT_OK(rov_edit_verify(db_, &report));
  EXPECT_EQ(report.nodes, 0U);
  EXPECT_EQ(report.records, 1U);
  close();
  ASSERT_OK(rov_edit_compact(path().c_str(), nullptr, nullptr));
  open();
  EXPECT_EQ(mark(read(), "policy"), "kept");
}

}  // namespace
