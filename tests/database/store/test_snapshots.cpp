// Snapshots that are kept: what they hold, their names, and what becomes of them when processes are
// killed, files removed and disks full.
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>

#include "database/store/copies.h"
#include "tests/database/database_fixture.h"
#include "tests/support/pace.h"

namespace {

using namespace testing_rov;
using Paths = std::vector<std::string>;

class SnapshotTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    put(1);
  }
  // One commit. Its two nodes always fit together.
  static uint32_t put_through(uint32_t db, uint32_t seed, size_t bytes = 40) {
    uint32_t writer = 0;
    uint32_t status = rov_edit_begin(db, &writer);
    if (status == ROV_OK) status = put_node(writer, 1, pattern(seed, bytes));
    if (status == ROV_OK) status = put_node(writer, 2, pattern(seed, bytes));
    return status == ROV_OK ? rov_edit_commit(writer) : status;
  }
  void put(uint32_t seed, size_t bytes = 40) { ASSERT_OK(put_through(db_, seed, bytes)); }
  uint32_t snapshot(const std::string& name) const {
    uint32_t handle = 0;
    EXPECT_OK(rov_db_snapshot(db_, name.c_str(), &handle));
    return handle;
  }
  uint32_t snapshot(const std::string& uri, const std::string& name) const {
    uint32_t handle = 0;
    EXPECT_OK(rov_db_uri_snapshot(db_, uri.c_str(), name.c_str(), &handle));
    return handle;
  }
  static uint32_t open_on(uint32_t handle) {
    uint32_t ses = 0;
    EXPECT_OK(rov_ses_open_ro(handle, &ses));
    return ses;
  }
  // What a new session on the handle reads, which must fit together.
  static Bytes content(uint32_t handle) {
    const uint32_t ses = open_on(handle);
    const Bytes first = tlv_of(ses, 1);
    EXPECT_EQ(first, tlv_of(ses, 2));
    EXPECT_OK(rov_ses_close(ses));
    return first;
  }
  Paths list() const {
    Paths paths;
    char path[ROV_SNAPSHOT_PATH] = "";
    for (;;) {
      const uint32_t status = rov_snapshot_next(db_, path, sizeof path, path);
      if (status == ROV_ERR_NO_ITEM) return paths;
      EXPECT_OK(status);
      if (status != ROV_OK) return paths;
      paths.emplace_back(path);
    }
  }
  uint32_t remove(const std::string& uri) const { return rov_db_uri_rm(db_, uri.c_str()); }
  // The names in the directory of the copies.
  std::set<std::string> files() const {
    std::set<std::string> names;
    std::error_code absent;
    for (const auto& entry : std::filesystem::directory_iterator(path() + "/snapshots", absent)) {
      names.insert(entry.path().filename().string());
    }
    return names;
  }
};

// Runs in a process of its own, which ends with what `work` returns.
template <class Work>
pid_t start(Work work) {
  const pid_t child = fork();
  if (child == 0) _exit(work() && !testing::Test::HasFailure() ? 0 : 1);
  return child;
}

bool ends_well(pid_t child) {
  int result = -1;
  return waitpid(child, &result, 0) == child && WIFEXITED(result) && WEXITSTATUS(result) == 0;
}

// ---- What a snapshot is ----

TEST_F(SnapshotTest, KeepsTheCommitThatItWasMadeOf) {
  const uint32_t kept = snapshot("before");
  put(2);
  EXPECT_EQ(content(kept), pattern(1, 40));
  EXPECT_EQ(content(db_), pattern(2, 40));
  const uint32_t ses = open_on(kept);
  uint32_t base = 0;
  ASSERT_OK(rov_ses_orig_handle(ses, &base));
  EXPECT_EQ(tlv_of(base, 1), pattern(1, 40)) << "nothing newer comes";
}

