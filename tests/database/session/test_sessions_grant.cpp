// The next write granted to one user, over threads and processes, some of which are killed.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <thread>

#include "database/base/process.h"
#include "database/store/store.h"
#include "tests/database/database_fixture.h"
#include "tests/support/pace.h"

namespace {

using namespace testing_rov;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kOther = 2;

uint64_t user_of(uint32_t client, pid_t process) {
  return uint64_t{client} << 32 | static_cast<uint32_t>(process);
}

void set_wait(uint32_t client, uint32_t wait_ms) {
  uint32_t lib = 0;
  ASSERT_OK(rov_lib_init(client, &lib));
  ASSERT_OK(rov_lib_init_locks(lib, wait_ms, 2, 0, 0));
}

// A process that says something, is told something, and is killed at the end at the latest.
class Partner {
 public:
  template <class Work>
  explicit Partner(Work work) {
    EXPECT_EQ(pipe(said_), 0);
    EXPECT_EQ(pipe(told_), 0);
    process_ = fork();
    if (process_ == 0) {
      work(*this);
      for (;;) pause();
    }
  }
  ~Partner() {
    end();
    for (const int end : {said_[0], said_[1], told_[0], told_[1]}) close(end);
  }
  Partner(const Partner&) = delete;
  Partner& operator=(const Partner&) = delete;

  pid_t process() const { return process_; }
  // In the child, and what stands opposite to them in the parent.
  void say(char what) const { EXPECT_EQ(write(said_[1], &what, 1), 1); }
  void listen() const { next(told_[0]); }
  char hear() const { return next(said_[0]); }
  void tell() const { EXPECT_EQ(write(told_[1], "", 1), 1); }
  void kill() const { ::kill(process_, SIGKILL); }
  void end() {
    if (process_ == 0) return;
    kill();
    waitpid(process_, nullptr, 0);
    process_ = 0;
  }

 private:
  static char next(int from) {
    char what = 0;
    EXPECT_EQ(::read(from, &what, 1), 1);
    return what;
  }
  int said_[2] = {-1, -1};
  int told_[2] = {-1, -1};
  pid_t process_ = 0;
};

class GrantTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    ASSERT_OK(open_database(path(), 0, kOther, &other_));
    set_wait(kClient, 30);
    set_wait(kOther, 30);
  }
  void TearDown() override {
    EXPECT_OK(rov_db_close(other_, 0));
    set_wait(kClient, 10000);
    DatabaseTest::TearDown();
  }
  static uint32_t try_write(uint32_t db) {
    uint32_t ses = 0;
    const uint32_t status = rov_edit_begin(db, &ses);
    return status == ROV_OK ? rov_edit_abandon(ses) : status;
  }
  uint32_t other_ = 0;
};

TEST_F(GrantTest, OnlyTheUserBeginsTheNextWrite) {
  ASSERT_OK(rov_db_ses_lock_grant(db_, user_of(kOther, getpid())));
  EXPECT_STATUS(try_write(db_), ROV_ERR_BUSY);
  EXPECT_NE(std::string(rov_err_message()).find("reserved"), std::string::npos);
  EXPECT_OK(try_write(other_));
  EXPECT_OK(try_write(db_)) << "the grant is used up";
}

TEST_F(GrantTest, ItIsTakenBackAndReplaced) {
  ASSERT_OK(rov_db_ses_lock_grant(db_, user_of(kOther, getpid())));
  ASSERT_OK(rov_db_ses_lock_grant(other_, user_of(kClient, getpid())));
  EXPECT_STATUS(try_write(other_), ROV_ERR_BUSY);
  ASSERT_OK(rov_db_ses_lock_grant(other_, 0));
  ASSERT_OK(rov_db_ses_lock_grant(other_, 0));
  EXPECT_OK(try_write(other_));
  EXPECT_OK(try_write(db_));
}

