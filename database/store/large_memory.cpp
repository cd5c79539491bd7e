#include "database/store/large_memory.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace rov {
namespace {

constexpr size_t kLargePage = size_t{2} << 20;

// NULL for sizes that fill no large page, too.
void* large_pages(size_t size) {
  if (size < kLargePage || size > SIZE_MAX - kLargePage) return nullptr;
  const size_t whole = (size + kLargePage - 1) / kLargePage * kLargePage;
  void* memory = aligned_alloc(kLargePage, whole);
  // A request only: without large pages the memory is as good.
  if (memory != nullptr) madvise(memory, whole, MADV_HUGEPAGE);
  return memory;
}

}  // namespace

void* large_memory(size_t size) {
  void* memory = large_pages(size);
  return memory != nullptr ? memory : malloc(size);
}

void* zeroed_memory(size_t size) {
  void* memory = large_pages(size);
  if (memory == nullptr) return calloc(1, size);
  memset(memory, 0, size);
  return memory;
}

}  // namespace rov
