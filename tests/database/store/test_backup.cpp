// Backups of a database that is in use.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <set>

#include "tests/database/child.h"
#include "tests/database/database_fixture.h"
#include "tests/system/fault/scale.h"

namespace {

using namespace testing_rov;
namespace fs = std::filesystem;

class BackupTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    for (uint32_t node = 1; node <= 50; ++node) store(node);
  }
  void store(uint32_t node) {
    const uint32_t ses = begin();
    ASSERT_OK(put_node(ses, node, pattern(node, 300)));
    commit(ses);
  }
  uint32_t back_up(const std::string& place, uint32_t flags = 0) {
    return rov_edit_backup(db_, place.c_str(), flags, &made_);
  }
  std::set<std::string> names() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory_.path())) {
      names.insert(entry.path().filename().string());
    }
    return names;
  }
  static std::string message() { return rov_err_message(); }
  static uint32_t nodes_in(const std::string& place) {
    uint32_t db = 0;
    rov_verify_t report = {};
    EXPECT_OK(open_database(place, ROV_DB_NO_CREATE, kClient, &db));
    EXPECT_OK(rov_edit_verify(db, &report));
    EXPECT_OK(rov_db_close(db, 0));
    return static_cast<uint32_t>(report.nodes);
  }

  std::string place_ = directory_.file("backup");
  rov_verify_t made_ = {};
};

