// Sessions for which the file grows, for longer than ROV_READ_LIMIT says.
#include <chrono>
#include <filesystem>
#include <thread>

#include "database/session/session.h"
#include "tests/database/child.h"
#include "tests/database/database_fixture.h"
#include "tests/support/pace.h"

namespace {

using namespace testing_rov;
using namespace std::chrono_literals;

class HeldTest : public DatabaseTest {
 protected:
  void SetUp() override {
    set_limit(std::to_string(pace::factor()).c_str());
    DatabaseTest::SetUp();
    rewrite(0);
  }
  void TearDown() override {
    DatabaseTest::TearDown();
    unsetenv("ROV_READ_LIMIT");
  }
  static void set_limit(const char* seconds) { setenv("ROV_READ_LIMIT", seconds, 1); }

  // A commit in which every page is another one.
  void rewrite(uint32_t seed) {
    const uint32_t writer = begin();
    for (uint32_t node = 1; node <= 100; ++node) {
      ASSERT_OK(put_node(writer, node, pattern(seed + node, 500)));
    }
    commit(writer);
  }
  void grow() {
    for (uint32_t seed = 1; seed <= 6; ++seed) rewrite(seed);
  }
  static void outlast() { std::this_thread::sleep_for(pace::paced(1200ms)); }
  static uint32_t look(uint32_t ses) {
    rov_node_parms_t parms;
    return rov_node_parms_get(ses, id(1), &parms);
  }
  static uint32_t base_of(uint32_t ses) {
    uint32_t base = 0;
    EXPECT_OK(rov_ses_orig_handle(ses, &base));
    return base;
  }
  uint32_t exists(uint32_t ses) {
    uint32_t is = 7;
    EXPECT_OK(rov_db_ses_exists(db_, ses, &is));
    return is;
  }
  uint64_t size() const { return std::filesystem::file_size(path() + "/data.mdb"); }
  static uint32_t began(uint32_t ses) {
    rov::Access access(ses);
    return access.failed() ? 0 : access.session().idle.began.load();
  }
  // Commits that are read by somebody, the one who asks among them.
  uint32_t readers() {
    uint32_t count = 0;
    const auto add = [](const rov_holder_t* holder, void* to) {
      if (holder->what == ROV_HOLDER_READER) ++*static_cast<uint32_t*>(to);
    };
    EXPECT_OK(rov_edit_holders(db_, add, &count));
    return count;
  }
};

TEST_F(HeldTest, ASessionThatMakesTheFileGrowLosesItsCommit) {
  const uint32_t ses = read();
  const uint32_t base = base_of(ses);
  const uint64_t before = size();
  grow();
  EXPECT_GT(size(), before);
  outlast();
  EXPECT_STATUS(look(ses), ROV_ERR_SES_HELD);
  EXPECT_NE(std::string(rov_err_message()).find("ROV_READ_LIMIT"), std::string::npos);
  EXPECT_STATUS(look(base), ROV_ERR_SES_HELD);
  EXPECT_STATUS(rov_ses_timeout(ses), ROV_ERR_SES_HELD);
  EXPECT_EQ(exists(ses), 0U);
  EXPECT_OK(rov_ses_close(ses));
  EXPECT_STATUS(look(ses), ROV_ERR_HANDLE);
  EXPECT_EQ(tlv_of(read(), 1), pattern(7, 500));
}

TEST_F(HeldTest, ASessionForWhichNothingGrowsIsKept) {
  const uint32_t ses = read();
  rewrite(1);
  outlast();
  EXPECT_EQ(tlv_of(ses, 1), pattern(1, 500));
  EXPECT_EQ(exists(ses), 1U);
  rov::idle_expire();
  EXPECT_OK(look(ses));
}

TEST_F(HeldTest, WhatItReadIsGivenBackByOtherThreads) {
  const uint32_t ses = read();
  grow();
  const uint32_t held = readers();
  outlast();
  EXPECT_OK(rov_ses_close(read()));
  EXPECT_EQ(readers(), held - 1);
  EXPECT_STATUS(look(ses), ROV_ERR_SES_HELD);
}

TEST_F(HeldTest, ItsBaseIsHeldToItAsWell) {
  const uint32_t ses = read();
  rewrite(1);
  EXPECT_OK(look(base_of(ses)));  // on a commit of its own
  const rov_node_id_t node = id(1);
  const uint8_t byte = 1;
  const uint32_t own = read();
  const uint32_t before = began(own);
  outlast();
  EXPECT_OK(rov_node_priv_set(own, &node, &byte, 1));
  EXPECT_NE(began(own), before) << "it reads a newer commit since";
  grow();
  EXPECT_STATUS(look(ses), ROV_ERR_SES_HELD);
}

TEST_F(HeldTest, ThereIsNoLimitWithoutOne) {
  for (const char* none : {"", "0", "soon", "99999999999"}) {
    set_limit(none);
    EXPECT_EQ(rov::hold_limit(), 0U) << none;
  }
  set_limit("500");
  EXPECT_EQ(rov::hold_limit(), 8000U);
  reopen();
  uint32_t ses = read();
  grow();
  EXPECT_EQ(tlv_of(ses, 1), pattern(1, 500)) << "not before its time";
  unsetenv("ROV_READ_LIMIT");
  EXPECT_EQ(rov::hold_limit(), 0U);
  reopen();
  ses = read();
  grow();
  outlast();
  EXPECT_EQ(tlv_of(ses, 1), pattern(7, 500));
}

// A process reads one commit over and over; when it has lost that, the file grows no more.
TEST_F(HeldTest, WritersOfOtherProcessesUseItsPagesAgain) {
  Child reader(path(), [](uint32_t db, int pipe) {
    uint32_t ses = 0;
    if (rov_ses_open_ro(db, &ses) != ROV_OK) return false;
    say(pipe, 0);
    for (;;) {
      Bytes tlv(500);
      const uint32_t status =
          rov_node_data_get(ses, id(1), 500, tlv.data(), 0, nullptr, 0, nullptr);
      if (status == ROV_OK && tlv == pattern(1, 500)) continue;
      say(pipe, status);
      return pause() == 0;
    }
  });
  uint32_t told = 1;
  ASSERT_TRUE(reader.next(&told));
  grow();
  ASSERT_TRUE(reader.next(&told));
  EXPECT_EQ(told, uint32_t{ROV_ERR_SES_HELD});
  grow();
  const uint64_t grown = size();
  for (int i = 0; i < 5; ++i) grow();
  EXPECT_EQ(size(), grown);
}

}  // namespace
