// The process's pool of blocks: what mem.h hands out.
//
// Blocks of up to 4 KiB come from size classes. Each thread keeps a cache of free blocks of its
// own, so that taking and giving costs neither a lock nor an atomic read-modify-write; caches
// exchange blocks with a shared store in batches. Memory that the size classes took from the system
// stays with the pool for re-use. Larger blocks come from the C library and go back to it. Built
// with the address sanitizer every block comes from the C library, so that overruns and leaks show.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "rov_types.h"

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

// ---- Heads --------------------------------------------------------------------------------------
//
// The head that lies before every block of the pool, and how a live block is told from anything
// else.

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

// ---- Size classes -------------------------------------------------------------------------------
//
// Size classes of the pool: multiples of 16 up to 128 bytes, then four to a doubling, so that at
// most a fifth of a larger block is lost to rounding.

inline constexpr uint32_t kStep = 16;
inline constexpr uint32_t kMaxPooled = 4096;
inline constexpr size_t kBins = 28;

constexpr std::array<uint32_t, kBins> make_bin_sizes() {
  std::array<uint32_t, kBins> sizes{};
  uint32_t size = 0;
  uint32_t step = kStep;
  for (size_t bin = 0; bin < kBins; ++bin) {
    if (size == step * 8) step *= 2;
    size += step;
    sizes[bin] = size;
  }
  return sizes;
}

inline constexpr std::array<uint32_t, kBins> kBinSize = make_bin_sizes();
static_assert(kBinSize.back() == kMaxPooled);

constexpr std::array<uint8_t, kMaxPooled / kStep> make_bin_index() {
  std::array<uint8_t, kMaxPooled / kStep> index{};
  size_t bin = 0;
  for (uint32_t steps = 0; steps < index.size(); ++steps) {
    if ((steps + 1) * kStep > kBinSize[bin]) ++bin;
    index[steps] = static_cast<uint8_t>(bin);
  }
  return index;
}

inline constexpr auto kBinIndex = make_bin_index();

// The class for `size` bytes, 1 to kMaxPooled.
[[nodiscard]] inline uint32_t bin_of(uint32_t size) {
  return kBinIndex[(size - 1) / kStep];
}

// ---- The pool -----------------------------------------------------------------------------------
//
// The first three are inline below, except where every block is the C library's.

// A zero-filled block of `size` > 0 bytes; nullptr when the system has no memory, or when `limit`
// is not 0 and more than `limit` bytes would be handed out. Any thread.
void* take(uint32_t size, uint32_t limit);

// The same for any size and without a limit, but only what is at hand: nullptr when nothing is.
void* take_cached(uint32_t size);

// Gives back a block that any thread took. False when `block` is not a live block: nothing happens
// then.
bool give(void* block);

// Bytes handed out and not given back, over all threads. Exact while no other thread takes or
// gives.
size_t live_bytes();

#ifndef MEM_UNDER_ASAN

// ---- Caches -------------------------------------------------------------------------------------
//
// A thread's cache of free blocks: what taking and giving come down to nearly always, inline.

// A free block's first bytes; its head keeps the class.
struct Free {
  Free* next;
};

inline void push(Free*& list, void* block) {
  auto* free = static_cast<Free*>(block);
  free->next = list;
  list = free;
}

inline void* pop(Free*& list) {
  Free* free = list;
  if (free != nullptr) list = free->next;
  return free;
}

// Bytes taken less bytes given, by one writer at a time. A thread that gives back more than it took
// wraps its count around; the sum over all threads is right.
class Count {
 public:
  void add(size_t bytes) { bytes_.store(get() + bytes, std::memory_order_relaxed); }
  size_t get() const { return bytes_.load(std::memory_order_relaxed); }

 private:
  std::atomic<size_t> bytes_{0};
};

// Free blocks of a class, and how many more of them the cache may keep.
struct CacheBin {
  Free* free = nullptr;
  uint32_t room = 0;
};

struct Cache {
  CacheBin bins[kBins + 1];  // the last one stands for large blocks and never has room
  Count live;
  Cache* next = nullptr;
  Cache* prev = nullptr;
};

// The thread's cache. At first one that never has a block nor room for one, so that a thread which
// has none yet needs no test.
extern constinit Cache no_cache;
extern constinit thread_local Cache* my_cache;

inline void mark_live(void* block, uint32_t size) {
  Head* head = head_of(block);
  head->size = size;
  head->tag = tag_of(head);
}

// Clears more than 64 bytes at `block`.
void clear_many(void* block, size_t size);

// Clears `size` bytes of a pooled block, rounded up to 16, with a few wide stores that may overlap:
// most blocks are small, and calling memset costs more than their fill.
inline void clear(void* block, uint32_t size) {
  if (size > 4 * kStep) {
    clear_many(block, size);
    return;
  }
  auto* from = static_cast<char*>(block);
  auto* last = from + ((size_t{size} - 1) & ~size_t{kStep - 1});
  std::memset(from, 0, kStep);
  std::memset(last, 0, kStep);
  if (size <= 2 * kStep) return;
  std::memset(from + kStep, 0, kStep);
  std::memset(last - kStep, 0, kStep);
}

void* take_slowly(uint32_t size, uint32_t limit);
void give_slowly(void* block);

// A zero-filled block of the thread's cache; nullptr when that has none of the size.
[[gnu::always_inline]] inline void* take_cached(uint32_t size) {
  if (size - 1 >= kMaxPooled) return nullptr;
  Cache* cache = my_cache;
  CacheBin& bin = cache->bins[bin_of(size)];
  void* block = pop(bin.free);
  if (block == nullptr) return nullptr;
  ++bin.room;
  cache->live.add(size);
  mark_live(block, size);
  clear(block, size);
  return block;
}

inline void* take(uint32_t size, uint32_t limit) {
  void* block = limit == 0 ? take_cached(size) : nullptr;
  return block != nullptr ? block : take_slowly(size, limit);
}

inline bool give(void* block) {
  Head* head = live_head(block);
  if (head == nullptr) return false;
  head->tag = 0;
  Cache* cache = my_cache;
  CacheBin& bin = cache->bins[head->bin];
  if (bin.room == 0) {
    give_slowly(block);
    return true;
  }
  --bin.room;
  cache->live.add(size_t{0} - head->size);
  push(bin.free, block);
  return true;
}

#endif

// ---- Clients ------------------------------------------------------------------------------------

// A zero-filled block of a client's pool, but only what is at hand without further questions:
// nullptr when nothing is, which is no failure yet.
inline void* take_at_hand(uint32_t size, const rov_mem_ctx_t* pool) {
  if (pool != nullptr && (pool->pool != nullptr || pool->limit != 0)) return nullptr;
  return take_cached(size);
}

}  // namespace mem