TEST_F(GrantTest, AnOpenWriterHandsOnTheNextTurn) {
  set_wait(kClient, pace::patience_ms());
  set_wait(kOther, pace::patience_ms());
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, pattern(1, 4)));
  std::atomic<uint32_t> order{0};
  uint32_t first = 0;
  uint32_t second = 0;
  std::thread rival([&] {
    uint32_t ses = 0;
    EXPECT_OK(rov_edit_begin(db_, &ses));
    first = ++order;
    EXPECT_OK(rov_edit_abandon(ses));
  });
  std::this_thread::sleep_for(20ms);
  ASSERT_OK(rov_db_ses_lock_grant(db_, user_of(kOther, getpid())));
  commit(writer);
  std::thread chosen([&] {
    std::this_thread::sleep_for(100ms);
    uint32_t ses = 0;
    EXPECT_OK(rov_edit_begin(other_, &ses));
    second = ++order;
    EXPECT_EQ(tlv_of(ses, 1), pattern(1, 4));
    EXPECT_OK(rov_edit_abandon(ses));
  });
  rival.join();
  chosen.join();
  EXPECT_EQ(second, 1U);
  EXPECT_EQ(first, 2U);
}

TEST_F(GrantTest, PrivateDataAreWritesToo) {
  char byte = 1;
  const rov_priv_t priv = {7, 1, &byte};
  ASSERT_OK(rov_db_ses_lock_grant(db_, user_of(kOther, getpid())));
  EXPECT_STATUS(rov_db_priv_write(db_, &priv), ROV_ERR_BUSY);
  EXPECT_OK(rov_db_priv_write(other_, &priv));
  EXPECT_OK(rov_db_priv_write(db_, &priv));
}

TEST_F(GrantTest, BadArgumentsAreRefused) {
  EXPECT_STATUS(rov_db_ses_lock_grant(0, 0), ROV_ERR_HANDLE);
  EXPECT_STATUS(rov_db_ses_lock_grant(read(), 0), ROV_ERR_HANDLE);
  EXPECT_STATUS(rov_db_ses_lock_grant(db_, uint64_t{kOther} << 32), ROV_ERR_NO_ITEM);
  EXPECT_STATUS(rov_db_ses_lock_grant(db_, UINT64_MAX), ROV_ERR_NO_ITEM);
  const Partner child([](const Partner&) {});
  const uint64_t gone = user_of(kOther, child.process());
  child.kill();
  for (int i = 0; i < 1000 && !rov::process_is_gone(static_cast<uint32_t>(gone), 0); ++i) {
    std::this_thread::sleep_for(1ms);
  }
  EXPECT_STATUS(rov_db_ses_lock_grant(db_, gone), ROV_ERR_NO_ITEM);
  EXPECT_OK(try_write(db_));
}

TEST_F(GrantTest, ADatabaseOpenForReadingGrantsNothing) {
  close();
  EXPECT_OK(rov_db_close(other_, 0));
  ASSERT_OK(open_database(path(), ROV_DB_RDONLY, kOther, &other_));
  EXPECT_STATUS(rov_db_ses_lock_grant(other_, 0), ROV_ERR_READ_ONLY);
  EXPECT_STATUS(try_write(other_), ROV_ERR_READ_ONLY);
}

TEST_F(GrantTest, ItEndsByItself) {
  rov::Env* env = nullptr;
  ASSERT_OK(rov::store_open(path().c_str(), {}, &env));
  ASSERT_OK(rov::writer_reserve(env, user_of(kOther, getpid()), 1));
  EXPECT_STATUS(try_write(db_), ROV_ERR_BUSY);
  set_wait(kClient, pace::patience_ms());
  EXPECT_OK(try_write(db_));
  rov::store_close(env);
}

TEST_F(GrantTest, ADamagedOneIsNone) {
  ASSERT_OK(rov_db_ses_lock_grant(db_, user_of(kOther, getpid())));
  std::fstream file(path() + "/writer.lock", std::ios::in | std::ios::out | std::ios::binary);
  file.seekg(9);
  const int byte = file.get();
  file.seekp(9);
  file.put(static_cast<char>(byte ^ 0x55));
  // Closing the file here would give up the locks of this process, of which there are none now.
  file.close();
  EXPECT_OK(try_write(db_));
}