TEST_F(SnapshotTest, IsOpenedAgainByItsName) {
  const uint32_t first = snapshot("s");
  put(2);
  const uint32_t second = snapshot("s");
  EXPECT_NE(first, second);
  EXPECT_EQ(content(second), pattern(1, 40));
  EXPECT_OK(rov_snapshot_close(first));
  EXPECT_EQ(content(second), pattern(1, 40));
  reopen();
  EXPECT_EQ(content(snapshot("s")), pattern(1, 40));
  EXPECT_TRUE(ends_well(start([&] {
    uint32_t db = 0;
    uint32_t handle = 0;
    return open_database(path(), 0, 2, &db) == ROV_OK &&
           rov_db_snapshot(db, "s", &handle) == ROV_OK && content(handle) == pattern(1, 40);
  })));
}

TEST_F(SnapshotTest, HoldsEverythingThatTheDatabaseHolds) {
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 3, {}, name("data set"), ROV_NODE_DSET));
  ASSERT_OK(put_link(writer, 3, 7, 1));
  commit(writer);
  char byte = 'x';
  rov_priv_t priv = {5, 1, &byte};
  ASSERT_OK(rov_db_priv_write(db_, &priv));
  const uint32_t ses = open_on(snapshot("s"));
  rov_node_parms_t parms;
  EXPECT_OK(rov_ses_dset_name_get(ses, 21, name("data set").data(), &parms));
  EXPECT_EQ(number(parms.id), 3U);
  EXPECT_EQ(referrers_of(ses, 1), (std::vector<std::pair<uint32_t, uint32_t>>{{3, 7}}));
  uint32_t size = 0;
  EXPECT_OK(rov_ps_datasize(ses, name("data set").data(), &size));
  EXPECT_GT(size, 40U);
}

TEST_F(SnapshotTest, IsNotWrittenTo) {
  const uint32_t kept = snapshot("s");
  uint32_t ses = 0;
  EXPECT_STATUS(rov_edit_begin(kept, &ses), ROV_ERR_READ_ONLY);
  ses = open_on(kept);
  EXPECT_STATUS(put_node(ses, 1, {}), ROV_ERR_READ_ONLY);
  char byte = 'x';
  const rov_priv_t priv = {5, 1, &byte};
  EXPECT_STATUS(rov_ses_priv_write(ses, &priv, 0), ROV_ERR_READ_ONLY);
  const rov_node_id_t node = id(1);
  EXPECT_STATUS(rov_node_priv_set(ses, &node, &byte, 1), ROV_ERR_READ_ONLY);
  EXPECT_STATUS(rov_db_ses_lock_grant(kept, 0), ROV_ERR_HANDLE);
  EXPECT_STATUS(rov_db_snapshot(kept, "of it", &ses), ROV_ERR_HANDLE);
  EXPECT_EQ(content(kept), pattern(1, 40));
}

TEST_F(SnapshotTest, HoldsUpNoPagesOfTheDatabase) {
  const uint32_t ses = open_on(snapshot("s"));
  for (uint32_t i = 0; i < 40; ++i) put(i, 100000);
  EXPECT_LT(std::filesystem::file_size(path() + "/data.mdb"), 4U << 20);
  EXPECT_EQ(tlv_of(ses, 1), pattern(1, 40));
}

// ---- Handles ----

TEST_F(SnapshotTest, ItsHandleEndsWithItsSessions) {
  const uint32_t kept = snapshot("s");
  const uint32_t ses = open_on(kept);
  const uint32_t other = open_on(snapshot("s"));
  uint32_t exists = 0;
  EXPECT_OK(rov_db_ses_exists(db_, ses, &exists));
  EXPECT_EQ(exists, 1U);
  EXPECT_OK(rov_db_ses_exists(kept, ses, &exists));
  EXPECT_EQ(exists, 1U);
  EXPECT_OK(rov_db_ses_exists(kept, other, &exists));
  EXPECT_EQ(exists, 0U);
  EXPECT_OK(rov_snapshot_close(kept));
  EXPECT_STATUS(rov_snapshot_close(kept), ROV_ERR_HANDLE);
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(ses, id(1), &parms), ROV_ERR_HANDLE);
  uint32_t again = 0;
  EXPECT_STATUS(rov_ses_open_ro(kept, &again), ROV_ERR_HANDLE);
  EXPECT_OK(rov_node_parms_get(other, id(1), &parms));
  EXPECT_STATUS(rov_snapshot_close(db_), ROV_ERR_HANDLE);
  EXPECT_STATUS(rov_db_close(snapshot("s"), 0), ROV_ERR_HANDLE);
}

