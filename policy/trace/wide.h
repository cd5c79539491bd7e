// Numbers of 128 bits, for IPv6 addresses.
#pragma once

#include <compare>
#include <cstdint>
#include <span>

namespace qimctl {

struct Wide {
  uint64_t high = 0;
  uint64_t low = 0;

  // NOLINTNEXTLINE(modernize-use-nullptr): the compiler compares with 0, not this
  auto operator<=>(const Wide&) const = default;
};

// From bytes in network order, at most 16.
constexpr Wide to_wide(std::span<const uint8_t> bytes) {
  Wide value;
  for (const uint8_t byte : bytes) {
    value.high = value.high << 8 | value.low >> 56;
    value.low = value.low << 8 | byte;
  }
  return value;
}

constexpr Wide next(Wide value) {
  value.low++;
  if (value.low == 0) value.high++;
  return value;
}

constexpr Wide previous(Wide value) {
  if (value.low == 0) value.high--;
  value.low--;
  return value;
}

// The last number that differs from `value` in no other than the last `free` bits.
constexpr Wide fill(Wide value, uint32_t free) {
  if (free >= 64) value.low = UINT64_MAX;
  if (free >= 128) value.high = UINT64_MAX;
  if (free > 64 && free < 128) value.high |= (uint64_t{1} << (free - 64)) - 1;
  if (free < 64) value.low |= (uint64_t{1} << free) - 1;
  return value;
}

}  // namespace qimctl
