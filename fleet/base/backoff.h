// Pauses between tries, spread at random so that many who failed at once do not come back at once.
#pragma once

#include <chrono>
#include <cstdint>

namespace qim::fleet {

// Random numbers that a test can foresee: splitmix64.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t next();
  // Below `limit`, which is not 0.
  uint64_t below(uint64_t limit) { return next() % limit; }

 private:
  uint64_t state_;
};

// A seed that differs between devices and starts.
uint64_t random_seed();

// Anything up to a limit that doubles with each failure ("full jitter").
class Backoff {
 public:
  Backoff(std::chrono::milliseconds first, std::chrono::milliseconds most, uint64_t seed);
  // How long to wait after one more failure.
  std::chrono::milliseconds next();
  // It worked: the next failure is a first one.
  void reset() { limit_ = first_; }

 private:
  std::chrono::milliseconds first_;
  std::chrono::milliseconds most_;
  std::chrono::milliseconds limit_;
  Random random_;
};

// `period` with a tenth more or less.
std::chrono::milliseconds with_jitter(std::chrono::milliseconds period, Random& random);

}  // namespace qim::fleet