TEST_F(SnapshotTest, ClosingTheDatabaseClosesItsSnapshots) {
  std::vector<uint32_t> handles;
  std::vector<uint32_t> sessions;
  for (const char* name : {"a", "b", "a"}) {
    handles.push_back(snapshot(name));
    sessions.push_back(open_on(handles.back()));
  }
  close();
  rov_node_parms_t parms;
  for (const uint32_t ses : sessions) {
    EXPECT_STATUS(rov_node_parms_get(ses, id(1), &parms), ROV_ERR_HANDLE);
  }
  for (const uint32_t handle : handles) {
    EXPECT_STATUS(rov_snapshot_close(handle), ROV_ERR_HANDLE);
  }
}

TEST_F(SnapshotTest, AChildOfAForkOpensItsOwn) {
  const uint32_t kept = snapshot("s");
  EXPECT_TRUE(ends_well(start([&] {
    uint32_t db = 0;
    uint32_t handle = 0;
    return rov_ses_open_ro(kept, &handle) == ROV_ERR_HANDLE &&
           open_database(path(), 0, kClient, &db) == ROV_OK &&
           rov_db_snapshot(db, "s", &handle) == ROV_OK && content(handle) == pattern(1, 40);
  })));
  EXPECT_EQ(content(kept), pattern(1, 40));
}

// ---- Names ----

TEST_F(SnapshotTest, GroupsAreListedAndRemoved) {
  EXPECT_EQ(list(), Paths{});
  snapshot("x");
  snapshot("a/b", "x");
  snapshot("a", "x");
  snapshot("ab", "x");
  snapshot("acme://edge-7", "x");
  EXPECT_EQ(list(), (Paths{"a/b/x", "a/x", "ab/x", "acme://edge-7/x", "x"}));
  EXPECT_STATUS(remove("a/x/y"), ROV_ERR_NO_ITEM);
  EXPECT_STATUS(remove("acme:"), uint32_t{ROV_OK}) << "what begins with it and a '/'";
  EXPECT_OK(remove("a/x"));
  EXPECT_EQ(list(), (Paths{"a/b/x", "ab/x", "x"}));
  EXPECT_OK(remove("a"));
  EXPECT_STATUS(remove("a"), ROV_ERR_NO_ITEM);
  EXPECT_OK(remove("x"));
  EXPECT_EQ(list(), Paths{"ab/x"});
  EXPECT_EQ(files(), std::set<std::string>{"ab%2Fx"});
}

TEST_F(SnapshotTest, NamesMayHoldAnythingPrintable) {
  const std::vector<std::string> names = {".hidden", "100%", "%41",      "a b", "..a",
                                          "...",     "~",    "\xc3\xa4", "-",   "A.b_c-9"};
  for (const std::string& each : names) snapshot(each);
  EXPECT_EQ(list().size(), names.size());
  std::set<std::string> sorted(names.begin(), names.end());
  EXPECT_EQ(list(), Paths(sorted.begin(), sorted.end()));
  for (const std::string& each : names) EXPECT_OK(remove(each));
  EXPECT_EQ(files(), std::set<std::string>{});
}

TEST_F(SnapshotTest, BadNamesAreRefused) {
  uint32_t handle = 0;
  for (const char* bad : {"", ".", "..", "a/b", "/", "a\nb", "\x7f"}) {
    EXPECT_STATUS(rov_db_snapshot(db_, bad, &handle), ROV_ERR_INVALID) << bad;
    EXPECT_STATUS(rov_db_uri_snapshot(db_, "u", bad, &handle), ROV_ERR_INVALID) << bad;
  }
  for (const char* bad : {"", ".", "..", "/a", "a/", "a/../b", "a/.", "./a", "..", "\x01"}) {
    EXPECT_STATUS(rov_db_uri_snapshot(db_, bad, "n", &handle), ROV_ERR_INVALID) << bad;
    EXPECT_STATUS(remove(bad), ROV_ERR_INVALID) << bad;
  }
  EXPECT_NE(std::string(rov_err_message()).find("URI"), std::string::npos);
  EXPECT_EQ(handle, 0U);
  EXPECT_EQ(files(), std::set<std::string>{});
}

