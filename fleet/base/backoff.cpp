// Random numbers and pauses.
#include "fleet/base/backoff.h"

#include <algorithm>
#include <random>

namespace qim::fleet {

uint64_t Random::next() {
  state_ += 0x9e3779b97f4a7c15u;
  uint64_t mixed = state_;
  mixed = (mixed ^ (mixed >> 30u)) * 0xbf58476d1ce4e5b9u;
  mixed = (mixed ^ (mixed >> 27u)) * 0x94d049bb133111ebu;
  return mixed ^ (mixed >> 31u);
}

uint64_t random_seed() {
  std::random_device device;
  return uint64_t{device()} << 32u | device();
}

Backoff::Backoff(std::chrono::milliseconds first, std::chrono::milliseconds most, uint64_t seed)
    : first_(first), most_(most), limit_(first), random_(seed) {}

std::chrono::milliseconds Backoff::next() {
  const auto limit = static_cast<uint64_t>(limit_.count());
  limit_ = std::min(limit_ * 2, most_);
  return std::chrono::milliseconds(random_.below(limit + 1));
}

std::chrono::milliseconds with_jitter(std::chrono::milliseconds period, Random& random) {
  const auto tenth = static_cast<uint64_t>(period.count() / 10);
  return period - std::chrono::milliseconds(tenth) +
         std::chrono::milliseconds(random.below(2 * tenth + 1));
}

}  // namespace qim::fleet
