// Processes that are killed at any moment: what they had acknowledged stays, nothing is there by
// half, nobody waits for them, and what they held is free.
#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>

#include "tests/database/child.h"
#include "tests/database/database_fixture.h"
#include "tests/database/random.h"
#include "tests/database/whole_commits.h"
#include "tests/system/fault/scale.h"
#include "tools/cli.h"

namespace {

using namespace testing_rov;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kImported = 23;  // nodes of the file that is imported
constexpr uint32_t kSlots = 1000;   // of the database's 1,022 for readers

bool write_on(uint32_t db, int pipe, uint32_t value) {
  for (;;) {
    if (!write_all(db, ++value)) return false;
    say(pipe, value);
  }
}

bool read_on(uint32_t db) {
  uint32_t last = 0;
  for (;;) {
    uint32_t sessions[8];
    for (uint32_t& ses : sessions) {
      uint32_t value = 0;
      if (rov_ses_open_ro(db, &ses) != ROV_OK || !is_whole(ses, &value) || value < last) {
        return false;
      }
      last = value;
    }
    for (const uint32_t ses : sessions) {
      if (rov_ses_close(ses) != ROV_OK) return false;
    }
  }
}

bool watch_on(uint32_t db) {
  rov_ntf_t registration = {};
  registration.kinds = 0xffffffff;
  if (rov_db_ntf(db, &registration) != ROV_OK) return false;
  uint64_t last = 0;
  for (;;) {
    rov_change_t change;
    uint32_t size = 0;
    const uint32_t status = rov_process_msg(db, &change, sizeof change, &size);
    pollfd waiting = {registration.fd, POLLIN, 0};
    if (status == ROV_ERR_NO_VALUE) {
      poll(&waiting, 1, -1);
      continue;
    }
    const uint64_t revision = uint64_t{change.revision[0]} << 32 | change.revision[1];
    if (status != ROV_OK || revision < last) return false;
    last = revision;
  }
}

// Snapshots that come and go.
bool copy_on(uint32_t db, int pipe) {
  for (;;) {
    for (int times = 0; times < 10; ++times) {
      uint32_t kept = 0;
      if (rov_db_snapshot(db, "kept", &kept) != ROV_OK) return false;
      if (rov_snapshot_close(kept) != ROV_OK) return false;
      say(pipe, 0);
    }
    if (rov_db_uri_rm(db, "kept") != ROV_OK) return false;
  }
}

bool import_on(const std::string& path, int pipe) {
  const char* source = getenv("QIM_SOURCE_DIR");
  const std::string file = std::string(source) + "/examples/edge-all-types.json";
  std::ifstream input(file);
  std::string text((std::istreambuf_iterator<char>(input)), {});
  const size_t rate = text.find("64000");
  if (rate == text.npos || freopen("/dev/null", "w", stdout) == nullptr) return false;
  // What is there already would not be committed.
  const std::string other = path + ".other.json";
  std::ofstream(other) << text.replace(rate, 5, "64001");
  for (;;) {
    for (const std::string& each : {file, other}) {
      const char* const words[] = {"qimctl", "--db",      path.c_str(),
                                   "import", "--replace", each.c_str()};
      say(pipe, 0);
      if (qimctl::run(6, words) != qimctl::exit_ok) return false;
    }
  }
}

class KillTest : public DatabaseTest {
 protected:
  void SetUp() override {
    if (fault::emulated()) {
      GTEST_SKIP() << "an emulator does not tell the system which locks outlive their holder";
    }
    DatabaseTest::SetUp();
    uint32_t lib = 0;
    ASSERT_OK(rov_lib_init(kClient, &lib));
    ASSERT_OK(rov_lib_init_locks(lib, pace::patience_ms(), 1, 0, 0));
    ASSERT_TRUE(write_all(db_, 0));
  }

  // ---- What is killed ---------------------------------------------------------------------------

  std::unique_ptr<Child> writer() {
    const uint32_t from = acknowledged_;
    return std::make_unique<Child>(
        path(), [from](uint32_t db, int pipe) { return write_on(db, pipe, from); });
  }
  std::unique_ptr<Child> changer() {
    switch (random_.below(8)) {
      case 0:
      case 1:
        longest_life_ = 10000;
        return std::make_unique<Child>(
            path(), [this](uint32_t, int pipe) { return import_on(path(), pipe); });
      case 2:
        return std::make_unique<Child>(path(),
                                       [](uint32_t db, int pipe) { return copy_on(db, pipe); });
      case 3:
        // Its database is not there yet.
        return std::make_unique<Child>(new_path_, [](uint32_t db, int pipe) {
          for (;;) {
            if (!write_all(db, 5)) return false;
            say(pipe, 0);
          }
        });
      default:
        return writer();
    }
  }
  std::unique_ptr<Child> onlooker() {
    if (random_.below(8) == 0) {
      return std::make_unique<Child>(path(), [](uint32_t db, int) { return watch_on(db); });
    }
    return std::make_unique<Child>(path(), [](uint32_t db, int) { return read_on(db); });
  }

  // One or two processes at work for a moment.
  void kill_some() {
    longest_life_ = 2000;
    const auto one = changer();
    std::unique_ptr<Child> other;
    if (random_.below(2) == 0) other = onlooker();
    // At its beginning, or after it came to something.
    uint32_t value = 0;
    for (uint32_t wanted = random_.below(3); wanted > 0 && one->next(&value); --wanted) {
      if (value != 0) acknowledged_ = value;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(random_.below(longest_life_)));
    if (random_.below(2) == 0) end(other.get());
    end(one.get());
    end(other.get());
    while (one->next(&value)) {
      if (value != 0) acknowledged_ = value;
    }
  }