TEST_F(SnapshotTest, PathsHaveALongestLength) {
  uint32_t handle = 0;
  snapshot(std::string(255, 'n'));
  EXPECT_STATUS(rov_db_snapshot(db_, std::string(256, 'n').c_str(), &handle), ROV_ERR_LENGTH);
  snapshot(std::string(85, '%'));
  EXPECT_STATUS(rov_db_snapshot(db_, std::string(86, '%').c_str(), &handle), ROV_ERR_LENGTH);
  snapshot(std::string(100, 'u'), std::string(152, 'n'));
  EXPECT_STATUS(rov_db_uri_snapshot(db_, std::string(100, 'u').c_str(),
                                    std::string(153, 'n').c_str(), &handle),
                ROV_ERR_LENGTH);
  EXPECT_EQ(list().size(), 3U);
}

TEST_F(SnapshotTest, BadArgumentsAreRefused) {
  uint32_t handle = 9;
  char path[ROV_SNAPSHOT_PATH] = "?";
  EXPECT_STATUS(rov_db_snapshot(db_, nullptr, &handle), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_db_snapshot(db_, "a", nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_db_snapshot(0, "a", &handle), ROV_ERR_HANDLE);
  EXPECT_STATUS(rov_db_uri_snapshot(db_, nullptr, "a", &handle), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_db_uri_snapshot(db_, "a", nullptr, &handle), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_db_uri_snapshot(db_, "a", "a", nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_db_uri_snapshot(read(), "a", "a", &handle), ROV_ERR_HANDLE);
  EXPECT_STATUS(rov_db_uri_rm(db_, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_db_uri_rm(0, "a"), ROV_ERR_HANDLE);
  EXPECT_STATUS(remove("a"), ROV_ERR_NO_ITEM);
  EXPECT_STATUS(rov_snapshot_next(db_, nullptr, sizeof path, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_snapshot_next(0, nullptr, sizeof path, path), ROV_ERR_HANDLE);
  EXPECT_STATUS(rov_snapshot_next(db_, nullptr, sizeof path, path), ROV_ERR_NO_ITEM);
  snapshot("four");
  EXPECT_STATUS(rov_snapshot_next(db_, nullptr, 4, path), ROV_ERR_LENGTH);
  EXPECT_STREQ(path, "?");
  EXPECT_OK(rov_snapshot_next(db_, nullptr, 5, path));
  EXPECT_STREQ(path, "four");
  EXPECT_EQ(handle, 9U);
}

TEST(CopyName, OnlyWholeFileNamesArePaths) {
  char path[rov::kCopyNameRoom];
  EXPECT_TRUE(rov::copy_path("a%2Fb", path));
  EXPECT_STREQ(path, "a/b");
  for (const char* bad : {"a%2fb", "%41", "%4", "%", "%00", "a b", ".making", "%zz"}) {
    EXPECT_FALSE(rov::copy_path(bad, path)) << bad;
  }
}

// ---- Removing ----

TEST_F(SnapshotTest, RemovingOneThatIsOpenHarmsNobody) {
  const uint32_t kept = snapshot("s");
  const uint32_t ses = open_on(kept);
  int pipes[2];
  ASSERT_EQ(pipe(pipes), 0);
  const pid_t child = start([&] {
    uint32_t db = 0;
    uint32_t handle = 0;
    uint32_t reader = 0;
    bool ok = open_database(path(), 0, 2, &db) == ROV_OK &&
              rov_db_snapshot(db, "s", &handle) == ROV_OK &&
              rov_ses_open_ro(handle, &reader) == ROV_OK && rov_db_uri_rm(db, "s") == ROV_OK;
    ok = ok && tlv_of(reader, 1) == pattern(1, 40);
    return write(pipes[1], "", 1) == 1 && ok;
  });
  char byte = 0;
  ASSERT_EQ(::read(pipes[0], &byte, 1), 1);
  EXPECT_TRUE(ends_well(child));
  EXPECT_EQ(list(), Paths{});
  EXPECT_EQ(tlv_of(ses, 1), pattern(1, 40));
  EXPECT_EQ(content(kept), pattern(1, 40)) << "new sessions, too";
  ::close(pipes[0]);
  ::close(pipes[1]);
}

TEST_F(SnapshotTest, ANameCanBeUsedAgain) {
  std::vector<uint32_t> handles;
  for (uint32_t i = 1; i <= 5; ++i) {
    put(i);
    handles.push_back(snapshot("s"));
    EXPECT_OK(remove("s"));
  }
  // Directories that are gone lend their numbers to new ones; what is open must not be mixed up.
  for (uint32_t i = 1; i <= 5; ++i) EXPECT_EQ(content(handles[i - 1]), pattern(i, 40)) << i;
}

TEST_F(SnapshotTest, WhatAKilledRemoverLeftIsSwept) {
  snapshot("s");
  std::filesystem::create_directories(path() + "/snapshots/.removed-1-1/snapshots/x");
  std::filesystem::create_directories(path() + "/snapshots/.making/odd");
  EXPECT_EQ(list(), Paths{"s"});
  EXPECT_STATUS(remove("nothing"), ROV_ERR_NO_ITEM);
  EXPECT_EQ(files(), (std::set<std::string>{".making", "s"}));
  snapshot("t");
  EXPECT_EQ(files(), (std::set<std::string>{"s", "t"}));
}

TEST_F(SnapshotTest, WhatIsNoSnapshotIsNotListed) {
  snapshot("s");
  std::filesystem::create_directory(path() + "/snapshots/a b");
  std::filesystem::create_directory(path() + "/snapshots/%61");
  EXPECT_EQ(list(), Paths{"s"});
}

// ---- Databases open for reading ----

TEST_F(SnapshotTest, ADatabaseOpenForReadingOpensThemOnly) {
  snapshot("s");
  put(2);
  close();
  open(ROV_DB_RDONLY);
  EXPECT_EQ(content(snapshot("s")), pattern(1, 40));
  EXPECT_EQ(list(), Paths{"s"});
  uint32_t handle = 0;
  EXPECT_STATUS(rov_db_snapshot(db_, "t", &handle), ROV_ERR_READ_ONLY);
  EXPECT_STATUS(remove("s"), ROV_ERR_READ_ONLY);
  EXPECT_EQ(list(), Paths{"s"});
}

// ---- Others at the same time, killed processes, full disks ----

TEST_F(SnapshotTest, WritersDoNotTearThem) {
  void* const shared = mmap(nullptr, sizeof(std::atomic<bool>), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  std::atomic<bool>& stop = *new (shared) std::atomic<bool>(false);
  // The process is asked to end: one that is killed may hold the engine's lock, which an emulator
  // gives to nobody else.
  const pid_t child = start([&] {
    uint32_t db = 0;
    bool ok = open_database(path(), 0, 2, &db) == ROV_OK;
    for (uint32_t i = 0; ok && !stop.load(); ++i) {
      ok = put_through(db, i, 2000 + i % 5000) == ROV_OK;
    }
    return ok;
  });
  std::thread writer([&] {
    for (uint32_t i = 2; !stop.load(); ++i) put(i, 3000 + i % 3000);
  });
  for (int i = 0; i < 30; ++i) {
    const uint32_t kept = snapshot("s" + std::to_string(i));
    content(kept);
    EXPECT_OK(rov_snapshot_close(kept));
  }
  stop.store(true);
  EXPECT_TRUE(ends_well(child));
  writer.join();
  munmap(shared, sizeof(std::atomic<bool>));
}

TEST_F(SnapshotTest, OneIsMadeWhereTheDatabaseGrewInAnotherProcess) {
  EXPECT_TRUE(ends_well(start([&] {
    uint32_t db = 0;
    uint32_t ses = 0;
    bool ok = open_database(path(), 0, 2, &db) == ROV_OK && rov_edit_begin(db, &ses) == ROV_OK;
    for (uint32_t i = 1; i <= 24 && ok; ++i) ok = put_node(ses, i, pattern(7, 1 << 20)) == ROV_OK;
    return ok && rov_edit_commit(ses) == ROV_OK;
  })));
  EXPECT_EQ(content(snapshot("s")), pattern(7, 1 << 20));
}

TEST_F(SnapshotTest, SeveralMakersOfOneNameMakeOne) {
  std::vector<pid_t> children;
  for (uint32_t i = 0; i < 4; ++i) {
    children.push_back(start([&, i] {
      uint32_t db = 0;
      uint32_t handle = 0;
      if (open_database(path(), 0, 2 + i, &db) != ROV_OK) return false;
      bool ok = true;
      for (int n = 0; n < 10 && ok; ++n) {
        const std::string name = "s" + std::to_string(n);
        ok = put_through(db, i, 50) == ROV_OK &&
             rov_db_snapshot(db, name.c_str(), &handle) == ROV_OK;
        content(handle);
      }
      return ok;
    }));
  }
  for (const pid_t child : children) EXPECT_TRUE(ends_well(child));
  EXPECT_EQ(list().size(), 10U);
  EXPECT_EQ(files().size(), 10U);
}

TEST_F(SnapshotTest, MakersAndRemoversOfOneNameDoNotHarmEachOther) {
  std::atomic<bool> stop{false};
  std::thread remover([&] {
    while (!stop.load()) {
      const uint32_t status = remove("s");
      EXPECT_TRUE(status == ROV_OK || status == ROV_ERR_NO_ITEM) << rov_err_message();
      // Without a pause the maker may never find its copy still there.
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  int opened = 0;
  for (int i = 0; i < 2000 && opened < 20; ++i) {
    uint32_t kept = 0;
    const uint32_t status = rov_db_snapshot(db_, "s", &kept);
    if (status == ROV_ERR_OPEN) continue;  // removed again each time before it was opened
    ASSERT_OK(status);
    EXPECT_EQ(content(kept), pattern(1, 40));
    EXPECT_OK(rov_snapshot_close(kept));
    ++opened;
  }
  stop.store(true);
  remover.join();
  EXPECT_EQ(opened, 20);
}

// Each round kills a process that makes and removes snapshots all the time.
TEST_F(SnapshotTest, AKilledMakerLeavesWholeOnesOrNone) {
  if (pace::emulated()) {
    GTEST_SKIP() << "an emulator does not tell the system which locks outlive their holder";
  }
  put(1, 1 << 20);
  for (int round = 0; round < 25; ++round) {
    const pid_t child = start([&] {
      uint32_t db = 0;
      uint32_t handle = 0;
      if (open_database(path(), 0, 2, &db) != ROV_OK) return false;
      for (uint32_t i = 0;; ++i) {
        rov_db_uri_snapshot(db, "k", std::to_string(i % 3).c_str(), &handle);
        rov_snapshot_close(handle);
        if (i % 4 == 3) rov_db_uri_rm(db, "k");
      }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(4 + 7 * round % 60));
    kill(child, SIGKILL);
    EXPECT_FALSE(ends_well(child));
    const auto before = std::chrono::steady_clock::now();
    for (const std::string& each : list()) {
      const uint32_t kept = snapshot("k", each.substr(2));
      EXPECT_EQ(content(kept), pattern(1, 1 << 20)) << each;
      EXPECT_OK(rov_snapshot_close(kept));
    }
    const uint32_t kept = snapshot("own" + std::to_string(round));
    EXPECT_LT(std::chrono::steady_clock::now() - before, 2 * pace::at_once());
    EXPECT_EQ(content(kept), pattern(1, 1 << 20));
    EXPECT_OK(rov_snapshot_close(kept));
    for (const std::string& file : files()) EXPECT_NE(file[0], '.') << file;
    ASSERT_OK(remove("own" + std::to_string(round)));
  }
}

TEST_F(SnapshotTest, AFullDiskLeavesNothingBehind) {
  put(1, 1 << 20);
  EXPECT_TRUE(ends_well(start([&] {
    uint32_t db = 0;
    uint32_t handle = 7;
    signal(SIGXFSZ, SIG_IGN);
    if (open_database(path(), 0, 2, &db) != ROV_OK) return false;
    const rlimit limit = {1 << 20, 1 << 20};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return false;
    return rov_db_snapshot(db, "s", &handle) == ROV_ERR_FULL && handle == 7;
  })));
  EXPECT_EQ(files(), std::set<std::string>{});
  EXPECT_EQ(list(), Paths{});
  EXPECT_EQ(content(snapshot("s")), pattern(1, 1 << 20));
}

}  // namespace
