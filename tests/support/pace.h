// How much longer things take here than on an idle machine, so that a test's waits last as long as
// they must and no test depends on what else the machine has to do.
#ifndef TESTS_SUPPORT_PACE_H
#define TESTS_SUPPORT_PACE_H

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>

namespace pace {

// Is there something between the program and the machine that makes it many times slower?
inline bool emulated() {
  const char* emulator = getenv("QIM_EMULATOR");
  return emulator != nullptr && *emulator != '\0';
}

// Compilers tell of a sanitizer in different ways.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#elif defined(__has_feature)
inline constexpr bool kSanitized =
    __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
inline constexpr bool kSanitized = false;
#endif

// The clock on the wall beside the processor's, while this thread has work all the time.
inline double measured() {
  using Clock = std::chrono::steady_clock;
  const auto begin = Clock::now();
  const std::clock_t first = std::clock();
  while (std::clock() - first < CLOCKS_PER_SEC / 50) continue;
  const double used = static_cast<double>(std::clock() - first) / CLOCKS_PER_SEC;
  const double took = std::chrono::duration<double>(Clock::now() - begin).count();
  return used > 0 ? took / used : 1;
}

// By what waits are multiplied: a whole number, from 1 on. It is taken once, when it is first asked
// for; the machine's load counts too, as it tells more of the next minute than a fiftieth of a second.
inline uint32_t factor() {
  static const uint32_t kFactor = [] {
    double load = 0;
    if (getloadavg(&load, 1) != 1) load = 0;
    const auto processors = static_cast<double>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L));
    const double share = std::clamp(std::max(measured(), load / processors), 1.0, 16.0);
    return static_cast<uint32_t>(share * (emulated() || kSanitized ? 2 : 1) + 0.5);
  }();
  return kFactor;
}

// A time as it is on an idle machine, here.
template <class Duration>
Duration paced(Duration time) {
  return time * factor();
}

// What does not wait for anybody takes less than this.
inline std::chrono::milliseconds at_once() {
  return paced(std::chrono::milliseconds(2000));
}

// Who would wait for somebody waits this long: far longer than what is done at once takes, so that
// the two can be told apart, and so long that only what never comes is late.
inline uint32_t patience_ms() {
  return 60000 * factor();
}

}  // namespace pace

#endif