  void end(Child* child) {
    if (child == nullptr || child->ended()) return;
    const int result = child->kill();
    ++killed_;
    EXPECT_TRUE(WIFSIGNALED(result) && WTERMSIG(result) == SIGKILL)
        << "it ended by itself, with " << result << ": something that it saw was wrong";
  }

  // ---- What must hold then ----------------------------------------------------------------------

  void check_contents() {
    const uint32_t ses = read();
    uint32_t value = 0;
    ASSERT_TRUE(is_whole(ses, &value)) << rov_err_message();
    ASSERT_GE(value, acknowledged_) << "what was acknowledged is lost";
    acknowledged_ = value;
    ASSERT_EQ(referrers_of(ses, 1 + value % kWholeNodes).size(), size_t{kWholeNodes});
    uint32_t others = 0;
    rov_node_parms_t parms = {};
    parms.id = id(kWholeNodes);
    while (rov_node_next(ses, parms.id, &parms) == ROV_OK) ++others;
    ASSERT_TRUE(others == 0 || others == kImported) << others << " nodes of an import";
    if (others != 0) ++imports_;
    ASSERT_OK(rov_ses_close(ses));
  }

  // The next writer; it clears away what was imported now and then.
  void write_next() {
    uint32_t ses = 0;
    ASSERT_OK(rov_edit_begin(db_, &ses));
    ASSERT_TRUE(put_all(ses, acknowledged_ + 1));
    rov_node_parms_t parms = {};
    parms.id = id(kWholeNodes);
    while (random_.below(2) == 0 && rov_node_next(ses, id(kWholeNodes), &parms) == ROV_OK) {
      do {
        ASSERT_OK(rov_edit_node_del(ses, parms.id));
      } while (rov_node_next(ses, id(kWholeNodes), &parms) == ROV_OK);
    }
    commit(ses);
    ++acknowledged_;
  }

  void check_snapshots() {
    char name[ROV_SNAPSHOT_PATH];
    if (rov_snapshot_next(db_, nullptr, sizeof name, name) != ROV_OK) return;
    uint32_t kept = 0;
    ASSERT_OK(rov_db_snapshot(db_, name, &kept));
    uint32_t ses = 0;
    ASSERT_OK(rov_ses_open_ro(kept, &ses));
    uint32_t value = 0;
    EXPECT_TRUE(is_whole(ses, &value));
    ASSERT_OK(rov_snapshot_close(kept));
    ASSERT_OK(rov_db_uri_rm(db_, name));
    ++snapshots_;
  }

  void check_new_database() {
    if (!std::filesystem::exists(new_path_)) return;
    uint32_t db = 0;
    ASSERT_OK(open_database(new_path_, 0, kClient, &db));
    uint32_t ses = 0;
    ASSERT_OK(rov_ses_open_ro(db, &ses));
    uint32_t value = 0;
    rov_node_parms_t parms;
    const bool empty = rov_node_next(ses, rov_node_id_t{}, &parms) == ROV_ERR_NO_ITEM;
    EXPECT_TRUE(empty || is_whole(ses, &value));
    ASSERT_OK(rov_db_close(db, 0));
    std::filesystem::remove_all(new_path_);
    ++made_;
  }

  void check_slots() {
    std::vector<uint32_t> sessions(kSlots);
    for (uint32_t& ses : sessions) ses = read();
    for (const uint32_t ses : sessions) ASSERT_OK(rov_ses_close(ses));
  }

  Random random_{fault::seed_or(31)};
  std::string new_path_ = directory_.file("new");
  uint32_t acknowledged_ = 0;
  uint32_t longest_life_ = 0;  // of a process that is at work, in microseconds
  uint32_t killed_ = 0;
  uint32_t imports_ = 0;
  uint32_t snapshots_ = 0;
  uint32_t made_ = 0;
};

TEST_F(KillTest, NothingIsTornOrLostAndNobodyWaits) {
  const uint32_t all = sizeof(void*) == 8 ? 2000 : 500;
  const uint32_t rounds = fault::scaled_processes(all, all);
  fault::announce("kill -9", fault::seed_or(31), rounds, "rounds");
  auto longest = Clock::duration::zero();
  for (uint32_t round = 0; round < rounds && !HasFailure(); ++round) {
    SCOPED_TRACE(round);
    kill_some();
    const auto before = Clock::now();
    if (random_.below(8) == 0) reopen();
    check_contents();
    write_next();
    const auto took = Clock::now() - before;
    longest = std::max(longest, took);
    EXPECT_LT(took, pace::at_once());
    check_snapshots();
    check_new_database();
    if (round % 500 == 0) check_slots();
  }
  check_slots();
  printf(
      "%u processes killed, up to value %u, %u imports, %u snapshots and %u new databases found, "
      "longest wait %lld us\n",
      killed_, acknowledged_, imports_, snapshots_, made_,
      static_cast<long long>(
          std::chrono::duration_cast<std::chrono::microseconds>(longest).count()));
  EXPECT_GE(killed_, rounds);
  EXPECT_GT(acknowledged_, rounds) << "no writer came to anything";
  EXPECT_GT(imports_, 0U);
  EXPECT_GT(snapshots_, 0U);
  EXPECT_GT(made_, 0U);
}

}  // namespace
