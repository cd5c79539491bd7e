// Writers are served in turn: nobody who commits in a loop keeps others waiting, in a process and between
// processes.
#include <sys/mman.h>

#include <atomic>
#include <thread>

#include "tests/database/child.h"
#include "tests/database/database_fixture.h"
#include "tests/support/pace.h"

namespace {

using namespace testing_rov;

constexpr uint32_t kRounds = 20;
// Commits that one can make while another one comes to wait, and one that was under way.
constexpr uint32_t kMost = 5;

uint32_t write_once(uint32_t db, uint32_t node) {
  uint32_t ses = 0;
  uint32_t status = rov_edit_begin(db, &ses);
  if (status == ROV_OK) status = put_node(ses, node, pattern(node, 20));
  return status == ROV_OK ? rov_edit_commit(ses) : status;
}

class TurnsTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    uint32_t lib = 0;
    ASSERT_OK(rov_lib_init(kClient, &lib));
    ASSERT_OK(rov_lib_init_locks(lib, pace::patience_ms(), 1, 0, 0));
    counter_ = static_cast<std::atomic<uint32_t>*>(
        mmap(nullptr, sizeof *counter_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(counter_, MAP_FAILED);
  }
  void TearDown() override {
    munmap(counter_, sizeof *counter_);
    DatabaseTest::TearDown();
  }

  // How often others commit before this one does, at worst but for one round: the machine may stop this
  // one just when it has come to look.
  uint32_t overtaken() {
    uint32_t most = 0;
    uint32_t second = 0;
    for (uint32_t round = 0; round < kRounds; ++round) {
      const uint32_t before = *counter_;
      uint32_t ses = 0;
      EXPECT_OK(rov_edit_begin(db_, &ses));
      const uint32_t by = *counter_ - before;
      if (by > most) {
        second = most;
        most = by;
      } else if (by > second) {
        second = by;
      }
      EXPECT_OK(rov_edit_abandon(ses));
    }
    return second;
  }

  std::atomic<uint32_t>* counter_ = nullptr;
};

TEST_F(TurnsTest, OfAnotherThread) {
  std::atomic<bool> stop{false};
  std::thread other([&] {
    while (!stop) {
      EXPECT_OK(write_once(db_, 2));
      ++*counter_;
    }
  });
  while (*counter_ == 0) std::this_thread::yield();
  EXPECT_LE(overtaken(), kMost);
  stop = true;
  other.join();
}

TEST_F(TurnsTest, OfAnotherProcess) {
  const Child other(path(), [&](uint32_t db, int) {
    uint32_t lib = 0;
    if (rov_lib_init(7, &lib) != ROV_OK) return false;
    if (rov_lib_init_locks(lib, pace::patience_ms(), 1, 0, 0) != ROV_OK) return false;
    for (;;) {
      if (write_once(db, 3) != ROV_OK) return false;
      ++*counter_;
    }
  });
  while (*counter_ == 0) std::this_thread::yield();
  EXPECT_LE(overtaken(), kMost);
}

// Who gives up lets those behind go on.
TEST_F(TurnsTest, OfSomebodyWhoGaveUp) {
  uint32_t lib = 0;
  ASSERT_OK(rov_lib_init(kClient, &lib));
  ASSERT_OK(rov_lib_init_locks(lib, 20, 1, 0, 0));
  const uint32_t ses = begin();
  std::vector<std::thread> others;
  std::atomic<uint32_t> busy{0};
  for (uint32_t i = 0; i < 4; ++i) {
    others.emplace_back([&] {
      uint32_t mine = 0;
      if (rov_edit_begin(db_, &mine) == ROV_ERR_BUSY) ++busy;
    });
  }
  for (std::thread& other : others) other.join();
  EXPECT_EQ(busy, 4U);
  ASSERT_OK(rov_edit_commit(ses));
  ASSERT_OK(rov_lib_init_locks(lib, pace::patience_ms(), 1, 0, 0));
  EXPECT_OK(write_once(db_, 4));
}

}  // namespace
