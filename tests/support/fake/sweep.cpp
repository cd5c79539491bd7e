#include "sweep.h"

#include <gtest/gtest.h>

#include "faults.h"

namespace fake {
namespace {

// Returns the number of calls that can fail.
unsigned expect_clean(const Sweep& sweep, std::size_t blocks_before) {
  clear_calls();
  EXPECT_EQ(sweep.run(), 0u) << "without a failure";
  const unsigned calls = fallible_calls();
  sweep.check(0, Hit{});
  EXPECT_EQ(live_blocks(), blocks_before);
  EXPECT_EQ(system_blocks(), 0u);
  EXPECT_EQ(bad_frees(), 0u);
  return calls;
}

void attempt(const Sweep& sweep, std::uint32_t status, unsigned nth) {
  reset();
  reset_system();
  sweep.prepare();
  clear_calls();
  fail_nth(status, nth);
  const std::uint32_t returned = sweep.run();
  const Hit at = hit();
  SCOPED_TRACE("call " + std::to_string(at.nth) + " of " + at.call.name);
  EXPECT_NE(injected(), "") << "nothing failed";
  EXPECT_EQ(returned, sweep.expected(at, status));
  sweep.check(returned, at);
  EXPECT_EQ(live_blocks(), sweep.left(at));
  EXPECT_EQ(system_blocks(), 0u);
  EXPECT_EQ(bad_frees(), 0u);
  expect_clean(sweep, live_blocks());
}

}  // namespace

void sweep(const Sweep& sweep, std::uint32_t status) {
  reset();
  reset_system();
  sweep.prepare();
  const unsigned calls = expect_clean(sweep, 0);
  EXPECT_GT(calls, 0u) << "an operation without calls that can fail";
  for (unsigned nth = 1; nth <= calls; ++nth) attempt(sweep, status, nth);
  reset();
  reset_system();
}

}  // namespace fake
