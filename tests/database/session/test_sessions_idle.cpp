// Sessions that are not used for longer than their limit, and whether a session is there.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "database/session/session.h"
#include "tests/database/database_fixture.h"
#include "tests/support/pace.h"

namespace {

using namespace testing_rov;
using namespace std::chrono_literals;

class IdleTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    put(1);
    set_limit(pace::factor());
  }
  void TearDown() override {
    set_limit(0);
    DatabaseTest::TearDown();
  }
  static void set_limit(uint32_t seconds) {
    uint32_t lib = 0;
    ASSERT_OK(rov_lib_init(kClient, &lib));
    ASSERT_OK(rov_lib_defaults(lib, seconds));
  }
  static void set_wait(uint32_t wait_ms) {
    uint32_t lib = 0;
    ASSERT_OK(rov_lib_init(kClient, &lib));
    ASSERT_OK(rov_lib_init_locks(lib, wait_ms, 5, 0, 0));
  }
  void put(uint32_t seed) {
    const uint32_t writer = begin();
    ASSERT_OK(put_node(writer, 1, pattern(seed, 20)));
    commit(writer);
  }
  static void outlast() { std::this_thread::sleep_for(pace::paced(1200ms)); }
  static uint32_t look(uint32_t ses) {
    rov_node_parms_t parms;
    return rov_node_parms_get(ses, id(1), &parms);
  }
  uint32_t exists(uint32_t ses) {
    uint32_t is = 7;
    EXPECT_OK(rov_db_ses_exists(db_, ses, &is));
    return is;
  }
  static uint32_t base_of(uint32_t ses) {
    uint32_t base = 0;
    EXPECT_OK(rov_ses_orig_handle(ses, &base));
    return base;
  }
  // Readers of all processes that hold a commit, by the database's own show.
  uint32_t readers() {
    std::string text;
    rov_show_req_t req = {};
    req.what = ROV_SHOW_DATABASE;
    req.arg = &text;
    req.out = [](const char* piece, void* to) { *static_cast<std::string*>(to) += piece; };
    EXPECT_OK(rov_db_show_internal(db_, &req));
    uint32_t count = 0;
    for (size_t at = text.find("pid"); at < text.size(); ++at) {
      if (text[at] != '\n') continue;
      const std::string line = text.substr(at + 1, text.find('\n', at + 1) - at - 1);
      if (!line.empty() && line.find(" -") == std::string::npos) ++count;
    }
    return count;
  }
};

TEST_F(IdleTest, ASessionThatIsNotUsedExpires) {
  const uint32_t ses = read();
  const uint32_t base = base_of(ses);
  EXPECT_OK(look(base));
  outlast();
  EXPECT_STATUS(look(ses), ROV_ERR_SES_EXPIRED);
  EXPECT_NE(std::string(rov_err_message()).find("expired"), std::string::npos);
  EXPECT_STATUS(look(base), ROV_ERR_SES_EXPIRED);
  EXPECT_STATUS(rov_ses_timeout(ses), ROV_ERR_SES_EXPIRED);
  EXPECT_STATUS(rov_ses_timeout(base), ROV_ERR_SES_EXPIRED);
  uint32_t handle = 0;
  EXPECT_STATUS(rov_ses_orig_handle(ses, &handle), ROV_ERR_SES_EXPIRED);
  EXPECT_STATUS(rov_edit_commit(ses), ROV_ERR_SES_EXPIRED);
  EXPECT_OK(rov_ses_close(ses));
  EXPECT_STATUS(look(ses), ROV_ERR_HANDLE);
  EXPECT_OK(look(read()));
}

TEST_F(IdleTest, UseAndRenewalKeepASession) {
  const uint32_t used = read();
  const uint32_t renewed = read();
  const uint32_t through_base = read();
  const uint32_t base = base_of(through_base);
  for (int i = 0; i < 8; ++i) {
    std::this_thread::sleep_for(pace::paced(250ms));
    EXPECT_OK(look(used));
    EXPECT_OK(rov_ses_timeout(renewed));
    EXPECT_OK(look(base));
  }
  for (const uint32_t ses : {used, renewed, through_base}) EXPECT_OK(look(ses));
}

