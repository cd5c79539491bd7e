// The bytes of a record, for comparisons that show where two differ.
#ifndef TESTS_LIBRARY_IDS_BYTES_H
#define TESTS_LIBRARY_IDS_BYTES_H

#include <bit>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <utility>
#include <vector>

namespace ids_tests {

using Bytes = std::vector<std::uint8_t>;
// Format bytes to go through.
using Formats = std::initializer_list<std::uint8_t>;

inline constexpr bool kBigEndian = std::endian::native == std::endian::big;

template <class T>
Bytes bytes_of(const T& record) {
  Bytes bytes(sizeof record);
  std::memcpy(bytes.data(), &record, sizeof record);
  return bytes;
}

template <class T>
T record_of(const Bytes& bytes) {
  T record{};
  std::memcpy(static_cast<void*>(&record), bytes.data(), sizeof record);
  return record;
}

// The bytes at these positions, swapped as one integer.
inline void swap_bytes(Bytes& bytes, std::size_t at, std::size_t width) {
  for (std::size_t i = 0; i < width / 2; ++i) {
    std::swap(bytes[at + i], bytes[at + width - 1 - i]);
  }
}

}  // namespace ids_tests

#endif
