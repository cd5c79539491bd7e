// Alignment of addresses in callers' buffers.
#pragma once

#include <stdint.h>

namespace qim::query {

// The next multiple of 8; an aligned address stays.
inline uintptr_t qim_align8(uintptr_t address) {
  return address + (-address & 7);
}

}  // namespace qim::query
