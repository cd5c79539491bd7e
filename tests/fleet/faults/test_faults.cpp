// Faults at random: whatever happens, what a database holds is a revision that was published, and its
// mark says which. Agents that are broken on purpose run beside the others, and have to be caught.
//
// QIM_FLEET_FAULTS is the number of faults, QIM_FLEET_SEED what they are made of, QIM_FLEET_AGENTS how many
// agents there are; with QIM_FLEET_SAY each fault is told, and what it took.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "tests/fleet/faults/faulty_fleet.h"
#include "tests/support/pace.h"

namespace {

using fleet_test::FaultyFleet;
using std::chrono::milliseconds;

uint64_t number_from(const char* name, uint64_t otherwise) {
  const char* text = getenv(name);
  return text == nullptr ? otherwise : strtoull(text, nullptr, 10);
}

TEST(Faults, NoDatabaseIsEverHalfOfSomething) {
  const bool is_slow = pace::kSanitized || getenv("QIM_COUNTED") != nullptr;
  const uint64_t few = (is_slow ? 60 : 300) * number_from("QIM_SOAK", 1);
  const uint64_t faults = number_from("QIM_FLEET_FAULTS", std::min<uint64_t>(few, 20'000));
  const uint64_t seed = number_from("QIM_FLEET_SEED", 1);
  FaultyFleet fleet(seed, number_from("QIM_FLEET_AGENTS", 8));
  qim::fleet::Random pauses(seed);
  for (uint64_t n = 0; n < faults; n++) {
    fleet.fault();
    for (int look = 0; look < 3; look++) {
      fleet.look();
      std::this_thread::sleep_for(milliseconds(pauses.below(25)));
    }
  }
  fleet.mend();
  EXPECT_TRUE(fleet.converges()) << fleet.newest_faults();
  EXPECT_EQ(fleet.lost(), "");
  EXPECT_TRUE(fleet.lies() != 0 || is_slow);
  // Whoever is broken was caught, and nobody else.
  EXPECT_EQ(fleet.caught(), (std::set<std::string>{"by-node", "two-commits", "unchecked"}))
      << fleet.findings();
}

TEST(Faults, WhatIsRefusedIsRefusedEverywhereForTheSameReason) {
  constexpr size_t agents = 8;
  FaultyFleet fleet(1, agents);
  fleet.publish_bad();
  const auto until = std::chrono::steady_clock::now() + milliseconds(pace::patience_ms());
  std::map<std::string, size_t> reasons;
  do {
    std::this_thread::sleep_for(milliseconds(100));
    reasons = fleet.refusals();
  } while ((reasons.size() != 1 || reasons.begin()->second != agents) &&
           std::chrono::steady_clock::now() < until);
  ASSERT_EQ(reasons.size(), 1U);
  EXPECT_EQ(reasons.begin()->second, agents);
}

}  // namespace
