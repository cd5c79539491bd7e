// Memory that is not there when the database asks for it: each request in turn is refused, alone,
// and with all that follow it.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/database/database_fixture.h"
#include "tests/system/fault/forked_run.h"
#include "tests/system/fault/platform_tour.h"
#include "tests/system/fault/points.h"
#include "tests/system/fault/scale.h"

namespace {

using fault::PlatformTour;
using fault::Run;
using interpose::kMemory;
using interpose::Plan;

using Steps = std::vector<PlatformTour::Step>;

enum Ending { kGood, kWrongStatus, kNotAgain, kLost, kLeaked };

// The status of a step in words, for whom the test tells.
uint32_t told(const char* step, uint32_t status) {
  if (status != ROV_OK) {
    fprintf(stderr, "%s: %s: %s\n", step, rov_status_name(status), rov_err_message());
  }
  return status;
}

uint32_t make(PlatformTour& tour, const PlatformTour::Step& step) {
  const uint32_t status = tour.open();
  return status != ROV_OK ? status : (tour.*step.run)();
}

// Every step once. One that fails is made again without faults, and has to succeed then.
Ending walk(PlatformTour& tour, const Steps& steps) {
  for (const PlatformTour::Step& step : steps) {
    const uint32_t status = make(tour, step);
    if (status == ROV_OK) continue;
    fault::undisturb();
    told(step.name, status);
    if (status != ROV_ERR_NO_MEM) return kWrongStatus;
    if (told("again", make(tour, step)) != ROV_OK) return kNotAgain;
  }
  return kGood;
}

// Once undisturbed, so that what is set up once is there; once disturbed; and again undisturbed.
Ending three_walks(const std::string& path, const Steps& steps) {
  PlatformTour tour(path);
  Ending ending = walk(tour, steps);
  tour.close();
  const int64_t before = interpose::live_blocks();
  if (ending == kGood) {
    fault::disturb();
    ending = walk(tour, steps);
    fault::undisturb();
    tour.close();
  }
  if (ending == kGood) ending = walk(tour, steps);
  if (ending == kGood && !tour.verify()) ending = kLost;
  tour.close();
  const int64_t left = interpose::live_blocks() - before;
  if (ending == kGood && left > 0) {
    fprintf(stderr, "%lld blocks were left\n", static_cast<long long>(left));
    ending = kLeaked;
  }
  return ending;
}

// One walk, in a database that is not there yet.
Ending first_walk(const std::string& path, const Steps& steps) {
  PlatformTour tour(path);
  fault::disturb();
  const Ending ending = walk(tour, steps);
  fault::undisturb();
  if (ending != kGood) return ending;
  return tour.verify() ? kGood : kLost;
}

using Work = Ending (*)(const std::string& path, const Steps& steps);

void sweep(const char* name, Work work, const Steps& steps, uint32_t most, uint32_t most_if_slow) {
  const testing_rov::TemporaryDirectory directory;
  const std::string path = directory.file("db");
  const auto run = [&](const Plan* plan) {
    std::filesystem::remove_all(path);
    return fault::run_forked([&] { return work(path, steps); }, plan);
  };
  const Run clean = run(nullptr);
  ASSERT_EQ(clean.code, int{kGood}) << clean.err;
  const uint32_t requests = clean.counts.calls[kMemory];
  uint32_t injected = 0;
  const std::vector<uint32_t> points =
      fault::points(requests, fault::scaled_processes(most, most_if_slow));
  fault::announce(name, 0, requests, "requests for memory");
  for (const uint32_t at : points) {
    for (const uint32_t until : {at + 1, interpose::kForever}) {
      const Plan plan = {kMemory, at, until, 0};
      const Run run_with = run(&plan);
      injected += run_with.counts.injected;
      ASSERT_EQ(run_with.signal, 0) << "request " << at << " until " << until << run_with.err;
      ASSERT_EQ(run_with.code, int{kGood}) << "request " << at << " until " << until << '\n'
                                           << run_with.err;
    }
  }
  printf("%s: %zu of them refused, %u in all\n", name, points.size(), injected);
  EXPECT_GE(injected, points.size() * 2);
}

TEST(DatabaseMemory, RefusedRequestsFailStepsAndNothingElse) {
  sweep("a database in use", three_walks, PlatformTour::steps(), 400, 25);
}

TEST(DatabaseMemory, RefusedRequestsFailWatchingAndNothingElse) {
  sweep("a watched database", three_walks, PlatformTour::watching(), 60, 5);
}

TEST(DatabaseMemory, RefusedRequestsFailTheMakingOfADatabase) {
  sweep("a new database", first_walk, PlatformTour::steps(), 300, 25);
}

}  // namespace
