// A storage engine that fails: each of its calls in turn ends with an error that it can have, and
// each record that it finds is damaged in turn. What the database does then fails with that, loses
// nothing, and succeeds once it is opened anew.
#include <gtest/gtest.h>
#include <lmdb.h>

#include <filesystem>
#include <set>

#include "tests/database/database_fixture.h"
#include "tests/system/fault/contents.h"
#include "tests/system/fault/edits.h"
#include "tests/system/fault/engine_faults.h"
#include "tests/system/fault/platform_tour.h"
#include "tests/system/fault/scale.h"

namespace {

using namespace failing_engine;
using fault::Sealed;
using namespace testing_rov;
using fault::PlatformTour;

class FailingEngine : public testing::Test {
 protected:
  // So small that it is reached.
  static void SetUpTestSuite() { setenv("ROV_MAP_MAX", "64M", 1); }

  // A step of the tour with a fault. Afterwards it must succeed.
  void step_with(PlatformTour& tour, const PlatformTour::Step& step, const Plan& plan) {
    uint32_t status = ROV_OK;
    const Counts counts = fault::count_calls(&plan, [&] { status = make(tour, step); });
    const std::string message = rov_err_message();
    injected_ += counts.injected;
    faulty_.insert(plan.call);
    if (status != ROV_OK) {
      EXPECT_TRUE(fault::is_told(status, message, plan.error))
          << rov_status_name(status) << ": " << message;
    }
    tour.close();
    ASSERT_TRUE(tour.verify()) << rov_err_message();
    ASSERT_OK(make(tour, step));
  }

  static uint32_t make(PlatformTour& tour, const PlatformTour::Step& step) {
    const uint32_t status = tour.open();
    return status != ROV_OK ? status : (tour.*step.run)();
  }

  void sweep(PlatformTour& tour, const PlatformTour::Step& step, uint32_t most) {
    SCOPED_TRACE(step.name);
    // What was read from them would be written back.
    const std::set<std::string> reading = {"read", "publish", "show"};
    const Sealed sealed = reading.contains(step.name) ? Sealed::kToo : Sealed::kNone;
    const Counts clean = fault::count_calls(nullptr, [&] { ASSERT_OK(make(tour, step)); });
    fault::each_point(clean, most, sealed, [&](const Plan& plan) { step_with(tour, step, plan); });
  }

  TemporaryDirectory directory_;
  uint32_t injected_ = 0;
  std::set<uint32_t> faulty_;  // calls that failed
};

TEST_F(FailingEngine, FailsWhatIsDoneAndNothingElse) {
  PlatformTour tour(directory_.file("db"));
  for (const PlatformTour::Step& step : PlatformTour::steps()) {
    tour.close();
    sweep(tour, step, fault::scaled(5, 1));
  }
  sweep(tour, PlatformTour::watching().back(), 2);
  fault::announce("the engine", 0, injected_, "faults");
  EXPECT_GE(faulty_.size(), 12U);
}

TEST_F(FailingEngine, FailsTheMakingOfADatabase) {
  const std::string path = directory_.file("db");
  const PlatformTour::Step& open = PlatformTour::steps().front();
  Counts clean;
  {
    PlatformTour tour(path);
    clean = fault::count_calls(nullptr, [&] { ASSERT_OK(tour.open()); });
  }
  fault::each_point(clean, 100, Sealed::kNone, [&](const Plan& plan) {
    if (plan.error == MDB_MAP_RESIZED) return;  // nobody else knows of the new file
    std::filesystem::remove_all(path);
    PlatformTour tour(path);
    step_with(tour, open, plan);
  });
  fault::announce("the engine of a new database", 0, injected_, "faults");
  EXPECT_GT(injected_, 20U);
}

TEST_F(FailingEngine, FailsCompacting) {
  const std::string path = directory_.file("db");
  PlatformTour tour(path);
  ASSERT_OK(make(tour, PlatformTour::steps()[1]));
  tour.close();
  const auto compact = [&] { return rov_edit_compact(path.c_str(), nullptr, nullptr); };
  const Counts clean = fault::count_calls(nullptr, [&] { ASSERT_OK(compact()); });
  fault::each_point(clean, 100, Sealed::kNone, [&](const Plan& plan) {
    const Counts counts = fault::count_calls(&plan, [&] {
      const uint32_t status = compact();
      EXPECT_NE(status, uint32_t{ROV_OK});
      EXPECT_TRUE(fault::is_told(status, rov_err_message(), plan.error)) << rov_err_message();
    });
    injected_ += counts.injected;
    ASSERT_TRUE(tour.verify()) << rov_err_message();
    tour.close();
    ASSERT_OK(compact());
  });
  EXPECT_GT(injected_, 2U);
}

// A write session in which an edit failed can't be committed, and nothing of it is there.
TEST_F(FailingEngine, FailsEditsAndLosesTheirSession) {
  uint32_t db = 0;
  ASSERT_OK(open_database(directory_.file("db"), 0, 1, &db));
  ASSERT_OK(fault::prepare_for_edits(db));
  const fault::Contents before = fault::read_contents(db);
  ASSERT_TRUE(before.good) << before.message;
  for (const fault::Edit& edit : fault::all_edits()) {
    SCOPED_TRACE(edit.name);
    uint32_t ses = 0;
    ASSERT_OK(rov_edit_begin(db, &ses));
    const Counts clean = fault::count_calls(nullptr, [&] { ASSERT_OK(edit.make(ses)); });
    ASSERT_OK(rov_edit_abandon(ses));
    fault::each_point(clean, fault::scaled(20, 2), Sealed::kToo, [&](const Plan& plan) {
      ASSERT_OK(rov_edit_begin(db, &ses));
      uint32_t status = ROV_OK;
      injected_ += fault::count_calls(&plan, [&] { status = edit.make(ses); }).injected;
      if (status != ROV_OK) {
        EXPECT_TRUE(fault::is_told(status, rov_err_message(), plan.error)) << rov_err_message();
      }
      const bool lost = status == ROV_ERR_CORRUPT || status == ROV_ERR_NO_MEM;
      if (lost) {
        EXPECT_STATUS(rov_edit_commit(ses), status);
      } else {
        EXPECT_OK(rov_edit_abandon(ses));
      }
    });
  }
  fault::announce("the engine under edits", 0, injected_, "faults");
  EXPECT_GT(injected_, 100U);
  EXPECT_EQ(fault::read_contents(db).digest, before.digest);
  EXPECT_OK(rov_db_close(db, 0));
}

}  // namespace
