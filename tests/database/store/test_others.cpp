// Other users of the machine: what they may see, what they may leave behind for a database, whom they
// may keep waiting, and what somebody can read who may write nothing.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>

#include "tests/database/child.h"
#include "tests/database/database_fixture.h"
#include "tests/support/pace.h"

namespace {

using namespace testing_rov;

constexpr uid_t kStranger = 65534;
constexpr gid_t kGroup = 4711;

mode_t mode_of(const std::string& file) {
  struct stat info = {};
  EXPECT_EQ(lstat(file.c_str(), &info), 0) << file;
  return info.st_mode & 07777;
}

// Runs `work` as another user, in a process of its own; whether it was true. What failed is told by
// the failure's sentence.
bool as_stranger(const std::function<bool()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    if (setgid(kStranger) != 0 || setuid(kStranger) != 0) _exit(2);
    const bool good = work();
    if (!good) fprintf(stderr, "the stranger was told: %s\n", rov_err_message());
    _exit(good ? 0 : 1);
  }
  int result = -1;
  waitpid(child, &result, 0);
  return WIFEXITED(result) && WEXITSTATUS(result) == 0;
}

class OthersTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    chmod(directory_.path().c_str(), 0755);
    uint32_t ses = begin();
    ASSERT_OK(put_node(ses, 1, pattern(1, 9)));
    commit(ses);
    keep(snapshot_of("kept"));
  }
  static void keep(uint32_t snapshot) { EXPECT_OK(rov_snapshot_close(snapshot)); }
  uint32_t snapshot_of(const char* name) {
    uint32_t snapshot = 0;
    EXPECT_OK(rov_db_snapshot(db_, name, &snapshot));
    return snapshot;
  }
  std::string file(const std::string& name) const { return path() + "/" + name; }
  // Gives all files and directories of the database these modes.
  void set_modes(mode_t directories, mode_t files) const {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path())) {
      chmod(entry.path().c_str(), entry.is_directory() ? directories : files);
    }
    chmod(path().c_str(), directories);
  }
  static bool reads(const std::string& path) {
    uint32_t db = 0;
    uint32_t ses = 0;
    if (open_database(path, ROV_DB_RDONLY, kClient, &db) != ROV_OK) return false;
    if (rov_ses_open_ro(db, &ses) != ROV_OK) return false;
    return tlv_of(ses, 1) == pattern(1, 9) && rov_db_close(db, 0) == ROV_OK;
  }
  uint32_t try_open(uint32_t flags = 0) {
    uint32_t db = 0;
    const uint32_t status = open_database(path(), flags, kClient, &db);
    if (status == ROV_OK) {
      EXPECT_OK(rov_db_close(db, 0));
    }
    return status;
  }
  static std::string message() { return rov_err_message(); }
};

// ---- What they may see --------------------------------------------------------------------------

TEST_F(OthersTest, FilesAreTheOwnersAloneWhateverTheUmask) {
  for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{0777}}) {
    close();
    std::filesystem::remove_all(path());
    const mode_t before = umask(mask);
    SetUp();
    umask(before);
    EXPECT_EQ(mode_of(path()), 0700U);
    for (const char* name : {"snapshots", "snapshots/kept"}) EXPECT_EQ(mode_of(file(name)), 0700U);
    for (const char* name : {"format", "data.mdb", "lock.mdb", "writer.lock", "changes",
                             "snapshots/kept/data.mdb", "snapshots/kept/format"}) {
      EXPECT_EQ(mode_of(file(name)), 0600U) << name;
    }
  }
}

