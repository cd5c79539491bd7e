// Following changes: registration, messages, gaps, the descriptor, users.
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <ctime>

#include "database/graph/changes.h"
#include "database/store/wake.h"
#include "tests/database/database_fixture.h"

namespace {

using namespace testing_rov;

constexpr uint32_t kAll = 0xffffffff;

uint64_t joined(const uint32_t (&words)[2]) {
  return uint64_t{words[0]} << 32 | words[1];
}

class ChangesTest : public DatabaseTest {
 protected:
  int follow(uint32_t kinds = kAll, uint64_t revision = 0) {
    rov_ntf_t ntf = {};
    ntf.kinds = kinds;
    ntf.revision[0] = static_cast<uint32_t>(revision >> 32);
    ntf.revision[1] = static_cast<uint32_t>(revision);
    EXPECT_OK(rov_db_ntf(db_, &ntf));
    from_ = joined(ntf.revision);
    return ntf.fd;
  }
  // The next message; kind 0 when there is none.
  rov_change_t next() {
    rov_change_t message = {};
    uint32_t len = 99;
    const uint32_t status = rov_process_msg(db_, &message, sizeof message, &len);
    if (status != ROV_OK) {
      EXPECT_STATUS(status, ROV_ERR_NO_VALUE);
      EXPECT_EQ(len, 0U);
      return {};
    }
    EXPECT_EQ(len, sizeof message);
    EXPECT_EQ(rov_msg_is_rov(&message), 1U);
    return message;
  }
  static bool readable(int fd, int wait_ms = 0) {
    pollfd poll_fd = {fd, POLLIN, 0};
    return poll(&poll_fd, 1, wait_ms) == 1;
  }
  void put_one(uint32_t node) {
    const uint32_t ses = begin();
    ASSERT_OK(put_node(ses, node, {}));
    commit(ses);
  }

