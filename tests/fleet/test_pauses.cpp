// Pauses and times.
#include "fleet/base/backoff.h"
#include "fleet/base/clock.h"

namespace qim::fleet {
namespace {

using std::chrono::milliseconds;

TEST(FleetBackoff, IsAnythingUpToALimitThatDoubles) {
  Backoff backoff(milliseconds(100), milliseconds(1000), 7);
  milliseconds longest{};
  for (const int limit : {100, 200, 400, 800, 1000, 1000, 1000, 1000}) {
    const milliseconds pause = backoff.next();
    EXPECT_LE(pause, milliseconds(limit));
    EXPECT_GE(pause, milliseconds(0));
    longest = std::max(longest, pause);
  }
  EXPECT_GT(longest, milliseconds(200));
  backoff.reset();
  EXPECT_LE(backoff.next(), milliseconds(100));
}

TEST(FleetBackoff, DiffersBetweenDevices) {
  Backoff one(milliseconds(100000), milliseconds(100000), 1);
  Backoff two(milliseconds(100000), milliseconds(100000), 2);
  EXPECT_NE(one.next(), two.next());
  EXPECT_NE(random_seed(), random_seed());
}

TEST(FleetBackoff, JitterIsATenthMoreOrLess) {
  Random random(3);
  for (int i = 0; i < 100; i++) {
    const milliseconds time = with_jitter(milliseconds(1000), random);
    EXPECT_GE(time, milliseconds(900));
    EXPECT_LE(time, milliseconds(1100));
  }
}

TEST(FleetClock, TellsTheTime) {
  EXPECT_GT(system_clock().now(), 1700000000);
  const Clock::Steady before = system_clock().steady();
  EXPECT_LE(before, system_clock().steady());
  EXPECT_EQ(time_text(1772366400), "2026-03-01T12:00:00Z");
  EXPECT_EQ(time_text(0), "-");
}

}  // namespace
}  // namespace qim::fleet