TEST_F(OthersTest, AGroupGetsWhatItsOwnerAskedFor) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give files to any group";
  close();
  std::filesystem::remove_all(path());
  uint32_t lib = 0;
  rov_parms_t parms;
  ASSERT_OK(rov_lib_init(kClient, &lib));
  ASSERT_OK(rov_db_init_parms_init(&parms, ROV_VERSION));
  const std::string place = path();
  parms.p.db_path = place.c_str();
  parms.p.init_id = kClient;
  parms.p.db_group = kGroup;
  ASSERT_OK(rov_db_init(lib, ROV_VERSION, 0, 0, ROV_PROTO, 0, &parms, 0, &db_));
  const uint32_t ses = begin();
  ASSERT_OK(put_node(ses, 1, pattern(1, 9)));
  commit(ses);
  keep(snapshot_of("kept"));
  for (const char* name : {"", "snapshots", "snapshots/kept"}) {
    EXPECT_EQ(mode_of(file(name)), 02770U) << name;
  }
  for (const char* name :
       {"format", "data.mdb", "lock.mdb", "writer.lock", "changes", "snapshots/kept/data.mdb"}) {
    struct stat info = {};
    ASSERT_EQ(stat(file(name).c_str(), &info), 0) << name;
    EXPECT_EQ(info.st_gid, kGroup) << name;
    EXPECT_EQ(info.st_mode & 0777, 0660U) << name;
  }
  const pid_t member = fork();
  if (member == 0) {
    if (setgid(kGroup) != 0 || setuid(kStranger) != 0) _exit(2);
    uint32_t db = 0;
    uint32_t writer = 0;
    const bool good =
        open_database(path(), 0, kClient, &db) == ROV_OK && rov_edit_begin(db, &writer) == ROV_OK &&
        put_node(writer, 2, pattern(2, 9)) == ROV_OK && rov_edit_commit(writer) == ROV_OK;
    _exit(good ? 0 : 1);
  }
  int result = -1;
  waitpid(member, &result, 0);
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(as_stranger([&] { return !reads(path()); })) << "nobody else has any right";
}

TEST_F(OthersTest, CompactingKeepsOwnerAndRights) {
  close();
  if (geteuid() == 0) {
    ASSERT_EQ(chown(file("data.mdb").c_str(), kStranger, kGroup), 0);
  }
  ASSERT_EQ(chmod(file("data.mdb").c_str(), 0640), 0);
  ASSERT_OK(rov_edit_compact(path().c_str(), nullptr, nullptr));
  struct stat info = {};
  ASSERT_EQ(stat(file("data.mdb").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0640U);
  if (geteuid() == 0) {
    EXPECT_EQ(info.st_uid, kStranger);
  }
}

TEST_F(OthersTest, WhatRootMakesInAnothersDirectoryIsTheirs) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give files away";
  close();
  std::filesystem::remove(file("changes"));
  std::filesystem::remove(file("writer.lock"));
  ASSERT_EQ(chown(path().c_str(), kStranger, kStranger), 0);
  open();
  commit(begin());
  const uint32_t ses = begin();
  ASSERT_OK(put_node(ses, 2, pattern(2, 9)));
  commit(ses);
  for (const char* name : {"changes", "writer.lock"}) {
    struct stat info = {};
    ASSERT_EQ(stat(file(name).c_str(), &info), 0) << name;
    EXPECT_EQ(info.st_uid, kStranger) << name;
  }
}

// ---- What they may leave behind -----------------------------------------------------------------

TEST_F(OthersTest, ADirectoryThatOthersCanWriteToIsRefused) {
  close();
  for (const mode_t mode : {mode_t{0777}, mode_t{01777}, mode_t{0775}, mode_t{0702}}) {
    ASSERT_EQ(chmod(path().c_str(), mode), 0);
    for (const uint32_t flags : {uint32_t{0}, uint32_t{ROV_DB_RDONLY}}) {
      EXPECT_STATUS(try_open(flags), ROV_ERR_OPEN);
      EXPECT_NE(message().find("chmod"), std::string::npos) << message();
    }
    EXPECT_STATUS(rov_edit_compact(path().c_str(), nullptr, nullptr), ROV_ERR_OPEN);
  }
  ASSERT_EQ(chmod(path().c_str(), 0755), 0);
  EXPECT_OK(try_open());
}