TEST_F(IdleTest, TheLimitIsThatOfTheTimeOfOpening) {
  const uint32_t limited = read();
  set_limit(0);
  const uint32_t unlimited = read();
  EXPECT_OK(rov_ses_timeout(unlimited));
  outlast();
  EXPECT_STATUS(look(limited), ROV_ERR_SES_EXPIRED);
  EXPECT_OK(look(unlimited));
}

TEST_F(IdleTest, WhatAnExpiredSessionReadIsReleased) {
  const uint32_t ses = read();
  put(2);
  EXPECT_OK(look(base_of(ses)));
  EXPECT_EQ(readers(), 3U) << "the session's, its base's and the show's own";
  outlast();
  EXPECT_EQ(readers(), 1U);
  EXPECT_STATUS(look(ses), ROV_ERR_SES_EXPIRED);
}

TEST_F(IdleTest, AnIdleWriterLosesItsEditsAndItsTurn) {
  const uint32_t idle = begin();
  ASSERT_OK(put_node(idle, 1, pattern(9, 9)));
  set_wait(pace::patience_ms());
  const auto before = std::chrono::steady_clock::now();
  const uint32_t second = begin();  // waits until the first expires
  EXPECT_LT(std::chrono::steady_clock::now() - before, pace::paced(4s));
  EXPECT_EQ(tlv_of(second, 1), pattern(1, 20));
  EXPECT_STATUS(put_node(idle, 1, pattern(9, 9)), ROV_ERR_SES_EXPIRED);
  EXPECT_STATUS(rov_edit_commit(idle), ROV_ERR_SES_EXPIRED);
  EXPECT_STATUS(rov_edit_commit(idle), ROV_ERR_HANDLE) << "the commit closed it";
  ASSERT_OK(put_node(second, 1, pattern(3, 3)));
  commit(second);
  EXPECT_EQ(tlv_of(read(), 1), pattern(3, 3));
}

TEST_F(IdleTest, AnExpiredWriterCanBeAbandonedAndClosed) {
  const uint32_t first = begin();
  outlast();
  const uint32_t second = begin();
  EXPECT_OK(rov_edit_abandon(first));
  EXPECT_STATUS(rov_edit_abandon(first), ROV_ERR_HANDLE);
  outlast();
  EXPECT_OK(rov_ses_close(second));
  put(4);
  const uint32_t reader = read();
  outlast();
  EXPECT_STATUS(rov_edit_abandon(reader), ROV_ERR_READ_ONLY);
  EXPECT_OK(rov_ses_close(reader));
}

TEST_F(IdleTest, ASessionIsNotTakenApartUnderACall) {
  const uint32_t ses = read();
  {
    rov::Access access(ses);
    ASSERT_FALSE(access.failed());
    outlast();
    std::thread(rov::idle_expire).join();
    EXPECT_NE(access.view().snapshot, nullptr);
    EXPECT_EQ(access.session().idle.expired.load(), 0U);
  }
  rov::idle_expire();
  EXPECT_STATUS(look(ses), ROV_ERR_SES_EXPIRED);
}

TEST_F(IdleTest, ALongShowKeepsItsSession) {
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 2, {}));
  commit(writer);
  const uint32_t ses = read();
  rov_show_req_t req = {};
  req.ses = ses;
  req.what = ROV_SHOW_NODE;
  req.node = id(2);
  bool slept = false;
  req.arg = &slept;
  req.out = [](const char*, void* arg) {
    if (*static_cast<bool*>(arg)) return;
    *static_cast<bool*>(arg) = true;
    std::this_thread::sleep_for(pace::paced(800ms));
  };
  std::atomic<bool> stop{false};
  std::thread others([&] {
    while (!stop.load()) {
      EXPECT_OK(rov_ses_close(read()));
      std::this_thread::sleep_for(1ms);
    }
  });
  for (int i = 0; i < 3; ++i) {
    slept = false;
    EXPECT_OK(rov_db_show_internal(db_, &req));
  }
  stop.store(true);
  others.join();
  EXPECT_OK(look(ses));
}

