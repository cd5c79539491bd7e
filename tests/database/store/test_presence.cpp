// Who has a database open: how processes tell each other, what is allocated for that, and what happens
// when the file that is open is another one than that of its name.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <memory>

#include "database/store/files.h"
#include "tests/database/child.h"
#include "tests/database/database_fixture.h"
#include "tests/support/pace.h"
#include "tests/system/fault/scale.h"

namespace {

using namespace testing_rov;

class PresenceTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    store(1);
  }
  void store(uint32_t node) {
    const uint32_t ses = begin();
    ASSERT_OK(put_node(ses, node, pattern(node, 9)));
    commit(ses);
  }
  std::string file(const std::string& name) const { return path() + "/" + name; }
  void spoil() const {
    std::fstream data(file("data.mdb"), std::ios::in | std::ios::out | std::ios::binary);
    data.seekp(8);
    data << "spoilt";
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

// Anybody who may read a file can lock it for reading.
TEST_F(PresenceTest, NoLockForReadingMakesOthersSkipVerifying) {
  close();
  const int file = ::open(this->file("lock.mdb").c_str(), O_RDONLY | O_CLOEXEC);
  struct flock all = {};
  all.l_type = F_RDLCK;
  all.l_whence = SEEK_SET;
  ASSERT_EQ(fcntl(file, F_OFD_SETLK, &all), 0);
  spoil();
  EXPECT_STATUS(try_open(ROV_DB_RDONLY), ROV_ERR_FORMAT);
  EXPECT_STATUS(try_open(), ROV_ERR_FORMAT);
  ::close(file);
}

TEST_F(PresenceTest, AProcessThatOpensAndClosesTheLockFileCanNotBeCompactedAround) {
  const Child holder(path(), [&](uint32_t db, int pipe) {
    const int lock = ::open(file("lock.mdb").c_str(), O_RDWR | O_CLOEXEC);
    ::close(lock);  // which takes the engine's lock away
    uint32_t ses = 0;
    if (rov_edit_begin(db, &ses) != ROV_OK) return false;
    say(pipe, static_cast<uint32_t>(getpid()));
    pause();
    return true;
  });
  uint32_t process = 0;
  ASSERT_TRUE(holder.next(&process));
  close();
  EXPECT_STATUS(rov_edit_compact(path().c_str(), nullptr, nullptr), ROV_ERR_BUSY);
  const std::string named = "process " + std::to_string(process);
  EXPECT_NE(message().find(named), std::string::npos) << message();
  EXPECT_STATUS(try_open(), ROV_ERR_BUSY) << "its lock file would begin anew";
  EXPECT_NE(message().find(named), std::string::npos) << message();
}

TEST_F(PresenceTest, MarksOfOneNumberStandBesideEachOther) {
  const std::string name = file("lock.mdb");
  const int one = ::open(name.c_str(), O_RDWR | O_CLOEXEC);
  const int other = ::open(name.c_str(), O_RDWR | O_CLOEXEC);
  const int third = ::open(name.c_str(), O_RDWR | O_CLOEXEC);
  close();
  EXPECT_EQ(rov::find_presence(third), 0U);
  EXPECT_EQ(rov::take_presence(one), 0);
  EXPECT_EQ(rov::take_presence(other), 0);
  EXPECT_EQ(rov::find_presence(third), static_cast<uint32_t>(getpid()));
  rov::end_presence(one);
  EXPECT_EQ(rov::find_presence(third), static_cast<uint32_t>(getpid()));
  rov::end_presence(other);
  EXPECT_EQ(rov::find_presence(third), 0U);
  for (const int mark : {one, other, third}) ::close(mark);
}

TEST_F(PresenceTest, NothingIsCommittedToAFileThatHasLostItsName) {
  std::filesystem::copy_file(file("data.mdb"), file("copy"));
  const uint32_t ses = begin();
  ASSERT_OK(put_node(ses, 2, pattern(2, 9)));
  std::filesystem::rename(file("copy"), file("data.mdb"));
  EXPECT_STATUS(rov_edit_commit(ses), ROV_ERR_CORRUPT);
  EXPECT_NE(message().find("another file is in its place"), std::string::npos) << message();
  uint32_t again = 0;
  EXPECT_STATUS(rov_edit_begin(db_, &again), ROV_ERR_CORRUPT);
  reopen();
  store(3);
}

TEST_F(PresenceTest, EveryCommitLeavesItsMark) {
  const rov_node_id_t node = id(1);
  std::string before;
  for (uint32_t round = 0; round < 4; ++round) {
    const uint32_t ses = read();
    ASSERT_OK(rov_node_priv_set(ses, &node, &round, sizeof round));
    ASSERT_OK(rov_ses_close(ses));
    std::ifstream marks(file("changes"), std::ios::binary);
    const std::string now(std::istreambuf_iterator<char>(marks), {});
    EXPECT_NE(now, before) << round;
    before = now;
  }
  // So that a meta page which was never written, and with it the commit, is missed.
  const std::string older = file("older");
  std::filesystem::copy_file(file("data.mdb"), older);
  const uint32_t ses = read();
  ASSERT_OK(rov_node_priv_set(ses, &node, "last", 4));
  ASSERT_OK(rov_ses_close(ses));
  close();
  std::filesystem::rename(older, file("data.mdb"));
  EXPECT_STATUS(try_open(), ROV_ERR_CORRUPT);
}

// A process that moves about, and whose database is moved, leaves its marks where it is.
TEST_F(PresenceTest, MarksFollowTheDirectoryNotItsPath) {
  const std::string other = directory_.file("other");
  uint32_t second = 0;
  ASSERT_OK(open_database(other, 0, kClient, &second));
  ASSERT_OK(rov_db_close(second, 0));
  std::filesystem::rename(path(), directory_.file("moved"));
  std::filesystem::rename(other, path());
  store(2);
  store(3);
  EXPECT_FALSE(std::filesystem::exists(path() + "/changes"));
  close();
  EXPECT_OK(try_open()) << "the one that has the path now was not condemned";
  ASSERT_OK(open_database(directory_.file("moved"), 0, kClient, &db_));
  EXPECT_EQ(tlv_of(read(), 3), pattern(3, 9));
}

TEST_F(PresenceTest, AFollowerIsWokenAfterTheFileOfMarksWasRemoved) {
  rov_ntf_t ntf = {.kinds = 0xff, .fd = 0, .revision = {0, 0}};
  ASSERT_OK(rov_db_ntf(db_, &ntf));
  for (uint32_t round = 2; round < 6; ++round) {
    std::filesystem::remove(file("changes"));
    store(round);
    rov_change_t change = {};
    uint32_t len = 0;
    ASSERT_OK(rov_process_msg(db_, &change, sizeof change, &len)) << round;
    EXPECT_EQ(number(change.node), round);
    EXPECT_STATUS(rov_process_msg(db_, &change, sizeof change, &len), ROV_ERR_NO_VALUE);
  }
}

// Other processes' slots in the lock file have their room from the first opening on.
TEST_F(PresenceTest, AFullFileSystemEndsNobodyWhoReads) {
  close();
  const std::string small = directory_.file("small");
  std::filesystem::create_directory(small);
  if (geteuid() != 0 || mount("none", small.c_str(), "tmpfs", 0, "size=2m") != 0) {
    GTEST_SKIP() << "this process may not mount";
  }
  const std::string place = small + "/db";
  ASSERT_OK(open_database(place, 0, kClient, &db_));
  store(1);
  std::ofstream(small + "/filler") << std::string(4 << 20, 'x');
  std::vector<uint32_t> sessions(512);
  for (uint32_t& ses : sessions) ASSERT_OK(rov_ses_open_ro(db_, &ses));
  for (const uint32_t ses : sessions) ASSERT_OK(rov_ses_close(ses));
  for (uint32_t round = 0; round < fault::soak(); ++round) {
    std::vector<std::unique_ptr<Child>> holders;
    uint32_t done = 0;
    for (uint32_t count = 0; count < 80; ++count) {
      holders.push_back(std::make_unique<Child>(place, [](uint32_t db, int pipe) {
        for (uint32_t i = 0; i < 10; ++i) {
          uint32_t ses = 0;
          if (rov_ses_open_ro(db, &ses) != ROV_OK || tlv_of(ses, 1) != pattern(1, 9)) return false;
        }
        say(pipe, 1);
        pause();
        return true;
      }));
      ASSERT_TRUE(holders.back()->next(&done)) << count;
    }
  }
  close();
  // A new lock file finds no room: who writes is told, who reads goes on with a copy.
  std::filesystem::remove(place + "/lock.mdb");
  std::ofstream(small + "/more") << std::string(4 << 20, 'x');
  uint32_t db = 0;
  EXPECT_STATUS(open_database(place, 0, kClient, &db), ROV_ERR_FULL);
  ASSERT_OK(open_database(place, ROV_DB_RDONLY, kClient, &db_));
  EXPECT_EQ(tlv_of(read(), 1), pattern(1, 9));
  close();
  EXPECT_EQ(umount(small.c_str()), 0);
}

TEST_F(PresenceTest, ASessionVerifiesTheCommitThatItReads) {
  const uint32_t ses = read();
  rov_verify_t report = {};
  ASSERT_OK(rov_ses_verify(ses, &report));
  EXPECT_EQ(report.nodes, 1U);
  EXPECT_STATUS(rov_ses_verify(ses, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_ses_verify(1, &report), ROV_ERR_HANDLE);
  store(2);
  EXPECT_STATUS(rov_ses_verify(ses, &report), ROV_ERR_BUSY);
  ASSERT_OK(rov_ses_close(ses));
  spoil();
  const uint32_t later = read();
  EXPECT_STATUS(rov_ses_verify(later, &report), ROV_ERR_FORMAT);
}

// Who only reads, but may lock, makes writers wait while it verifies; who may not tries again.
TEST_F(PresenceTest, AReaderVerifiesBesideAWriter) {
  close();
  open(ROV_DB_RDONLY);
  const Child writer(path(), [](uint32_t db, int pipe) {
    for (uint32_t round = 0;; ++round) {
      uint32_t ses = 0;
      if (rov_edit_begin(db, &ses) != ROV_OK) return false;
      for (uint32_t node = 1; node <= 20; ++node) {
        if (put_node(ses, node, pattern(round, 300)) != ROV_OK) return false;
      }
      if (rov_edit_commit(ses) != ROV_OK) return false;
      if (round == 0) say(pipe, 1);
      usleep(20000);
    }
  });
  uint32_t started = 0;
  ASSERT_TRUE(writer.next(&started));
  for (uint32_t round = 0; round < 5; ++round) {
    rov_verify_t report = {};
    ASSERT_OK(rov_edit_verify(db_, &report));
    EXPECT_EQ(report.nodes, 20U);
  }
}

}  // namespace
