// How often a sweep does what it does, and where it does less.
#ifndef TESTS_SYSTEM_FAULT_SCALE_H
#define TESTS_SYSTEM_FAULT_SCALE_H

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "tests/support/pace.h"

namespace fault {

// What the environment variable QIM_SOAK multiplies counts by; 1 without it.
inline uint32_t soak() {
  const char* text = getenv("QIM_SOAK");
  const unsigned long factor = text == nullptr ? 1 : strtoul(text, nullptr, 10);
  return static_cast<uint32_t>(std::clamp(factor, 1UL, 10000UL));
}

using pace::emulated;
using pace::kSanitized;

// Are lines and branches counted? Then every process ends by writing its counts, which takes longer
// than what most did before.
inline bool counted() {
  return getenv("QIM_COUNTED") != nullptr;
}

// `count`, or `slow` where the program is emulated or checked; times QIM_SOAK.
inline uint32_t scaled(uint32_t count, uint32_t slow) {
  return (emulated() || kSanitized ? slow : count) * soak();
}
inline uint32_t scaled(uint32_t count) {
  return scaled(count, count);
}

// The same for what takes a process each time; a tenth where lines are counted, for that reaches
// what all of them reach.
inline uint32_t scaled_processes(uint32_t count, uint32_t slow) {
  const uint32_t all = scaled(count, slow);
  return counted() ? std::max(all / 10, 1U) : all;
}

// QIM_SEED, or `seed` without it: a failure is repeated with the seed that it printed.
inline uint32_t seed_or(uint32_t seed) {
  const char* text = getenv("QIM_SEED");
  return text == nullptr ? seed : static_cast<uint32_t>(strtoul(text, nullptr, 0));
}

// What every sweep says of itself.
inline void announce(const char* sweep, uint32_t seed, uint32_t count, const char* what) {
  printf("%s: seed %u, %u %s\n", sweep, seed, count, what);
  fflush(stdout);
}

}  // namespace fault

#endif
