#include "database/base/crc32c.h"

#include <array>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <nmmintrin.h>
#define CRC32C_SSE42 1
#endif

namespace {

constexpr uint32_t kPolynomial = 0x82F63B78;  // reflected
constexpr size_t kSlices = 8;

using Slice = std::array<uint32_t, 256>;

// Slice n maps a byte to the checksum of that byte followed by n zero bytes, so that eight bytes
// are folded in with eight independent look-ups.
constexpr std::array<Slice, kSlices> make_slices() {
  std::array<Slice, kSlices> slices{};
  for (uint32_t byte = 0; byte < 256; ++byte) {
    uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? kPolynomial : 0);
    slices[0][byte] = crc;
  }
  for (size_t n = 1; n < kSlices; ++n) {
    for (size_t byte = 0; byte < 256; ++byte) {
      const uint32_t before = slices[n - 1][byte];
      slices[n][byte] = (before >> 8) ^ slices[0][before & 0xff];
    }
  }
  return slices;
}

constexpr std::array<Slice, kSlices> kSlice = make_slices();

// The checksum is defined over bits with the lowest first: words are little-endian on every
// processor.
uint32_t load_le32(const uint8_t* p) {
  return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

uint32_t fold_byte(uint32_t crc, uint8_t byte) {
  return (crc >> 8) ^ kSlice[0][(crc ^ byte) & 0xff];
}

uint32_t fold_eight(uint32_t crc, const uint8_t* p) {
  const uint32_t low = crc ^ load_le32(p);
  const uint32_t high = load_le32(p + 4);
  return kSlice[7][low & 0xff] ^ kSlice[6][low >> 8 & 0xff] ^ kSlice[5][low >> 16 & 0xff] ^
         kSlice[4][low >> 24] ^ kSlice[3][high & 0xff] ^ kSlice[2][high >> 8 & 0xff] ^
         kSlice[1][high >> 16 & 0xff] ^ kSlice[0][high >> 24];
}

#ifdef CRC32C_SSE42

__attribute__((target("sse4.2"))) uint32_t crc32c_sse42(uint32_t crc, const void* data,
                                                        size_t len) {
  const auto* p = static_cast<const uint8_t*>(data);
  uint32_t state = ~crc;
#ifdef __x86_64__
  uint64_t wide = state;
  for (; len >= 8; p += 8, len -= 8) {
    uint64_t word = 0;
    std::memcpy(&word, p, sizeof word);
    wide = _mm_crc32_u64(wide, word);
  }
  state = static_cast<uint32_t>(wide);
#endif
  for (; len >= 4; p += 4, len -= 4) {
    uint32_t word = 0;
    std::memcpy(&word, p, sizeof word);
    state = _mm_crc32_u32(state, word);
  }
  for (; len > 0; ++p, --len) state = _mm_crc32_u8(state, *p);
  return ~state;
}

// Read before its initialisation (from another file's static constructor) it is false, and the
// tables serve.
const bool kHasSse42 = __builtin_cpu_supports("sse4.2") != 0;

#endif

}  // namespace

uint32_t crc32c_by_table(uint32_t crc, const void* data, size_t len) {
  const auto* p = static_cast<const uint8_t*>(data);
  uint32_t state = ~crc;
  for (; len >= 8; p += 8, len -= 8) state = fold_eight(state, p);
  for (; len > 0; ++p, --len) state = fold_byte(state, *p);
  return ~state;
}

uint32_t crc32c(uint32_t crc, const void* data, size_t len) {
#ifdef CRC32C_SSE42
  if (kHasSse42) return crc32c_sse42(crc, data, len);
#endif
  return crc32c_by_table(crc, data, len);
}
