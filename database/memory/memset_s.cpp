#include <cerrno>
#include <cstdint>
#include <cstring>

#include "mem.h"

namespace {

constexpr size_t kMostBytes = SIZE_MAX / 2;  // RSIZE_MAX

// The compiler must take it that somebody reads the bytes, or it may drop the fill of a dying
// object.
void fill(void* dest, int ch, size_t count) {
  std::memset(dest, ch, count);
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
