// The head that lies before every block of the pool, and how a live block is told from anything
// else.
#ifndef DATABASE_MEMORY_BLOCK_H
#define DATABASE_MEMORY_BLOCK_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#if defined(__SANITIZE_ADDRESS__)
#define MEM_UNDER_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MEM_UNDER_ASAN 1
#endif
#endif

#ifdef MEM_UNDER_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace mem {

inline constexpr size_t kAlign = 16;

struct alignas(kAlign) Head {
  uint32_t size;  // bytes asked for
  uint32_t bin;   // index of the size class
  uintptr_t tag;  // tag_of(head) while the block is live, 0 after
};
static_assert(sizeof(Head) == kAlign, "a block must stay as aligned as its head");
static_assert(alignof(std::max_align_t) <= kAlign, "a block must suit every object");

inline void* block_of(Head* head) {
  return head + 1;
}

inline Head* head_of(void* block) {
  return static_cast<Head*>(block) - 1;
}

// Depends on the address, so that a copy of a head is no head.
inline uintptr_t tag_of(const Head* head) {
  return reinterpret_cast<uintptr_t>(head) ^ static_cast<uintptr_t>(0x9e3779b97f4a7c15u);
}

// The head of a live block; nullptr when `block` is none. Reads the 16 bytes before `block`.
inline Head* live_head(void* block) {
  if (block == nullptr || reinterpret_cast<uintptr_t>(block) % kAlign != 0) return nullptr;
  Head* head = head_of(block);
#ifdef MEM_UNDER_ASAN
  if (__asan_region_is_poisoned(head, sizeof *head) != nullptr) return nullptr;
#endif
  return head->tag == tag_of(head) ? head : nullptr;
}

}  // namespace mem

#endif
