// Lets every platform call of an operation fail in turn.
#ifndef TESTS_SUPPORT_FAKE_SWEEP_H
#define TESTS_SUPPORT_FAKE_SWEEP_H

#include <cstddef>
#include <cstdint>
#include <functional>

#include "fake.h"

namespace fake {

struct Sweep {
  // Says what the database holds. Runs before every attempt, on an empty platform.
  std::function<void()> prepare;
  // The operation; spoils its outputs first.
  std::function<std::uint32_t()> run;
  // Looks at the outputs of a run that returned this status after the platform had failed at `hit`,
  // or had not (hit.nth is 0 then); frees what the operation gave.
  std::function<void(std::uint32_t returned, const Hit& hit)> check;
  // What the operation returns when `hit` fails with `status`.
  std::function<std::uint32_t(const Hit& hit, std::uint32_t status)> expected =
      [](const Hit&, std::uint32_t status) { return status; };
  // Blocks of the pool that stay allocated after it.
  std::function<std::size_t(const Hit& hit)> left = [](const Hit&) { return std::size_t{0}; };
};

// Runs the operation cleanly, and then as often as it makes calls that can fail: each time another
// one of them fails with `status`, and the next run must be a clean one again. A sweep that fails
// nothing is a failure. The platform is empty afterwards.
void sweep(const Sweep& sweep, std::uint32_t status);

}  // namespace fake

#endif
