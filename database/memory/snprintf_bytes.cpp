#include <climits>
#include <cstdint>

#include "mem.h"

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
