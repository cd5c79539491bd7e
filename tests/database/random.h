// Random numbers of 32 bits on every ABI, the same for one seed.
#ifndef TESTS_DATABASE_RANDOM_H
#define TESTS_DATABASE_RANDOM_H

#include <cstdint>
#include <random>

namespace testing_rov {

class Random {
 public:
  explicit Random(uint32_t seed) : engine_(seed) {}
  uint32_t operator()() { return static_cast<uint32_t>(engine_()); }
  // 0 to limit - 1.
  uint32_t below(uint32_t limit) { return (*this)() % limit; }

 private:
  std::mt19937 engine_;
};

}  // namespace testing_rov

#endif
