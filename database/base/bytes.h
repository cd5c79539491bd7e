// Views of bytes, and integers read from and written to any address.
#ifndef DATABASE_BASE_BYTES_H
#define DATABASE_BASE_BYTES_H

#include <cstdint>
#include <cstring>

namespace rov {

// Bytes that somebody else owns.
struct Bytes {
  const uint8_t* data = nullptr;
  uint32_t len = 0;
};

// Host order, any alignment.
template <typename Int>
inline Int load(const void* from) {
  Int value;
  memcpy(&value, from, sizeof value);
  return value;
}
template <typename Int>
inline void store(void* to, Int value) {
  memcpy(to, &value, sizeof value);
}

// Network order, any alignment.
inline uint32_t load_be32(const void* from) {
  const auto value = load<uint32_t>(from);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return __builtin_bswap32(value);
#else
  return value;
#endif
}
inline void store_be32(void* to, uint32_t value) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  value = __builtin_bswap32(value);
#endif
  store(to, value);
}

// Order of two byte strings as the store keeps them: byte by byte, a prefix before what it begins.
inline int compare(Bytes a, Bytes b) {
  const uint32_t common = a.len < b.len ? a.len : b.len;
  const int order = common == 0 ? 0 : memcmp(a.data, b.data, common);
  if (order != 0) return order;
  return a.len == b.len ? 0 : (a.len < b.len ? -1 : 1);
}

}  // namespace rov

#endif
