// Readers in four processes and writers in a fifth, two threads in each: every snapshot is one
// revision that was committed, whole, and no older than what had been acknowledged before it.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "tests/database/child.h"
#include "tests/database/database_fixture.h"
#include "tests/database/random.h"
#include "tests/database/whole_commits.h"
#include "tests/system/fault/scale.h"

namespace {

using namespace testing_rov;

constexpr uint32_t kReaders = 4;   // processes
constexpr uint32_t kThreads = 2;   // in each
constexpr uint32_t kCommits = 60;  // at least
constexpr uint32_t kBallast = 40;  // nodes of half a megabyte, which make the map grow meanwhile

// What all processes see.
struct Shared {
  std::atomic<uint32_t> tried;         // the newest value that somebody began to write
  std::atomic<uint32_t> acknowledged;  // the newest one that was committed
  std::atomic<uint32_t> reads;         // of nodes
  std::atomic<uint32_t> snapshots;     // with another value than the thread's one before
  std::atomic<uint32_t> ready;
  std::atomic<uint32_t> failed;  // threads

  bool goes_on(uint32_t target) const {
    return failed == 0 && (reads < target || acknowledged < kCommits);
  }
};

Shared* new_shared() {
  void* page =
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) abort();
  return new (page) Shared{};
}

// Complaints go to standard error: they come from threads of other processes.
bool complain(const char* what, uint32_t value, uint32_t other) {
  fprintf(stderr, "%s: %u, %u (%s)\n", what, value, other, rov_err_message());
  return false;
}

bool two_threads(Shared& shared, const std::function<bool(uint32_t)>& work) {
  std::atomic<bool> good{true};
  std::vector<std::thread> threads;
  for (uint32_t n = 0; n < kThreads; ++n) {
    threads.emplace_back([&, n] {
      if (work(n)) return;
      good = false;
      ++shared.failed;
    });
  }
  for (std::thread& thread : threads) thread.join();
  return good;
}

bool check_snapshot(uint32_t db, Shared& shared, uint32_t* last) {
  const uint32_t at_least = shared.acknowledged;
  uint32_t ses = 0;
  if (rov_ses_open_ro(db, &ses) != ROV_OK) return complain("no session", 0, 0);
  uint32_t value = 0;
  for (int times = 0; times < 2; ++times) {
    uint32_t again = 0;
    if (!is_whole(ses, &again)) return complain("a torn snapshot", again, value);
    if (times != 0 && again != value) return complain("a snapshot that changed", again, value);
    value = again;
    shared.reads += kWholeNodes;
  }
  if (value < at_least) return complain("older than what was acknowledged", value, at_least);
  if (value > shared.tried) return complain("newer than what was written", value, shared.tried);
  if (value < *last) return complain("older than the snapshot before", value, *last);
  if (value != *last) ++shared.snapshots;
  *last = value;
  return rov_ses_close(ses) == ROV_OK || complain("cannot close", ses, 0);
}

bool read_on(uint32_t db, Shared& shared, uint32_t target) {
  ++shared.ready;
  return two_threads(shared, [&](uint32_t) {
    uint32_t last = 0;
    while (shared.goes_on(target)) {
      if (!check_snapshot(db, shared, &last)) return false;
    }
    return true;
  });
}

// The next value, in a transaction; now and then with something large.
bool write_next(uint32_t db, Shared& shared) {
  uint32_t ses = 0;
  if (rov_edit_begin(db, &ses) != ROV_OK) return complain("cannot begin", 0, 0);
  uint32_t value = 0;
  if (!is_whole(ses, &value)) return complain("torn for a writer", value, 0);
  shared.tried = ++value;
  if (!put_all(ses, value)) return complain("cannot write", value, 0);
  if (value % 2 == 0 && value / 2 < kBallast) {
    if (put_node(ses, 1000 + value, pattern(value, 512U << 10)) != ROV_OK) {
      return complain("cannot write much", value, 0);
    }
  }
  if (rov_edit_commit(ses) != ROV_OK) return complain("cannot commit", value, 0);
  uint32_t before = shared.acknowledged;
  while (before < value && !shared.acknowledged.compare_exchange_weak(before, value)) continue;
  return true;
}

bool write_on(uint32_t db, Shared& shared, uint32_t target) {
  // Whose turn it is among writers that always want one is the machine's choice: on a busy one a
  // writer may have to wait long, but never for ever.
  uint32_t lib = 0;
  if (rov_lib_init(7, &lib) != ROV_OK ||
      rov_lib_init_locks(lib, pace::patience_ms(), 1, 0, 0) != ROV_OK) {
    return complain("no library", 0, 0);
  }
  while (shared.ready < kReaders) std::this_thread::yield();
  return two_threads(shared, [&](uint32_t) {
    while (shared.goes_on(target)) {
      if (!write_next(db, shared)) return false;
    }
    return true;
  });
}

class ConcurrencyTest : public DatabaseTest {};

TEST_F(ConcurrencyTest, EverySnapshotIsOneCommittedRevision) {
  const uint32_t target = fault::scaled(200000, 20000);
  fault::announce("concurrency", 0, target, "reads");
  Shared& shared = *new_shared();
  ASSERT_TRUE(write_all(db_, 0));
  close();
  {
    std::vector<std::unique_ptr<Child>> children;
    for (uint32_t n = 0; n < kReaders; ++n) {
      children.push_back(std::make_unique<Child>(
          path(), [&](uint32_t db, int) { return read_on(db, shared, target); }));
    }
    children.push_back(std::make_unique<Child>(
        path(), [&](uint32_t db, int) { return write_on(db, shared, target); }));
    for (const auto& child : children) EXPECT_EQ(child->wait(), 0);
  }
  open();
  uint32_t value = 0;
  EXPECT_TRUE(is_whole(read(), &value));
  EXPECT_EQ(value, shared.acknowledged);
  printf("%u commits, %u reads, %u snapshots that were new to their reader\n",
         shared.acknowledged.load(), shared.reads.load(), shared.snapshots.load());
  EXPECT_GE(shared.reads, target);
  EXPECT_GE(shared.acknowledged, kCommits);
  EXPECT_GT(shared.snapshots, 10U);
}

}  // namespace
