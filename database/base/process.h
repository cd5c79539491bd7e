// The clock, and processes: whether one that was noted down is still there.
#pragma once

#include <cstdint>
#include <ctime>

namespace rov {

constexpr int64_t kNanosPerSecond = 1000000000;
constexpr int64_t kNanosPerMilli = 1000000;

// Nanoseconds since some moment that is the same for all processes and is not put forward or back.
inline int64_t monotonic_now(clockid_t clock = CLOCK_MONOTONIC) {
  timespec time;
  clock_gettime(clock, &time);
  return int64_t{time.tv_sec} * kNanosPerSecond + time.tv_nsec;
}

inline timespec timespec_of(int64_t nanos) {
  timespec time;
  time.tv_sec = static_cast<time_t>(nanos / kNanosPerSecond);
  time.tv_nsec = static_cast<long>(nanos % kNanosPerSecond);
  return time;
}

// When a process started, in clock ticks since the system did, which tells it from a later one of
// its number. 0 when there is none, or it cannot be told.
uint64_t process_start(uint32_t process);

// Whether the process that started then (0 = not known) is gone. When in doubt it is not. One that
// was killed and not yet waited for is.
bool process_is_gone(uint32_t process, uint64_t start);

// What tells this process from all others that have its number: earlier and later ones, and those of
// other namespaces of numbers.
struct ProcessStamp {
  uint64_t start = 0;  // as the process sees it
  uint64_t space = 0;  // the namespace of its number

  bool operator==(const ProcessStamp&) const = default;
};
ProcessStamp own_stamp();

}  // namespace rov
