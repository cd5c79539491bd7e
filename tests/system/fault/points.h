// Which of many points of failure are tried.
#ifndef TESTS_SYSTEM_FAULT_POINTS_H
#define TESTS_SYSTEM_FAULT_POINTS_H

#include <cstdint>
#include <vector>

namespace fault {

// 0 to `count` - 1, or `most` of them, evenly spread, the first and the last among them.
inline std::vector<uint32_t> points(uint32_t count, uint32_t most) {
  std::vector<uint32_t> chosen;
  const uint32_t wanted = count < most ? count : most;
  for (uint32_t n = 0; n < wanted; ++n) {
    chosen.push_back(wanted == 1 ? 0
                                 : static_cast<uint32_t>(uint64_t{n} * (count - 1) / (wanted - 1)));
  }
  return chosen;
}

}  // namespace fault

#endif