TEST_F(GrantTest, AnotherProcessCanBeGrantedTheNextWrite) {
  const Partner child([&](const Partner& self) {
    uint32_t db = 0;
    uint32_t ses = 0;
    const bool opened = open_database(path(), 0, kOther, &db) == ROV_OK;
    set_wait(kOther, pace::patience_ms());
    self.say(opened ? 'y' : 'n');
    self.listen();
    self.say(rov_edit_begin(db, &ses) == ROV_OK ? 'y' : 'n');
  });
  EXPECT_EQ(child.hear(), 'y');
  ASSERT_OK(rov_db_ses_lock_grant(db_, user_of(kOther, child.process())));
  EXPECT_STATUS(try_write(db_), ROV_ERR_BUSY);
  EXPECT_STATUS(try_write(other_), ROV_ERR_BUSY) << "the same client in another process";
  child.tell();
  EXPECT_EQ(child.hear(), 'y');
  EXPECT_STATUS(try_write(db_), ROV_ERR_BUSY) << "the child writes";
  const auto before = Clock::now();
  child.kill();
  set_wait(kClient, pace::patience_ms());
  EXPECT_OK(try_write(db_));
  EXPECT_LT(Clock::now() - before, pace::at_once());
}

TEST_F(GrantTest, AUserThatIsKilledHoldsNobody) {
  Partner child([](const Partner& self) { self.say('y'); });
  EXPECT_EQ(child.hear(), 'y');
  ASSERT_OK(rov_db_ses_lock_grant(db_, user_of(kOther, child.process())));
  EXPECT_STATUS(try_write(db_), ROV_ERR_BUSY);
  set_wait(kClient, pace::patience_ms());
  const auto before = Clock::now();
  child.kill();
  EXPECT_OK(try_write(db_)) << "also while nobody waited for the dead process";
  EXPECT_LT(Clock::now() - before, pace::at_once());
  child.end();
  EXPECT_OK(try_write(db_));
}

TEST_F(GrantTest, AKilledWriterWithSessionsLeavesNobodyWaiting) {
  for (int round = 0; round < 5; ++round) {
    const Partner child([&](const Partner& self) {
      uint32_t db = 0;
      uint32_t ses = 0;
      bool ok = open_database(path(), 0, kOther, &db) == ROV_OK;
      for (int i = 0; i < 20; ++i) ok = ok && rov_ses_open_ro(db, &ses) == ROV_OK;
      ok = ok && rov_edit_begin(db, &ses) == ROV_OK && put_node(ses, 1, pattern(1, 99)) == ROV_OK;
      ok = ok && rov_db_ses_lock_grant(db, user_of(kOther, getpid())) == ROV_OK;
      self.say(ok ? 'y' : 'n');
    });
    ASSERT_EQ(child.hear(), 'y');
    set_wait(kClient, 0);
    EXPECT_STATUS(try_write(db_), ROV_ERR_BUSY);
    set_wait(kClient, pace::patience_ms());
    const auto before = Clock::now();
    child.kill();
    const uint32_t writer = begin();
    EXPECT_LT(Clock::now() - before, pace::at_once());
    rov_node_parms_t parms;
    EXPECT_STATUS(rov_node_parms_get(writer, id(1), &parms), ROV_ERR_NO_ITEM);
    ASSERT_OK(put_node(writer, 2, pattern(2, 2)));
    commit(writer);
  }
}

TEST(Process, ADeadProcessIsToldFromALiveOne) {
  const auto own = static_cast<uint32_t>(getpid());
  const uint64_t start = rov::process_start(own);
  EXPECT_NE(start, 0U);
  EXPECT_FALSE(rov::process_is_gone(own, start));
  EXPECT_FALSE(rov::process_is_gone(own, 0));
  EXPECT_TRUE(rov::process_is_gone(own, start + 1)) << "an earlier process of that number";
  EXPECT_TRUE(rov::process_is_gone(0, 0));
  EXPECT_TRUE(rov::process_is_gone(UINT32_MAX, 0));
  EXPECT_EQ(rov::process_start(UINT32_MAX), 0U);
}

}  // namespace
