// Processes that have one number, each in a namespace of its own, and users that are told apart though
// their numbers are one.
#include <fcntl.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "database/base/process.h"
#include "database/graph/changes.h"
#include "tests/database/child.h"
#include "tests/database/database_fixture.h"

namespace {

using namespace testing_rov;

// The first process of a namespace of its own, number 1 there, at work on a database. It says a word
// through a pipe, and goes on when it is told to.
class FirstProcess {
 public:
  template <class Work>
  explicit FirstProcess(Work work) {
    if (pipe2(said_, O_CLOEXEC) != 0 || pipe2(told_, O_CLOEXEC) != 0) abort();
    starter_ = fork();
    if (starter_ != 0) {
      ::close(said_[1]);
      ::close(told_[0]);
      return;
    }
    if (unshare(CLONE_NEWPID) != 0) _exit(77);
    const pid_t first = fork();
    if (first == 0) {
      ::close(told_[1]);
      _exit(work(*this) ? 0 : 1);
    }
    int status = -1;
    ::close(told_[1]);
    waitpid(first, &status, 0);
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 2);
  }
  ~FirstProcess() {
    ::close(said_[0]);
    if (told_[1] >= 0) ::close(told_[1]);
    if (starter_ > 0) waitpid(starter_, nullptr, 0);
  }
  FirstProcess(const FirstProcess&) = delete;
  FirstProcess& operator=(const FirstProcess&) = delete;

