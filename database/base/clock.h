// Times.
#ifndef DATABASE_BASE_CLOCK_H
#define DATABASE_BASE_CLOCK_H

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

}  // namespace rov

#endif
