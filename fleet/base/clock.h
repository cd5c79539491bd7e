// The time, as something that a test can set.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace qim::fleet {

class Clock {
 public:
  using Steady = std::chrono::steady_clock::time_point;

  virtual ~Clock() = default;
  // Seconds since 1970 by the system's clock, which may jump: for what people read only.
  virtual int64_t now() = 0;
  // What waits are measured by.
  virtual Steady steady() = 0;
};

// The system's.
Clock& system_clock();

// "2026-03-01T12:00:00Z"; "-" for 0.
std::string time_text(int64_t seconds);

}  // namespace qim::fleet