TEST_F(BackupTest, IsADatabaseOfItsOwn) {
  const uint32_t ses = read();
  rov_verify_t report = {};
  ASSERT_OK(rov_ses_verify(ses, &report));
  ASSERT_OK(back_up(place_));
  EXPECT_EQ(made_.revision, report.revision);
  EXPECT_EQ(made_.nodes, 50U);
  EXPECT_EQ(made_.sum, report.sum);
  struct stat info;
  ASSERT_EQ(stat(place_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777U, 0700U);
  ASSERT_EQ(stat((place_ + "/data.mdb").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777U, 0600U);
  store(51);
  EXPECT_EQ(nodes_in(place_), 50U);
  EXPECT_EQ(names(), (std::set<std::string>{"db", "backup"}));
}

TEST_F(BackupTest, IsWholeWhileOthersWrite) {
  const Child writer(path(), [](uint32_t db, int pipe) {
    for (uint32_t round = 0;; ++round) {
      uint32_t ses = 0;
      if (rov_edit_begin(db, &ses) != ROV_OK) return false;
      for (uint32_t node = 1; node <= 50; ++node) {
        if (put_node(ses, node, pattern(round, 300)) != ROV_OK) return false;
      }
      if (rov_edit_commit(ses) != ROV_OK) return false;
      if (round == 0) say(pipe, 1);
    }
  });
  uint32_t started = 0;
  ASSERT_TRUE(writer.next(&started));
  uint64_t first_revision = 0;
  uint64_t newest = 0;
  // How often the writer comes to commit meanwhile is the machine's affair.
  for (uint32_t round = 0; round < 5 || newest == first_revision; ++round) {
    ASSERT_OK(back_up(place_, ROV_BACKUP_REPLACE));
    EXPECT_GE(made_.revision, newest);
    newest = made_.revision;
    if (first_revision == 0) first_revision = newest;
    uint32_t db = 0;
    uint32_t ses = 0;
    ASSERT_OK(open_database(place_, 0, kClient, &db));
    ASSERT_OK(rov_ses_open_ro(db, &ses));
    const Bytes first = tlv_of(ses, 1);
    for (uint32_t node = 2; node <= 50; ++node) EXPECT_EQ(tlv_of(ses, node), first) << node;
    ASSERT_OK(rov_db_close(db, 0));
  }
}

TEST_F(BackupTest, WhatIsThereStays) {
  fs::create_directory(place_);
  EXPECT_STATUS(back_up(place_), ROV_ERR_OPEN);
  EXPECT_NE(message().find(place_), std::string::npos) << message();
  EXPECT_STATUS(back_up(place_, ROV_BACKUP_REPLACE), ROV_ERR_OPEN) << "it is no database";
  const std::string file = directory_.file("file");
  std::ofstream(file) << "mine";
  EXPECT_STATUS(back_up(file), ROV_ERR_OPEN);
  EXPECT_STATUS(back_up(file, ROV_BACKUP_REPLACE), ROV_ERR_OPEN);
  fs::create_directory_symlink(path(), directory_.file("link"));
  EXPECT_STATUS(back_up(directory_.file("link"), ROV_BACKUP_REPLACE), ROV_ERR_OPEN);
  EXPECT_EQ(fs::file_size(file), 4U);
  EXPECT_EQ(names(), (std::set<std::string>{"db", "backup", "file", "link"}));
}

TEST_F(BackupTest, AnOlderBackupIsReplacedWhole) {
  ASSERT_OK(back_up(place_));
  EXPECT_EQ(nodes_in(place_), 50U);
  std::ofstream(place_ + "/changes") << "of the old one";
  store(51);
  ASSERT_OK(back_up(place_ + "//", ROV_BACKUP_REPLACE));
  EXPECT_FALSE(fs::exists(place_ + "/changes"));
  EXPECT_EQ(nodes_in(place_), 51U);
  EXPECT_EQ(names(), (std::set<std::string>{"db", "backup"}));
}

TEST_F(BackupTest, OneThatIsInUseIsNotReplaced) {
  ASSERT_OK(back_up(place_));
  const Child holder(place_, [](uint32_t, int pipe) {
    say(pipe, 1);
    pause();
    return true;
  });
  uint32_t started = 0;
  ASSERT_TRUE(holder.next(&started));
  EXPECT_STATUS(back_up(place_, ROV_BACKUP_REPLACE), ROV_ERR_BUSY);
  EXPECT_NE(message().find("process "), std::string::npos) << message();
  EXPECT_STATUS(back_up(path(), ROV_BACKUP_REPLACE), ROV_ERR_BUSY);
  EXPECT_NE(message().find("itself"), std::string::npos) << message();
}

TEST_F(BackupTest, PlacesThatCanNotBeOne) {
  for (const char* bad : {"/", "..", "x/..", "."}) {
    EXPECT_STATUS(back_up(bad), ROV_ERR_INVALID) << bad;
  }
  EXPECT_STATUS(back_up(""), ROV_ERR_INVALID);
  EXPECT_STATUS(back_up(std::string(300, 'x')), ROV_ERR_INVALID);
  EXPECT_STATUS(back_up(directory_.file("no/such")), ROV_ERR_OPEN);
  EXPECT_STATUS(back_up(place_, 2), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_edit_backup(db_, nullptr, 0, &made_), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_edit_backup(db_, place_.c_str(), 0, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_edit_backup(1, place_.c_str(), 0, &made_), ROV_ERR_HANDLE);
}

// Killed at any moment it leaves a backup or none, and what it left beside goes with the next one.
TEST_F(BackupTest, AKilledOneLeavesNothingThatStays) {
  const std::string making = directory_.file(".backup.backup");
  const uint32_t rounds = fault::scaled(30);
  for (uint32_t round = 0; round < rounds; ++round) {
    const pid_t child = fork();
    if (child == 0) {
      uint32_t db = 0;
      rov_verify_t made;
      if (open_database(path(), 0, 7, &db) != ROV_OK) _exit(1);
      for (;;) static_cast<void>(rov_edit_backup(db, place_.c_str(), ROV_BACKUP_REPLACE, &made));
    }
    usleep(3000 + round % 30 * 700);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    if (fs::exists(place_)) {
      EXPECT_EQ(nodes_in(place_), 50U) << round;
    }
  }
  fs::create_directories(making + "/snapshots/half");
  std::ofstream(making + "/data.mdb") << "half";
  ASSERT_OK(back_up(place_, ROV_BACKUP_REPLACE));
  EXPECT_EQ(names(), (std::set<std::string>{"db", "backup"}));
  EXPECT_FALSE(fs::exists(place_ + "/snapshots"));
}

TEST_F(BackupTest, TwoAtOnceInOnePlace) {
  const std::string making = directory_.file(".backup.backup");
  fs::create_directory(making);
  const int other = ::open(making.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(flock(other, LOCK_EX), 0);
  EXPECT_STATUS(back_up(place_), ROV_ERR_BUSY);
  ::close(other);
  EXPECT_OK(back_up(place_));
}

TEST_F(BackupTest, OfADamagedDatabaseThereIsNone) {
  std::fstream data(path() + "/data.mdb", std::ios::in | std::ios::out | std::ios::binary);
  data.seekg(0, std::ios::end);
  const auto size = static_cast<size_t>(data.tellg());
  for (size_t at = 3 * 4096; at + 8 < size; at += 4096) {
    data.seekp(static_cast<std::streamoff>(at));
    data << "damage";
  }
  data.close();
  EXPECT_STATUS(back_up(place_), ROV_ERR_CORRUPT);
  EXPECT_NE(message().find(path()), std::string::npos) << message();
  EXPECT_EQ(names(), (std::set<std::string>{"db"}));
}

TEST_F(BackupTest, OfASnapshotThatIsKept) {
  uint32_t snapshot = 0;
  ASSERT_OK(rov_db_snapshot(db_, "kept", &snapshot));
  store(51);
  ASSERT_OK(rov_edit_backup(snapshot, place_.c_str(), 0, &made_));
  EXPECT_EQ(made_.nodes, 50U);
  EXPECT_EQ(nodes_in(place_), 50U);
}

// A backup that has no room leaves none, and takes none away.
TEST_F(BackupTest, WithoutRoomTheOldOneStays) {
  ASSERT_OK(back_up(place_));
  const pid_t child = fork();
  if (child == 0) {
    uint32_t db = 0;
    rov_verify_t made;
    if (open_database(path(), 0, 7, &db) != ROV_OK) _exit(1);
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {8192, 8192};
    setrlimit(RLIMIT_FSIZE, &limit);
    _exit(rov_edit_backup(db, place_.c_str(), ROV_BACKUP_REPLACE, &made) != ROV_OK ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(nodes_in(place_), 50U);
  EXPECT_EQ(names(), (std::set<std::string>{"db", "backup"}));
}

}  // namespace
