// A system that refuses what the database asks of it: each call of each kind in turn, alone, and
// with all of its kind that follow.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/database/database_fixture.h"
#include "tests/system/fault/call_faults.h"
#include "tests/system/fault/forked_run.h"
#include "tests/system/fault/platform_tour.h"
#include "tests/system/fault/points.h"
#include "tests/system/fault/scale.h"

namespace {

using fault::CallFault;
using fault::PlatformTour;
using fault::Run;
using interpose::Plan;
using Steps = std::vector<PlatformTour::Step>;

enum Ending { kGood, kNotNamed, kNotAgain, kLost };

uint32_t make(PlatformTour& tour, const PlatformTour::Step& step) {
  const uint32_t status = tour.open();
  return status != ROV_OK ? status : (tour.*step.run)();
}

// Every step once. One that fails says why; when the database was closed, it can be made again.
Ending walk(PlatformTour& tour, const Steps& steps, const CallFault& fault) {
  for (const PlatformTour::Step& step : steps) {
    uint32_t status = make(tour, step);
    if (status == ROV_OK) continue;
    fault::undisturb();
    const std::string message = rov_err_message();
    fprintf(stderr, "%s: %s: %s\n", step.name, rov_status_name(status), message.c_str());
    if (!fault::names_cause(message, fault)) return kNotNamed;
    tour.close();
    if (!tour.verify()) return kLost;
    status = make(tour, step);
    if (status == ROV_OK) continue;
    fprintf(stderr, "again: %s: %s\n", rov_status_name(status), rov_err_message());
    return kNotAgain;
  }
  fault::undisturb();
  tour.close();
  return tour.verify() ? kGood : kLost;
}

// All points of one fault in walks through a new database.
uint32_t sweep(const CallFault& fault, const Steps& steps, uint32_t calls, uint32_t most) {
  uint32_t injected = 0;
  const testing_rov::TemporaryDirectory directory;
  const std::string path = directory.file("db");
  for (const uint32_t at : fault::points(calls, most)) {
    for (const uint32_t until : {at + 1, interpose::kForever}) {
      if (until == interpose::kForever && !fault.lasting) continue;
      std::filesystem::remove_all(path);
      const Plan plan = {fault.call, at, until, fault.error};
      const Run run = fault::run_forked(
          [&] {
            PlatformTour tour(path);
            fault::disturb();
            return walk(tour, steps, fault);
          },
          &plan);
      injected += run.counts.injected;
      EXPECT_EQ(run.signal, 0) << text_of(fault) << " at call " << at << '\n' << run.err;
      EXPECT_EQ(run.code, int{kGood})
          << text_of(fault) << " at call " << at << " until " << until << '\n'
          << run.err;
    }
  }
  return injected;
}

void sweep_all(const Steps& steps, uint32_t most, uint32_t most_if_slow) {
  const testing_rov::TemporaryDirectory directory;
  const Run clean = fault::run_forked(
      [&] {
        PlatformTour tour(directory.file("db"));
        fault::disturb();
        return walk(tour, steps, {});
      },
      nullptr);
  ASSERT_EQ(clean.code, int{kGood}) << clean.err;
  uint32_t injected = 0;
  for (const CallFault& fault : fault::call_faults()) {
    const uint32_t calls = clean.counts.calls[fault.call];
    const uint32_t here = sweep(fault, steps, calls, fault::scaled_processes(most, most_if_slow));
    printf("%s: %u calls, %u faults\n", text_of(fault).c_str(), calls, here);
    EXPECT_TRUE(calls == 0 || here > 0) << text_of(fault);
    injected += here;
  }
  fault::announce("system calls", 0, injected, "faults");
  EXPECT_GT(injected, 0U);
}

TEST(DatabaseCalls, RefusedOnesLoseNothingAndAreNamed) {
  sweep_all(PlatformTour::steps(), 60, 3);
}

TEST(DatabaseCalls, RefusedOnesEndWatchingAndLoseNothing) {
  sweep_all(PlatformTour::watching(), 4, 1);
}

}  // namespace