TEST_F(OthersTest, NoLinkIsFollowed) {
  close();
  const std::string elsewhere = directory_.file("elsewhere");
  for (const char* name : {"format", "data.mdb", "lock.mdb", "writer.lock"}) {
    std::ofstream(elsewhere, std::ios::trunc) << "of somebody else";
    std::filesystem::rename(file(name), file("aside"));
    std::filesystem::create_symlink(elsewhere, file(name));
    EXPECT_STATUS(try_open(), ROV_ERR_OPEN) << name;
    EXPECT_NE(message().find("link"), std::string::npos) << message();
    std::filesystem::rename(file("aside"), file(name));
    std::ifstream after(elsewhere);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(after), {}), "of somebody else") << name;
  }
  // Without the file of marks a commit goes on; a copy's name is the compacting process's own.
  for (const char* name : {"changes", "data.mdb.compacted"}) {
    std::filesystem::remove(file(name));
    std::filesystem::create_symlink(elsewhere, file(name));
  }
  open();
  const uint32_t ses = begin();
  ASSERT_OK(put_node(ses, 2, pattern(2, 9)));
  commit(ses);
  close();
  EXPECT_OK(rov_edit_compact(path().c_str(), nullptr, nullptr));
  std::ifstream after(elsewhere);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(after), {}), "of somebody else");
}

TEST_F(OthersTest, AFifoHangsNobody) {
  close();
  for (const char* name : {"format", "data.mdb", "lock.mdb", "writer.lock"}) {
    std::filesystem::rename(file(name), file("aside"));
    ASSERT_EQ(mkfifo(file(name).c_str(), 0600), 0);
    EXPECT_STATUS(try_open(), ROV_ERR_OPEN) << name;
    EXPECT_NE(message().find("FIFO"), std::string::npos) << message();
    std::filesystem::rename(file("aside"), file(name));
  }
  std::filesystem::remove(file("changes"));
  ASSERT_EQ(mkfifo(file("changes").c_str(), 0600), 0);
  open();
  const uint32_t ses = begin();
  ASSERT_OK(put_node(ses, 2, pattern(2, 9)));
  commit(ses);
  rov_ntf_t ntf = {.kinds = 0xff, .fd = 0, .revision = {0, 0}};
  EXPECT_STATUS(rov_db_ntf(db_, &ntf), ROV_ERR_IO);
}

// ---- Whom they may keep waiting -----------------------------------------------------------------

TEST_F(OthersTest, AnOpenerWaitsForTheDirectorysLockOnlySoLong) {
  close();
  const int directory = ::open(path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(flock(directory, LOCK_EX), 0);
  setenv("ROV_LOCK_WAIT", "100", 1);
  EXPECT_STATUS(try_open(), ROV_ERR_BUSY);
  const std::string told = message();
  EXPECT_STATUS(rov_edit_compact(path().c_str(), nullptr, nullptr), ROV_ERR_BUSY);
  flock(directory, LOCK_UN);
  EXPECT_OK(try_open());
  unsetenv("ROV_LOCK_WAIT");
  ::close(directory);
  EXPECT_NE(told.find("process"), std::string::npos) << told;
  if (!pace::emulated()) {
    EXPECT_NE(told.find("process " + std::to_string(getpid())), std::string::npos) << told;
  }
}

TEST_F(OthersTest, AWriterIsToldWhomItWaitedFor) {
  const Child writer(path(), [](uint32_t db, int pipe) {
    uint32_t ses = 0;
    if (rov_edit_begin(db, &ses) != ROV_OK) return false;
    say(pipe, static_cast<uint32_t>(getpid()));
    pause();
    return true;
  });
  uint32_t process = 0;
  ASSERT_TRUE(writer.next(&process));
  uint32_t lib = 0;
  ASSERT_OK(rov_lib_init(kClient, &lib));
  ASSERT_OK(rov_lib_init_locks(lib, 50, 5, 0, 0));
  uint32_t ses = 0;
  EXPECT_STATUS(rov_edit_begin(db_, &ses), ROV_ERR_BUSY);
  EXPECT_NE(message().find("process " + std::to_string(process)), std::string::npos) << message();
  ASSERT_OK(rov_lib_defaults(lib, 0));
}

// ---- What can be read by somebody who may write nothing -----------------------------------------

TEST_F(OthersTest, AStrangerReadsWhatTheOwnerLetsThemRead) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
  close();
  set_modes(0755, 0444);
  EXPECT_TRUE(as_stranger([&] {
    uint32_t db = 0;
    uint32_t other = 0;
    uint32_t ses = 0;
    rov_verify_t report = {};
    rov_ntf_t ntf = {.kinds = 0xff, .fd = 0, .revision = {0, 0}};
    const auto ignore = [](const rov_holder_t*, void*) {};
    return reads(path()) && open_database(path(), ROV_DB_RDONLY, kClient, &db) == ROV_OK &&
           rov_edit_verify(db, &report) == ROV_OK && report.nodes == 1 &&
           rov_edit_holders(db, ignore, nullptr) == ROV_OK &&
           rov_db_snapshot(db, "kept", &other) == ROV_OK &&
           rov_ses_open_ro(other, &ses) == ROV_OK && tlv_of(ses, 1) == pattern(1, 9) &&
           rov_db_ntf(db, &ntf) == ROV_OK && ntf.fd == -1;
  }));
  EXPECT_TRUE(as_stranger([&] { return try_open() == ROV_ERR_OPEN; })) << "writing is refused";
  // With a newer commit that the copy must not lack, and one lost.
  std::filesystem::copy_file(file("data.mdb"), file("older"));
  open();
  const uint32_t ses = begin();
  ASSERT_OK(put_node(ses, 2, pattern(2, 9)));
  commit(ses);
  EXPECT_TRUE(as_stranger([&] { return reads(path()); })) << "beside a process that has it open";
  close();
  std::filesystem::rename(file("older"), file("data.mdb"));
  EXPECT_TRUE(as_stranger([&] { return try_open(ROV_DB_RDONLY) == ROV_ERR_CORRUPT; }));
  std::ofstream(file("data.mdb"), std::ios::trunc) << "nothing that is known";
  EXPECT_TRUE(as_stranger([&] { return try_open(ROV_DB_RDONLY) == ROV_ERR_FORMAT; }));
}

