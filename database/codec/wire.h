// The bytes of TLV data: attribute heads, padding, integers in network order.
//
// An attribute is a head of two 32-bit words, the tag (struct id << 16 | field id) and the value's
// length in bytes, and the value, padded with zero bytes to a multiple of 4.
#ifndef DATABASE_CODEC_WIRE_H
#define DATABASE_CODEC_WIRE_H

#include <cstddef>
#include <cstdint>

#include "database/base/bytes.h"

namespace tlv {

inline constexpr uint32_t kHeadBytes = 8;
inline constexpr uint32_t kDiscriminatorBytes = 4;

inline size_t bytes_between(const uint8_t* from, const uint8_t* to) {
  return static_cast<size_t>(to - from);
}

// 64 bits wide, because the longest values would wrap a 32-bit sum.
inline constexpr uint64_t padded(uint64_t len) {
  return (len + 3) & ~uint64_t{3};
}

inline constexpr uint32_t tag_of(uint32_t struct_id, uint32_t field_id) {
  return struct_id << 16 | field_id;
}

// Network order to host order and back.
inline constexpr uint8_t swap_be(uint8_t value) {
  return value;
}
inline constexpr uint16_t swap_be(uint16_t value) {
  return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? __builtin_bswap16(value) : value;
}
inline constexpr uint32_t swap_be(uint32_t value) {
  return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? __builtin_bswap32(value) : value;
}
inline constexpr uint64_t swap_be(uint64_t value) {
  return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? __builtin_bswap64(value) : value;
}

// An attribute's head, as a word of data.
inline constexpr uint64_t head_of(uint32_t tag, uint32_t len) {
  return swap_be(uint64_t{tag} << 32 | len);
}

// Copies an integer between host and network order; neither address need be aligned.
template <typename Int>
inline void copy_int(void* to, const void* from) {
  rov::store(to, swap_be(rov::load<Int>(from)));
}

inline constexpr bool is_int_width(uint32_t width) {
  return width == 1 || width == 2 || width == 4 || width == 8;
}

// The same for a width known at run time only. False for a width that no integer has.
inline bool copy_int(void* to, const void* from, uint32_t width) {
  switch (width) {
    case 1:
      copy_int<uint8_t>(to, from);
      return true;
    case 2:
      copy_int<uint16_t>(to, from);
      return true;
    case 4:
      copy_int<uint32_t>(to, from);
      return true;
    case 8:
      copy_int<uint64_t>(to, from);
      return true;
    default:
      return false;
  }
}

}  // namespace tlv

#endif