  uint64_t from_ = 0;
};

TEST_F(ChangesTest, ACommitTellsEveryChangeInItsOrder) {
  follow();
  uint32_t ses = begin();
  ASSERT_OK(put_node(ses, 1, pattern(1, 8), name("one")));
  ASSERT_OK(put_node(ses, 2, {}));
  ASSERT_OK(put_link(ses, 2, 0x2c1, 1));
  commit(ses);
  const rov_change_t first = next();
  EXPECT_EQ(first.kind, uint32_t{ROV_CHANGE_NODE_PUT});
  EXPECT_EQ(number(first.node), 1U);
  EXPECT_EQ(joined(first.revision), from_ + 1);
  EXPECT_EQ(first.dset_len, 21U);
  EXPECT_EQ(memcmp(first.dset, name("one").data(), 21), 0);
  const rov_change_t second = next();
  EXPECT_EQ(number(second.node), 2U);
  EXPECT_EQ(second.dset_len, 0U);
  const rov_change_t third = next();
  EXPECT_EQ(third.kind, uint32_t{ROV_CHANGE_LINK_PUT});
  EXPECT_EQ(number(third.node), 2U);
  EXPECT_EQ(third.field, 0x2c1U);
  EXPECT_EQ(next().kind, 0U);

  ses = begin();
  ASSERT_OK(rov_edit_link_del(ses, id(2), 0x2c1));
  ASSERT_OK(rov_edit_node_del(ses, id(1)));
  commit(ses);
  EXPECT_EQ(next().kind, uint32_t{ROV_CHANGE_LINK_DEL});
  const rov_change_t deleted = next();
  EXPECT_EQ(deleted.kind, uint32_t{ROV_CHANGE_NODE_DEL});
  EXPECT_EQ(deleted.dset_len, 21U);
  EXPECT_EQ(joined(deleted.revision), from_ + 2);
  EXPECT_EQ(next().kind, 0U);
}

TEST_F(ChangesTest, AbandonedAndFailedEditsTellNothing) {
  follow();
  const uint32_t ses = begin();
  ASSERT_OK(put_node(ses, 1, {}));
  ASSERT_OK(rov_edit_abandon(ses));
  EXPECT_EQ(next().kind, 0U);
  const uint32_t other = begin();
  EXPECT_STATUS(rov_edit_node_del(other, id(77)), ROV_ERR_NO_ITEM);
  commit(other);
  EXPECT_EQ(next().kind, 0U);
}

TEST_F(ChangesTest, OnlyTheKindsAskedForCome) {
  follow(1U << ROV_CHANGE_LINK_PUT);
  const uint32_t ses = begin();
  ASSERT_OK(put_node(ses, 1, {}));
  ASSERT_OK(put_link(ses, 1, 0x81, 2));
  commit(ses);
  EXPECT_EQ(next().kind, uint32_t{ROV_CHANGE_LINK_PUT});
  EXPECT_EQ(next().kind, 0U);
}

TEST_F(ChangesTest, AClientGoesOnFromARevisionThatItKnows) {
  follow();
  const uint64_t start = from_;
  put_one(1);
  put_one(2);
  reopen();
  follow(kAll, start + 1);
  EXPECT_EQ(number(next().node), 2U);
  EXPECT_EQ(next().kind, 0U);
  rov_ntf_t future = {.kinds = kAll, .fd = 0, .revision = {0, 1000000}};
  EXPECT_STATUS(rov_db_ntf(db_, &future), ROV_ERR_INVALID);
}

TEST_F(ChangesTest, TheDescriptorIsReadableWhileThereMayBeMessages) {
  const int fd = follow();
  EXPECT_FALSE(readable(fd));
  put_one(1);
  put_one(2);
  EXPECT_TRUE(readable(fd));
  EXPECT_EQ(number(next().node), 1U);
  EXPECT_TRUE(readable(fd));
  EXPECT_EQ(number(next().node), 2U);
  EXPECT_EQ(next().kind, 0U);
  EXPECT_FALSE(readable(fd));
  put_one(3);
  EXPECT_TRUE(readable(fd));
}

TEST_F(ChangesTest, AnotherProcessWakesTheFollower) {
  const int fd = follow();
  const pid_t child = fork();
  if (child == 0) {
    uint32_t db = 0;
    uint32_t ses = 0;
    const bool ok = open_database(path(), 0, 9, &db) == ROV_OK &&
                    rov_db_usr_group(db, 4) == ROV_OK && rov_edit_begin(db, &ses) == ROV_OK &&
                    put_node(ses, 5, {}) == ROV_OK && rov_edit_commit(ses) == ROV_OK;
    _exit(ok ? 0 : 1);
  }
  EXPECT_TRUE(readable(fd, 20000));
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  const rov_change_t change = next();
  EXPECT_EQ(number(change.node), 5U);
  rov_usr_t user = {};
  ASSERT_OK(rov_usr_id_info(db_, joined(change.user), &user));
  EXPECT_EQ(user.pid, static_cast<uint32_t>(child));
  EXPECT_EQ(user.client, 9U);
  EXPECT_EQ(user.group, 4U);
  EXPECT_EQ(user.uid, getuid());
  EXPECT_NEAR(static_cast<double>(joined(user.time)), static_cast<double>(time(nullptr)), 60);
  EXPECT_STATUS(rov_usr_id_info(db_, 1234, &user), ROV_ERR_NO_ITEM);
}

TEST_F(ChangesTest, ACommitTooLargeForTheLogIsAGap) {
  follow();
  const uint32_t ses = begin();
  for (uint32_t node = 1; node <= rov::kMaxChangesPerCommit + 1; ++node) {
    ASSERT_OK(put_node(ses, node, {}));
  }
  commit(ses);
  const rov_change_t gap = next();
  EXPECT_EQ(gap.kind, uint32_t{ROV_CHANGE_GAP});
  EXPECT_EQ(joined(gap.revision), from_ + 1);
  EXPECT_EQ(next().kind, 0U);
  put_one(1);
  EXPECT_EQ(next().kind, uint32_t{ROV_CHANGE_NODE_PUT});
}

TEST_F(ChangesTest, AClientThatIsTooSlowGetsOneGapAndGoesOn) {
  follow(1U << ROV_CHANGE_NODE_DEL);
  constexpr uint32_t kCommits = rov::kMaxChanges / rov::kMaxChangesPerCommit + 1;
  for (uint32_t i = 0; i < kCommits; ++i) {
    const uint32_t ses = begin();
    for (uint32_t node = 1; node <= rov::kMaxChangesPerCommit; ++node) {
      ASSERT_OK(put_node(ses, node, {}));
    }
    commit(ses);
  }
  const rov_change_t gap = next();
  EXPECT_EQ(gap.kind, uint32_t{ROV_CHANGE_GAP});
  EXPECT_EQ(joined(gap.revision), from_ + kCommits);
  EXPECT_EQ(next().kind, 0U);
  const uint32_t ses = begin();
  ASSERT_OK(rov_edit_node_del(ses, id(1)));
  commit(ses);
  EXPECT_EQ(next().kind, uint32_t{ROV_CHANGE_NODE_DEL});
}

TEST_F(ChangesTest, PostsReachTheClientsOtherProcessesOnly) {
  uint32_t other = 0;
  ASSERT_OK(open_database(path(), 0, kClient + 1, &other));
  rov_ntf_t ntf = {.kinds = kAll, .fd = 0, .revision = {0, 0}};
  ASSERT_OK(rov_db_ntf(other, &ntf));
  const int fd = follow();
  const pid_t child = fork();
  if (child == 0) {
    uint32_t db = 0;
    const bool ok = open_database(path(), 0, kClient, &db) == ROV_OK &&
                    rov_db_priv_post(db, 31, 2, "hi") == ROV_OK;
    _exit(ok ? 0 : 1);
  }
  EXPECT_TRUE(readable(fd, 20000));
  int status = -1;
  waitpid(child, &status, 0);
  ASSERT_EQ(status, 0);
  const rov_change_t post = next();
  EXPECT_EQ(post.kind, uint32_t{ROV_CHANGE_PRIV_POST});
  EXPECT_EQ(post.field, 31U);
  char text[2];
  rov_priv_t priv = {31, sizeof text, text};
  ASSERT_OK(rov_db_priv_read(db_, &priv));
  EXPECT_EQ(std::string(text, 2), "hi");
  ASSERT_OK(rov_db_priv_post(db_, 32, 0, nullptr));
  EXPECT_EQ(next().kind, 0U);  // its own
  rov_change_t message;
  uint32_t len = 0;
  EXPECT_STATUS(rov_process_msg(other, &message, sizeof message, &len), ROV_ERR_NO_VALUE);
  EXPECT_OK(rov_db_close(other, 0));
}

// A process that is killed when it has committed, and before it could tell of that.
TEST_F(ChangesTest, TheDeathOfACommittingProcessWakes) {
  const int fd = follow();
  const pid_t child = fork();
  if (child == 0) {
    const rov::Waking waking(::open(path().c_str(), O_RDONLY | O_DIRECTORY));
    raise(SIGKILL);
    _exit(1);
  }
  waitpid(child, nullptr, 0);
  EXPECT_TRUE(readable(fd));
  EXPECT_EQ(next().kind, 0U);
  EXPECT_FALSE(readable(fd)) << "there was nothing to tell";
}

TEST_F(ChangesTest, AnotherRegistrationWakesNobody) {
  const int fd = follow();
  uint32_t other = 0;
  ASSERT_OK(open_database(path(), 0, kClient + 1, &other));
  rov_ntf_t ntf = {.kinds = kAll, .fd = 0, .revision = {0, 0}};
  ASSERT_OK(rov_db_ntf(other, &ntf));
  EXPECT_FALSE(readable(fd));
  EXPECT_OK(rov_db_close(other, 0));
}

TEST_F(ChangesTest, ARegistrationEnds) {
  follow();
  rov_ntf_t end = {};
  ASSERT_OK(rov_db_ntf(db_, &end));
  EXPECT_EQ(end.fd, -1);
  rov_change_t message;
  uint32_t len = 0;
  EXPECT_STATUS(rov_process_msg(db_, &message, sizeof message, &len), ROV_ERR_INVALID);
}

TEST_F(ChangesTest, BadArgumentsAreRefused) {
  rov_change_t message = {};
  uint32_t len = 0;
  follow();
  EXPECT_STATUS(rov_process_msg(db_, &message, sizeof message - 1, &len), ROV_ERR_LENGTH);
  EXPECT_STATUS(rov_process_msg(db_, nullptr, 100, &len), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_process_msg(db_, &message, sizeof message, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_process_msg(0x1234, &message, sizeof message, &len), ROV_ERR_HANDLE);
  EXPECT_STATUS(rov_db_ntf(db_, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_db_usr_group(0x1234, 1), ROV_ERR_HANDLE);
  EXPECT_EQ(rov_msg_is_rov(nullptr), 0U);
  EXPECT_EQ(rov_msg_is_rov(&message), 0U);
}

}  // namespace