  // In the process.
  void say_and_wait() const {
    say(said_[1], 1);
    char word = 0;
    if (::read(told_[0], &word, 1) < 0) _exit(3);
  }
  // Outside. False when it has ended.
  bool has_said() const {
    uint32_t word = 0;
    return ::read(said_[0], &word, sizeof word) == sizeof word;
  }
  void tell() const { ASSERT_EQ(::write(told_[1], "x", 1), 1); }
  int end() {
    int status = -1;
    waitpid(starter_, &status, 0);
    starter_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  int said_[2] = {-1, -1};
  int told_[2] = {-1, -1};
  pid_t starter_ = -1;
};

uint64_t joined(const uint32_t (&words)[2]) {
  return uint64_t{words[0]} << 32 | words[1];
}

bool put_as(uint32_t db, uint32_t node, uint32_t group) {
  uint32_t ses = 0;
  return rov_db_usr_group(db, group) == ROV_OK && rov_edit_begin(db, &ses) == ROV_OK &&
         put_node(ses, node, pattern(node, 500)) == ROV_OK && rov_edit_commit(ses) == ROV_OK;
}

class NamespacesTest : public DatabaseTest {
 protected:
  static bool can_try() {
    const char* emulator = getenv("QIM_EMULATOR");
    if (emulator != nullptr && *emulator != '\0') return false;
    FirstProcess first([](const FirstProcess&) { return getpid() == 1; });
    return first.end() == 0;
  }
  rov_change_t next() const {
    rov_change_t change = {};
    uint32_t len = 0;
    EXPECT_OK(rov_process_msg(db_, &change, sizeof change, &len));
    return change;
  }
  rov_usr_t who(const rov_change_t& change) const {
    rov_usr_t user = {};
    EXPECT_OK(rov_usr_id_info(db_, joined(change.user), &user));
    return user;
  }
};

TEST_F(NamespacesTest, TwoProcessesOfOneNumberReadAndWrite) {
  if (!can_try()) GTEST_SKIP() << "this process may not make namespaces";
  rov_ntf_t ntf = {.kinds = 0xff, .fd = 0, .revision = {0, 0}};
  ASSERT_OK(rov_db_ntf(db_, &ntf));
  const std::string place = path();
  const auto work = [&place](uint32_t node) {
    return [&place, node](const FirstProcess& self) {
      uint32_t db = 0;
      uint32_t ses = 0;
      if (open_database(place, 0, 7, &db) != ROV_OK || !put_as(db, node, node)) return false;
      if (rov_ses_open_ro(db, &ses) != ROV_OK) return false;
      self.say_and_wait();
      if (tlv_of(ses, node) != pattern(node, 500)) return false;
      return rov_ses_close(ses) == ROV_OK && rov_db_close(db, 0) == ROV_OK;
    };
  };
  FirstProcess one(work(11));
  ASSERT_TRUE(one.has_said());
  FirstProcess other(work(12));
  ASSERT_TRUE(other.has_said());
  const rov_change_t first = next();
  const rov_change_t second = next();
  EXPECT_EQ(number(first.node), 11U);
  EXPECT_EQ(number(second.node), 12U);
  EXPECT_NE(joined(first.user), joined(second.user));
  EXPECT_EQ(who(first).pid, 1U);
  EXPECT_EQ(who(second).pid, 1U);
  EXPECT_EQ(who(first).group, 11U) << "what the first one did is not said of the second";
  EXPECT_EQ(who(second).group, 12U);
  // The end of the second one takes nothing from the first.
  other.tell();
  EXPECT_EQ(other.end(), 0);
  for (uint32_t round = 0; round < 20; ++round) {
    const uint32_t ses = begin();
    for (const uint32_t node : {11U, 12U}) ASSERT_OK(put_node(ses, node, pattern(round, 500)));
    commit(ses);
  }
  one.tell();
  EXPECT_EQ(one.end(), 0);
}

TEST_F(NamespacesTest, APostOfAProcessOfTheSameNumberArrives) {
  if (!can_try()) GTEST_SKIP() << "this process may not make namespaces";
  const std::string place = path();
  FirstProcess follower([&place](const FirstProcess& self) {
    uint32_t db = 0;
    rov_ntf_t ntf = {.kinds = 0xffffffff, .fd = 0, .revision = {0, 0}};
    if (open_database(place, 0, 7, &db) != ROV_OK || rov_db_ntf(db, &ntf) != ROV_OK) return false;
    if (rov_db_priv_post(db, 4, 3, "own") != ROV_OK) return false;
    self.say_and_wait();
    rov_change_t change = {};
    uint32_t len = 0;
    if (rov_process_msg(db, &change, sizeof change, &len) != ROV_OK) return false;
    return change.kind == ROV_CHANGE_PRIV_POST && change.field == 5 &&
           rov_process_msg(db, &change, sizeof change, &len) == ROV_ERR_NO_VALUE;
  });
  ASSERT_TRUE(follower.has_said());
  FirstProcess poster([&place](const FirstProcess&) {
    uint32_t db = 0;
    return open_database(place, 0, 7, &db) == ROV_OK &&
           rov_db_priv_post(db, 5, 5, "other") == ROV_OK;
  });
  EXPECT_EQ(poster.end(), 0);
  follower.tell();
  EXPECT_EQ(follower.end(), 0);
}

TEST_F(NamespacesTest, AProcessHasOneStamp) {
  EXPECT_EQ(rov::own_stamp(), rov::own_stamp());
  EXPECT_NE(rov::own_stamp().start, 0U);
}

// Users go with the last of their changes that is kept.
TEST_F(NamespacesTest, UsersArePrunedWithTheirChanges) {
  rov_ntf_t ntf = {.kinds = 0xff, .fd = 0, .revision = {0, 0}};
  ASSERT_OK(rov_db_ntf(db_, &ntf));
  const pid_t child = fork();
  if (child == 0) {
    uint32_t db = 0;
    _exit(open_database(path(), 0, 9, &db) == ROV_OK && put_as(db, 1, 1) ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  ASSERT_EQ(status, 0);
  const uint64_t user = joined(next().user);
  rov_usr_t info = {};
  ASSERT_OK(rov_usr_id_info(db_, user, &info));
  for (uint32_t made = 0; made < rov::kMaxChanges; made += rov::kMaxChangesPerCommit) {
    ASSERT_OK(rov_usr_id_info(db_, user, &info)) << made;
    const uint32_t ses = begin();
    for (uint32_t n = 0; n < rov::kMaxChangesPerCommit; ++n) ASSERT_OK(put_node(ses, 2, {}));
    commit(ses);
  }
  EXPECT_STATUS(rov_usr_id_info(db_, user, &info), ROV_ERR_NO_ITEM);
}

TEST_F(NamespacesTest, AGrantToAUserThatIsNotKnownFindsNoProcess) {
  EXPECT_STATUS(rov_db_ses_lock_grant(db_, uint64_t{7} << 32 | 0x80000001), ROV_ERR_NO_ITEM);
}

}  // namespace
