// Handles that were freed, belong to something else, were made up, or come round again: each gives
// a status, whatever function it is handed to, and disturbs nobody.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <set>

#include "database/handle/handle.h"
#include "qim.h"
#include "tests/database/database_fixture.h"
#include "tests/database/random.h"
#include "tests/system/fault/handle_calls.h"
#include "tests/system/fault/scale.h"

namespace {

using fault::Effect;
using fault::handle_calls;
using fault::HandleCall;
using fault::Takes;
using rov::Kind;
using testing_rov::Random;

constexpr uint32_t kClient = 1;

struct Live {
  uint32_t handle;
  uint32_t owner;
  bool writes;
};

// What is open, and the numbers of what was.
class HandleTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(rov_lib_init(kClient, &lib_), 0U);
    ASSERT_EQ(rov_lib_init_locks(lib_, 0, 1, 0, 0), 0U);
    rov_parms_t parms;
    ASSERT_EQ(qim_db_init_parms_init(&parms, ROV_VERSION), 0U);
    path_ = directory_.file("db");
    parms.p.db_path = path_.c_str();
    ASSERT_EQ(qim_lib_init(0, 0, kClient, 0, &parms, 0, 0, lib_, &first_db_), 0U);
    databases_.push_back({first_db_, 0, false});
    setenv("ROV_DB", path_.c_str(), 1);
  }
  void TearDown() override {
    while (databases_.size() > 1) close_database(1);
    EXPECT_EQ(qim_lib_close(first_db_, 0), 0U);
  }

  // ---- What comes and goes ----------------------------------------------------------------------

  void open_database() {
    uint32_t db = 0;
    ASSERT_EQ(testing_rov::open_database(path_, 0, kClient, &db), 0U) << rov_err_message();
    databases_.push_back({db, 0, false});
  }

  void close_database(size_t at) {
    const uint32_t db = databases_[at].handle;
    ASSERT_EQ(rov_db_close(db, 0), 0U) << rov_err_message();
    freed_.push_back(db);
    databases_.erase(databases_.begin() + static_cast<ptrdiff_t>(at));
    for (size_t n = snapshots_.size(); n-- > 0;) {
      if (snapshots_[n].owner == db) forget(snapshots_, n);
    }
    for (size_t n = sessions_.size(); n-- > 0;) {
      if (sessions_[n].owner == db) forget(sessions_, n);
    }
  }

  // With what was opened through it.
  void forget(std::vector<Live>& list, size_t at) {
    const uint32_t handle = list[at].handle;
    freed_.push_back(handle);
    list.erase(list.begin() + static_cast<ptrdiff_t>(at));
    if (&list != &snapshots_) return;
    for (size_t n = sessions_.size(); n-- > 0;) {
      if (sessions_[n].owner == handle) forget(sessions_, n);
    }
  }

  void open_session() {
    const bool of_snapshot = !snapshots_.empty() && random_.below(3) == 0;
    const uint32_t owner = of_snapshot ? any(snapshots_).handle : any(databases_).handle;
    uint32_t ses = 0;
    ASSERT_EQ(rov_ses_open_ro(owner, &ses), 0U) << rov_err_message();
    sessions_.push_back({ses, owner, false});
  }

  void begin() {
    for (const Live& session : sessions_) {
      if (session.writes) return;
    }
    const uint32_t db = any(databases_).handle;
    uint32_t ses = 0;
    ASSERT_EQ(rov_edit_begin(db, &ses), 0U) << rov_err_message();
    sessions_.push_back({ses, db, true});
  }

  void close_session() {
    if (sessions_.empty()) return;
    const size_t at = random_.below(static_cast<uint32_t>(sessions_.size()));
    const Live session = sessions_[at];
    uint32_t (*const ends[])(uint32_t) = {rov_edit_abandon, rov_edit_commit, rov_ses_close};
    const auto end = session.writes ? ends[random_.below(3)] : rov_ses_close;
    const uint32_t status = end(session.handle);
    if (end != rov_edit_commit) {
      ASSERT_EQ(status, 0U) << rov_err_message();
    }
    forget(sessions_, at);
  }

  void open_snapshot() {
    const uint32_t db = any(databases_).handle;
    uint32_t snapshot = 0;
    ASSERT_EQ(rov_db_snapshot(db, "s", &snapshot), 0U) << rov_err_message();
    snapshots_.push_back({snapshot, db, false});
  }

  void close_snapshot() {
    if (snapshots_.empty()) return;
    ASSERT_EQ(rov_snapshot_close(snapshots_[0].handle), 0U) << rov_err_message();
    forget(snapshots_, 0);
  }

  void change_something() {
    switch (random_.below(16)) {
      case 0:
        if (databases_.size() < 4) open_database();
        return;
      case 1:
        if (databases_.size() > 1) {
          close_database(1 + random_.below(static_cast<uint32_t>(databases_.size()) - 1));
        }
        return;
      case 2:
        if (snapshots_.size() < 3) open_snapshot();
        return;
      case 3:
        return close_snapshot();
      case 4:
        return begin();
      default:
        if (sessions_.size() < 12 && random_.below(2) == 0) return open_session();
        return close_session();
    }
  }

  const Live& any(const std::vector<Live>& list) {
    return list[random_.below(static_cast<uint32_t>(list.size()))];
  }

  // ---- Handles that are wrong -------------------------------------------------------------------

  // Any handle that is open.
  uint32_t any_live() {
    const std::vector<Live>* const lists[] = {&databases_, &sessions_, &snapshots_};
    const std::vector<Live>& list = *lists[random_.below(3)];
    return list.empty() ? lib_ : any(list).handle;
  }

  uint32_t forged() {
    const uint32_t handle = any_live();
    constexpr uint32_t kGeneration = 1U << rov::kSlotBits;
    constexpr uint32_t kOdd[] = {0, rov::kGateHeld, 2, 0xffffffff, 0x80000000, 0x1fffffff};
    switch (random_.below(6)) {
      case 0:
        return random_();
      case 1:
        return handle ^ (1U << random_.below(32));
      case 2:
        return handle + kGeneration;
      case 3:
        return handle - kGeneration;
      case 4:
        return rov::as_kind(handle, static_cast<Kind>(random_.below(8)));
      default:
        return kOdd[random_.below(std::size(kOdd))];
    }
  }

  uint32_t wrong_handle() {
    switch (random_.below(3)) {
      case 0:
        return freed_.empty() ? 0 : freed_[random_.below(static_cast<uint32_t>(freed_.size()))];
      case 1:
        return any_live();
      default:
        return forged();
    }
  }

  static bool holds(const std::vector<Live>& list, uint32_t handle) {
    for (const Live& live : list) {
      if (live.handle == handle) return true;
    }
    return false;
  }

  // Is the handle good for such a call?
  bool fits(Takes takes, uint32_t handle) const {
    switch (takes) {
      case Takes::kLibrary:
        return handle == lib_;
      case Takes::kDatabase:
        return holds(databases_, handle) || holds(snapshots_, handle);
      case Takes::kSnapshot:
        return holds(snapshots_, handle);
      case Takes::kSession:
        return holds(sessions_, rov::as_kind(handle, Kind::kSession)) &&
               (rov::kind_of(handle) == Kind::kSession || rov::kind_of(handle) == Kind::kBase);
      case Takes::kNothing:
        return false;
    }
    return false;
  }

  // ---- The sweep --------------------------------------------------------------------------------

  // True when the call was made with a handle that is wrong for it.
  bool call_something() {
    const HandleCall& call =
        handle_calls()[random_.below(static_cast<uint32_t>(handle_calls().size()))];
    const uint32_t handle = wrong_handle();
    if (fits(call.takes, handle)) {
      if (call.effect == Effect::kPlain) call.call(handle);
      // Nobody waits here for a writer of the same thread.
      if (call.takes == Takes::kLibrary) rov_lib_init_locks(lib_, 0, 1, 0, 0);
      return false;
    }
    const uint32_t uses = static_cast<uint32_t>(qim_lib_get()->use_count);
    const uint32_t status = call.call(handle);
    if (call.takes != Takes::kNothing) {
      EXPECT_EQ(status, uint32_t{ROV_ERR_HANDLE}) << call.name << " of " << std::hex << handle;
      EXPECT_STRNE(rov_err_message(), "");
    }
    // It counts its calls, whatever the database says.
    if (static_cast<uint32_t>(qim_lib_get()->use_count) != uses) initialise_again();
    return true;
  }

  void initialise_again() {
    rov_parms_t parms;
    ASSERT_EQ(qim_db_init_parms_init(&parms, ROV_VERSION), 0U);
    parms.p.db_path = path_.c_str();
    uint32_t db = 0;
    ASSERT_EQ(qim_lib_init(0, 0, kClient, 0, &parms, 0, 0, lib_, &db), 0U) << rov_err_message();
    ASSERT_EQ(rov_db_close(db, 0), 0U);
    freed_.push_back(db);
  }

  void sweep(uint32_t operations) {
    uint32_t wrong = 0;
    for (uint32_t n = 0; n < operations && !HasFailure(); ++n) {
      if (random_.below(8) == 0) {
        change_something();
      } else {
        wrong += call_something() ? 1U : 0U;
      }
      // Nobody was disturbed.
      for (const Live& session : sessions_) {
        rov_node_parms_t parms;
        const uint32_t status = rov_node_parms_get(session.handle, testing_rov::id(999), &parms);
        ASSERT_EQ(status, uint32_t{ROV_ERR_NO_ITEM}) << rov_err_message();
        if (n % 64 != 0) break;
      }
      if (freed_.size() > 4000) freed_.erase(freed_.begin(), freed_.begin() + 2000);
    }
    EXPECT_GT(wrong, operations / 2) << "hardly a wrong handle was used";
  }

  testing_rov::TemporaryDirectory directory_;
  std::string path_;
  uint32_t lib_ = 0;
  uint32_t first_db_ = 0;
  std::vector<Live> databases_;
  std::vector<Live> sessions_;
  std::vector<Live> snapshots_;
  std::vector<uint32_t> freed_;
  const uint32_t seed_ = fault::seed_or(20);
  Random random_{seed_};
};

