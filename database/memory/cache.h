// A thread's cache of free blocks: what taking and giving come down to nearly always, inline.
#ifndef DATABASE_MEMORY_CACHE_H
#define DATABASE_MEMORY_CACHE_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "database/memory/block.h"
#include "database/memory/classes.h"

namespace mem {

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
extern constinit thread_local Cache* my_cache __attribute__((tls_model("initial-exec")));

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

}  // namespace mem

#endif
