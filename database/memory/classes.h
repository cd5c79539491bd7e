// Size classes of the pool: multiples of 16 up to 128 bytes, then four to a doubling, so that at
// most a fifth of a larger block is lost to rounding.
#ifndef DATABASE_MEMORY_CLASSES_H
#define DATABASE_MEMORY_CLASSES_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace mem {

inline constexpr uint32_t kStep = 16;
inline constexpr uint32_t kMaxPooled = 4096;
inline constexpr size_t kBins = 28;

constexpr std::array<uint32_t, kBins> make_bin_sizes() {
  std::array<uint32_t, kBins> sizes{};
  uint32_t size = 0;
  uint32_t step = kStep;
  for (size_t bin = 0; bin < kBins; ++bin) {
    if (size == step * 8) step *= 2;
    size += step;
    sizes[bin] = size;
  }
  return sizes;
}

inline constexpr std::array<uint32_t, kBins> kBinSize = make_bin_sizes();
static_assert(kBinSize.back() == kMaxPooled);

constexpr std::array<uint8_t, kMaxPooled / kStep> make_bin_index() {
  std::array<uint8_t, kMaxPooled / kStep> index{};
  size_t bin = 0;
  for (uint32_t steps = 0; steps < index.size(); ++steps) {
    if ((steps + 1) * kStep > kBinSize[bin]) ++bin;
    index[steps] = static_cast<uint8_t>(bin);
  }
  return index;
}

inline constexpr auto kBinIndex = make_bin_index();

// The class for `size` bytes, 1 to kMaxPooled.
inline uint32_t bin_of(uint32_t size) {
  return kBinIndex[(size - 1) / kStep];
}

}  // namespace mem

#endif