TEST_F(HandleTest, WrongOnesGiveAStatus) {
  const uint32_t operations = fault::scaled(80000);
  fault::announce("wrong handles", seed_, operations, "operations");
  sweep(operations);
}

// Every slot is about to begin again with its first generation.
TEST_F(HandleTest, GenerationsThatComeRoundGiveAStatus) {
  const uint32_t operations = fault::scaled(20000);
  fault::announce("wrapped generations", seed_, operations, "operations");
  sweep(2000);
  uint32_t near_the_end = 0;
  for (rov::Slot& slot : rov::g_slots) {
    slot.generation = rov::kGenerationMask - random_.below(2);
    ++near_the_end;
  }
  sweep(operations);
  uint32_t wrapped = 0;
  for (const rov::Slot& slot : rov::g_slots) {
    if (slot.generation < 1000) ++wrapped;
  }
  EXPECT_EQ(near_the_end, rov::kSlots);
  EXPECT_GT(wrapped, 50U) << "no generation came round";
}

// A child has copies of its parent's memory, and none of its handles.
TEST_F(HandleTest, AParentsGiveAStatusInAChild) {
  open_session();
  begin();
  open_snapshot();
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    for (const HandleCall& call : handle_calls()) {
      if (call.takes == Takes::kNothing) continue;
      for (const auto* list : {&databases_, &sessions_, &snapshots_}) {
        for (const Live& live : *list) {
          EXPECT_EQ(call.call(live.handle), uint32_t{ROV_ERR_HANDLE}) << call.name;
          if (qim_lib_get()->use_count == 0) ++qim_lib_get()->use_count;
        }
      }
      EXPECT_EQ(call.call(lib_), uint32_t{ROV_ERR_HANDLE}) << call.name;
      if (qim_lib_get()->use_count == 0) ++qim_lib_get()->use_count;
    }
    _exit(HasFailure() ? 1 : 0);
  }
  int result = -1;
  ASSERT_EQ(waitpid(child, &result, 0), child);
  EXPECT_EQ(result, 0);
}

// Names of the functions that a header declares with a handle in front.
void collect(const char* header, std::set<std::string>* names) {
  const char* source = getenv("QIM_SOURCE_DIR");
  ASSERT_NE(source, nullptr);
  std::ifstream file(std::string(source) + "/" + header);
  ASSERT_TRUE(file.is_open()) << header;
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  static const std::regex declaration(
      R"(\nuint32_t ((?:rov|qim)_\w+)\(uint32_t (?:lib|db|ses|snapshot)\b)");
  for (std::sregex_iterator at(text.begin(), text.end(), declaration), end; at != end; ++at) {
    names->insert((*at)[1].str());
  }
}

TEST(HandleCalls, AreAllThatTheHeadersDeclare) {
  std::set<std::string> declared;
  collect("database/include/rov.h", &declared);
  collect("database/include/rov_edit.h", &declared);
  collect("include/qim.h", &declared);
  collect("include/qim_db.h", &declared);
  EXPECT_GT(declared.size(), 100U);
  std::set<std::string> called;
  for (const HandleCall& call : handle_calls()) {
    EXPECT_TRUE(called.insert(call.name).second) << call.name << " is there twice";
  }
  EXPECT_EQ(called, declared);
}

}  // namespace