// A stranger's copies are whole commits while somebody writes as fast as can be.
TEST_F(OthersTest, CopiesOfAStrangerAreWholeCommits) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
  set_modes(0755, 0644);
  const Child writer(path(), [](uint32_t db, int pipe) {
    for (uint32_t round = 0;; ++round) {
      uint32_t ses = 0;
      if (rov_edit_begin(db, &ses) != ROV_OK) return false;
      for (uint32_t node = 1; node <= 40; ++node) {
        if (put_node(ses, node, pattern(round, 300)) != ROV_OK) return false;
      }
      if (rov_edit_commit(ses) != ROV_OK) return false;
      if (round == 0) say(pipe, 1);
    }
  });
  uint32_t started = 0;
  ASSERT_TRUE(writer.next(&started));
  EXPECT_TRUE(as_stranger([&] {
    uint32_t whole = 0;
    for (uint32_t round = 0; round < 20; ++round) {
      uint32_t db = 0;
      const uint32_t status = open_database(path(), ROV_DB_RDONLY, kClient, &db);
      if (status == ROV_ERR_BUSY) continue;
      uint32_t ses = 0;
      if (status != ROV_OK || rov_ses_open_ro(db, &ses) != ROV_OK) return false;
      const Bytes first = tlv_of(ses, 1);
      for (uint32_t node = 2; node <= 40; ++node) {
        if (tlv_of(ses, node) != first) return false;
      }
      if (rov_db_close(db, 0) != ROV_OK) return false;
      ++whole;
    }
    return whole != 0;
  }));
}

TEST_F(OthersTest, ADatabaseOnReadOnlyMediaCanBeRead) {
  close();
  if (geteuid() != 0 || mount(path().c_str(), path().c_str(), nullptr, MS_BIND, nullptr) != 0) {
    GTEST_SKIP() << "this process may not mount";
  }
  const int remounted =
      mount(nullptr, path().c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr);
  EXPECT_EQ(remounted, 0);
  EXPECT_TRUE(reads(path()));
  EXPECT_STATUS(try_open(), ROV_ERR_OPEN);
  EXPECT_NE(message().find("ROV_DB_RDONLY"), std::string::npos) << message();
  EXPECT_EQ(umount(path().c_str()), 0);
}

}  // namespace
