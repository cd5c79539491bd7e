// What stands in the way of a database is said together with what to do about it.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <functional>

#include "database/store/engine.h"
#include "tests/database/database_fixture.h"

namespace {

using namespace testing_rov;

bool says(const std::string& words) {
  const bool found = std::string(rov_err_message()).find(words) != std::string::npos;
  EXPECT_TRUE(found) << "'" << words << "' is not in: " << rov_err_message();
  return found;
}

class MessagesTest : public DatabaseTest {
 protected:
  // Limits and identities of a process of its own.
  static void in_child(const std::function<bool()>& work) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) _exit(work() ? 0 : 1);
    int result = 0;
    ASSERT_EQ(waitpid(child, &result, 0), child);
    EXPECT_EQ(result, 0);
  }

  // Writes until that fails.
  static uint32_t fill(uint32_t db) {
    for (uint32_t node = 1; node < 200; ++node) {
      uint32_t ses = 0;
      uint32_t status = rov_edit_begin(db, &ses);
      if (status == ROV_OK) status = put_node(ses, node, pattern(node, 1 << 20));
      if (status == ROV_OK) status = rov_edit_commit(ses);
      if (status != ROV_OK) return status;
    }
    return ROV_OK;
  }
};

// Where the limit lies in a page, or in what is written at once, a write is cut short there.
TEST_F(MessagesTest, AFileThatMayNotGrow) {
  close();
  for (const rlim_t bytes : {3U << 20, (3U << 20) + 4096 * 5, (3U << 20) + 1000, (4U << 20) - 1}) {
    in_child([&] {
      uint32_t db = 0;
      signal(SIGXFSZ, SIG_IGN);
      const rlimit limit = {bytes, bytes};
      if (open_database(path(), 0, kClient, &db) != ROV_OK) return false;
      if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return false;
      return fill(db) == ROV_ERR_FULL &&
             says("raise the limit of file sizes, which is " + std::to_string(bytes) + " bytes");
    });
  }
}

TEST_F(MessagesTest, AFullDisk) {
  EXPECT_EQ(rov::engine_fail_at(EFBIG, "p", "commit"), uint32_t{ROV_ERR_FULL});
  EXPECT_TRUE(says("a file system that takes larger files"));
  EXPECT_EQ(rov::engine_fail_at(ENOSPC, "p", "commit"), uint32_t{ROV_ERR_FULL});
  EXPECT_TRUE(says("free space on the file system"));
  EXPECT_EQ(rov::engine_fail_at(EDQUOT, "p", "commit"), uint32_t{ROV_ERR_FULL});
  EXPECT_TRUE(says("within the quota"));
}

TEST_F(MessagesTest, AFullMap) {
  close();
  ASSERT_EQ(setenv("ROV_MAP_MAX", "16M", 1), 0);
  open();
  EXPECT_STATUS(fill(db_), ROV_ERR_FULL);
  EXPECT_TRUE(says("raise ROV_MAP_MAX"));
  unsetenv("ROV_MAP_MAX");
}

TEST_F(MessagesTest, NoReaderSlotLeft) {
  uint32_t status = ROV_OK;
  for (uint32_t i = 0; i < 1100 && status == ROV_OK; ++i) {
    uint32_t ses = 0;
    status = rov_ses_open_ro(db_, &ses);
  }
  EXPECT_EQ(status, uint32_t{ROV_ERR_BUSY});
  EXPECT_TRUE(says("close sessions that are no longer needed"));
}

TEST_F(MessagesTest, ReadOnlyMedia) {
  EXPECT_EQ(rov::engine_fail_at(EROFS, "p", "open the data file"), uint32_t{ROV_ERR_OPEN});
  EXPECT_TRUE(says("open the database with ROV_DB_RDONLY"));
}

TEST_F(MessagesTest, WrongPermissions) {
  if (getuid() != 0) GTEST_SKIP() << "only root can become somebody else";
  close();
  ASSERT_EQ(chmod(path().c_str(), 0700), 0);
  in_child([&] {
    uint32_t db = 0;
    constexpr uid_t kNobody = 65534;
    return setuid(kNobody) == 0 && open_database(path(), 0, kClient, &db) == ROV_ERR_OPEN &&
           says("check the permissions of the directory and its files");
  });
}

TEST_F(MessagesTest, ANewerFormat) {
  close();
  // The line that follows the text covers it.
  const std::string text = "node database\nformat 99\nword-bits 64\nbyte-order little\n";
  char check[32];
  snprintf(check, sizeof check, "check %08x\n",
           rov_crc32c(0, text.data(), static_cast<uint32_t>(text.size())));
  std::ofstream(path() + "/format") << text << check;
  uint32_t db = 0;
  EXPECT_STATUS(open_database(path(), 0, kClient, &db), ROV_ERR_FORMAT);
  EXPECT_TRUE(says("has format 99"));
  EXPECT_TRUE(says("dump it there and restore the dump here"));
}

}  // namespace