// One thread uses its sessions or leaves them, the others give it every opportunity.
TEST_F(IdleTest, ExpiryAndUseCanComeAtTheSameMoment) {
  std::atomic<bool> stop{false};
  std::thread sweeper([&] {
    while (!stop.load()) rov::idle_expire();
  });
  uint32_t expired = 0;
  uint32_t lived = 0;
  // The moments lie around the limit, and also before it: a busy machine is always late.
  const auto end = std::chrono::steady_clock::now() + pace::paced(6s);
  auto nap = pace::paced(990ms);
  std::vector<uint32_t> sessions(40);
  while (std::chrono::steady_clock::now() < end) {
    for (uint32_t& ses : sessions) ses = read();
    std::this_thread::sleep_for(nap);
    nap -= pace::paced(lived == 0 ? 60ms : 0ms);
    for (uint32_t& ses : sessions) {
      for (uint32_t status = ROV_OK; status == ROV_OK;) {
        status = look(ses);
        if (status == ROV_OK) ++lived;
        if (status == ROV_ERR_SES_EXPIRED) ++expired;
        if (lived % 7 == 0) break;
        std::this_thread::sleep_for(3ms);
        if (std::chrono::steady_clock::now() >= end) break;
      }
      EXPECT_OK(rov_ses_close(ses));
    }
  }
  stop.store(true);
  sweeper.join();
  EXPECT_GT(lived, 0U);
  EXPECT_GT(expired, 0U);
}

TEST_F(IdleTest, ExistsTellsWhetherASessionCanBeUsed) {
  const uint32_t ses = read();
  const uint32_t base = base_of(ses);
  const uint32_t writer = begin();
  uint32_t other = 0;
  uint32_t others = 0;
  ASSERT_OK(open_database(path(), 0, 2, &other));
  ASSERT_OK(rov_ses_open_ro(other, &others));
  EXPECT_EQ(exists(ses), 1U);
  EXPECT_EQ(exists(base), 1U);
  EXPECT_EQ(exists(writer), 1U);
  EXPECT_EQ(exists(others), 0U) << "another handle's";
  for (const uint32_t no : {0U, 1U, db_, other, ses ^ 1U << 11, 0xffffffffU})
    EXPECT_EQ(exists(no), 0U);
  outlast();
  EXPECT_EQ(exists(ses), 0U);
  EXPECT_EQ(exists(base), 0U);
  EXPECT_EQ(exists(writer), 0U);
  EXPECT_OK(rov_ses_close(ses));
  EXPECT_EQ(exists(ses), 0U);
  uint32_t is = 7;
  EXPECT_STATUS(rov_db_ses_exists(ses, ses, &is), ROV_ERR_HANDLE);
  EXPECT_STATUS(rov_db_ses_exists(0, ses, &is), ROV_ERR_HANDLE);
  EXPECT_EQ(is, 7U);
  EXPECT_STATUS(rov_db_ses_exists(db_, ses, nullptr), ROV_ERR_INVALID);
  EXPECT_OK(rov_db_close(other, 0));
}

TEST_F(IdleTest, AskingRenewsNothing) {
  const uint32_t ses = read();
  for (int i = 0; i < 12; ++i) {
    std::this_thread::sleep_for(pace::paced(100ms));
    exists(ses);
  }
  EXPECT_STATUS(look(ses), ROV_ERR_SES_EXPIRED);
}

TEST_F(IdleTest, AChildOfAForkHasNoSessions) {
  const uint32_t ses = read();
  const pid_t child = fork();
  if (child == 0) {
    const bool none = !rov::idle_any() && rov_ses_timeout(ses) == ROV_ERR_HANDLE;
    uint32_t db = 0;
    uint32_t own = 0;
    const bool opens = open_database(path(), 0, kClient, &db) == ROV_OK &&
                       rov_ses_open_ro(db, &own) == ROV_OK && look(own) == ROV_OK;
    _exit(none && opens ? 0 : 1);
  }
  int result = -1;
  ASSERT_EQ(waitpid(child, &result, 0), child);
  EXPECT_EQ(result, 0);
  EXPECT_OK(look(ses));
}

TEST(IdleLimit, IsNoneWhereItIsTooLong) {
  EXPECT_EQ(rov::idle_limit(0), 0U);
  EXPECT_EQ(rov::idle_limit(1), 16U);
  EXPECT_EQ(rov::idle_limit(134217727), 2147483632U);
  EXPECT_EQ(rov::idle_limit(134217728), 0U);
  EXPECT_EQ(rov::idle_limit(UINT32_MAX), 0U);
}

}  // namespace
