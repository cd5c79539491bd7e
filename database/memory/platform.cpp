// What some C libraries have and others lack: they depend on nothing else, so that the policy library
// carries a copy of its own.
#include <errno.h>
#include <limits.h>
#include <stdint.h>
#include <string.h>

#include "mem.h"

namespace {

constexpr size_t kMostBytes = SIZE_MAX / 2;  // RSIZE_MAX

// The compiler must take it that somebody reads the bytes, or it may drop the fill of a dying
// object.
void fill(void* dest, int ch, size_t count) {
  memset(dest, ch, count);
  __asm__ __volatile__("" : : "r"(dest) : "memory");
}

}  // namespace

extern "C" int memset_s(void* dest, size_t destsz, int ch, size_t count) {
  if (dest == nullptr) return EINVAL;
  if (destsz > kMostBytes) return E2BIG;
  const bool too_much = count > destsz;
  fill(dest, ch, too_much ? destsz : count);
  return too_much ? EOVERFLOW : 0;
}

namespace {

constexpr char kDigits[] = "0123456789abcdef";

}  // namespace

extern "C" int snprintf_bytes(char* out, size_t room, const void* bytes, size_t len, int style) {
  if (out == nullptr || room == 0) return 0;
  const auto* byte = static_cast<const uint8_t*>(bytes);
  const size_t usable = room - 1 < INT_MAX ? room - 1 : INT_MAX;
  size_t at = 0;
  for (size_t i = 0; byte != nullptr && i < len; ++i) {
    const size_t blank = style == 1 && i > 0 ? 1 : 0;
    if (usable - at < blank + 2) break;
    if (blank != 0) out[at++] = ' ';
    out[at++] = kDigits[byte[i] >> 4];
    out[at++] = kDigits[byte[i] & 0xf];
  }
  out[at] = '\0';
  return static_cast<int>(at);
}
