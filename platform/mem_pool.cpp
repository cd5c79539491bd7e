#include "platform/mem_pool.h"

#include "platform/mem_block.h"

#ifndef MEM_UNDER_ASAN

#include <pthread.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <new>

#include "platform/mem_classes.h"

namespace mem {
namespace {

constexpr size_t kChunkBytes = size_t{64} * 1024;
constexpr uint32_t kCacheBytes = 32 * 1024;  // most free bytes of a class that a thread keeps
constexpr uint32_t kBatchBytes = 4 * 1024;   // what it fetches from the shared store at once

// A free block's first bytes; its head keeps the class.
struct Free {
  Free* next;
};

struct Bin {
  Free* head = nullptr;
  uint32_t count = 0;
};

// Bytes taken less bytes given, by one writer at a time. A thread that gives back more than it took
// wraps its count around; the sum over all threads is right.
class Count {
 public:
  void add(size_t bytes) { bytes_.store(get() + bytes, std::memory_order_relaxed); }
  size_t get() const { return bytes_.load(std::memory_order_relaxed); }

 private:
  std::atomic<size_t> bytes_{0};
};

struct Cache {
  Bin bins[kBins];
  Count live;
  Cache* next = nullptr;
  Cache* prev = nullptr;
};

struct Chunk {
  alignas(kAlign) Chunk* next;
};

// What all threads share, under `lock`.
struct Shared {
  std::mutex lock;
  Bin bins[kBins];
  char* fresh = nullptr;  // never used part of the newest chunk
  size_t fresh_left = 0;
  Chunk* chunks = nullptr;
  Cache* caches = nullptr;
  Count live;  // of threads that have no cache, or have ended
};

constinit Shared shared;
constinit thread_local Cache* my_cache __attribute__((tls_model("initial-exec"))) = nullptr;

pthread_once_t key_once = PTHREAD_ONCE_INIT;
pthread_key_t key;
bool key_made = false;

uint32_t batch_of(uint32_t bin) {
  const uint32_t fit = kBatchBytes / kBinSize[bin];
  return fit < 2 ? 2 : fit;
}

// A cache that has this many free blocks of a class gives half of them to the shared store.
constexpr auto kMostCached = [] {
  std::array<uint32_t, kBins> most{};
  for (size_t bin = 0; bin < kBins; ++bin) most[bin] = kCacheBytes / kBinSize[bin];
  return most;
}();

void push(Bin& bin, void* block) {
  auto* free = static_cast<Free*>(block);
  free->next = bin.head;
  bin.head = free;
  ++bin.count;
}

void* pop(Bin& bin) {
  Free* free = bin.head;
  if (free == nullptr) return nullptr;
  bin.head = free->next;
  --bin.count;
  return free;
}

void move_blocks(Bin& from, Bin& to, uint32_t count) {
  for (; count > 0 && from.head != nullptr; --count) push(to, pop(from));
}

// ---- Under shared.lock ----

bool add_chunk() {
  void* memory = std::malloc(kChunkBytes);
  if (memory == nullptr) return false;
  shared.chunks = new (memory) Chunk{shared.chunks};
  shared.fresh = static_cast<char*>(memory) + sizeof(Chunk);
  shared.fresh_left = kChunkBytes - sizeof(Chunk);
  return true;
}

void* carve(uint32_t bin) {
  const size_t stride = sizeof(Head) + kBinSize[bin];
  if (shared.fresh_left < stride && !add_chunk()) return nullptr;
  Head* head = new (shared.fresh) Head{0, bin, 0};
  shared.fresh += stride;
  shared.fresh_left -= stride;
  return block_of(head);
}

void* shared_take(uint32_t bin) {
  void* block = pop(shared.bins[bin]);
  return block != nullptr ? block : carve(bin);
}

void refill(Bin& to, uint32_t bin) {
  for (uint32_t wanted = batch_of(bin); wanted > 0; --wanted) {
    void* block = shared_take(bin);
    if (block == nullptr) return;
    push(to, block);
  }
}

// ---- Caches ----

void count(Cache* cache, size_t bytes) {
  if (cache != nullptr) {
    cache->live.add(bytes);
    return;
  }
  const std::lock_guard guard(shared.lock);
  shared.live.add(bytes);
}

void release_cache(void* argument) {
  auto* cache = static_cast<Cache*>(argument);
  my_cache = nullptr;
  {
    const std::lock_guard guard(shared.lock);
    for (size_t bin = 0; bin < kBins; ++bin) {
      move_blocks(cache->bins[bin], shared.bins[bin], cache->bins[bin].count);
    }
    shared.live.add(cache->live.get());
    if (cache->next != nullptr) cache->next->prev = cache->prev;
    (cache->prev != nullptr ? cache->prev->next : shared.caches) = cache->next;
  }
  std::free(cache);
}

// The lock must be free in a child process, whatever other threads did when it was forked.
void make_key() {
  key_made = pthread_key_create(&key, release_cache) == 0;
  pthread_atfork([] { shared.lock.lock(); }, [] { shared.lock.unlock(); },
                 [] { shared.lock.unlock(); });
}

// nullptr when there is no memory for a cache: the thread then works on the shared store.
Cache* make_cache() {
  pthread_once(&key_once, make_key);
  if (!key_made) return nullptr;
  void* memory = std::malloc(sizeof(Cache));
  if (memory == nullptr) return nullptr;
  auto* cache = new (memory) Cache;
  if (pthread_setspecific(key, cache) != 0) {
    std::free(cache);
    return nullptr;
  }
  const std::lock_guard guard(shared.lock);
  cache->next = shared.caches;
  if (shared.caches != nullptr) shared.caches->prev = cache;
  shared.caches = cache;
  my_cache = cache;
  return cache;
}

Cache* cache_of_thread() {
  Cache* cache = my_cache;
  return cache != nullptr ? cache : make_cache();
}

size_t sum_live() {
  size_t sum = shared.live.get();
  for (const Cache* cache = shared.caches; cache != nullptr; cache = cache->next) {
    sum += cache->live.get();
  }
  // Threads go on while their counts are added up, so that a block may be seen given but not taken.
  return sum <= SIZE_MAX / 2 ? sum : 0;
}

// ---- Blocks ----

void mark_live(void* block, uint32_t size) {
  Head* head = head_of(block);
  head->size = size;
  head->tag = tag_of(head);
}

// Clears `size` bytes of a pooled block, rounded up to 16, with a few wide stores that may overlap:
// most blocks are small, and calling memset costs more than their fill.
void clear(void* block, uint32_t size) {
  // NOLINTBEGIN(bugprone-implicit-widening-of-multiplication-result): a few small steps
  const size_t whole = (size_t{size} + kStep - 1) / kStep * kStep;
  if (whole > 8 * kStep) {
    std::memset(block, 0, size);
    return;
  }
  auto* from = static_cast<char*>(block);
  char* end = from + whole;
  std::memset(from, 0, kStep);
  std::memset(end - kStep, 0, kStep);
  if (whole <= 2 * kStep) return;
  std::memset(from + kStep, 0, kStep);
  std::memset(end - 2 * kStep, 0, kStep);
  if (whole <= 4 * kStep) return;
  std::memset(from + 2 * kStep, 0, 2 * kStep);
  std::memset(end - 4 * kStep, 0, 2 * kStep);
  // NOLINTEND(bugprone-implicit-widening-of-multiplication-result)
}

void* take_large(uint32_t size) {
  const size_t whole = sizeof(Head) + size;
  if (whole < size) return nullptr;
  auto* head = static_cast<Head*>(std::calloc(1, whole));
  if (head == nullptr) return nullptr;
  head->bin = kNoBin;
  return block_of(head);
}

void* take_shared(Cache* cache, uint32_t bin) {
  const std::lock_guard guard(shared.lock);
  if (cache == nullptr) return shared_take(bin);
  refill(cache->bins[bin], bin);
  return pop(cache->bins[bin]);
}

void* take_pooled(Cache* cache, uint32_t size) {
  const uint32_t bin = bin_of(size);
  void* block = cache != nullptr ? pop(cache->bins[bin]) : nullptr;
  if (block == nullptr) block = take_shared(cache, bin);
  if (block != nullptr) clear(block, size);
  return block;
}

// Charges `size` bytes to the thread unless they would pass `limit`. Takers under a limit wait for
// one another, so that together they don't pass it either.
bool charge(Cache* cache, uint32_t size, uint32_t limit) {
  if (limit == 0) {
    count(cache, size);
    return true;
  }
  const std::lock_guard guard(shared.lock);
  const size_t live = sum_live();
  if (live > limit || limit - live < size) return false;
  (cache != nullptr ? cache->live : shared.live).add(size);
  return true;
}

[[gnu::noinline]] void* take_slowly(uint32_t size, uint32_t limit) {
  Cache* cache = cache_of_thread();
  if (!charge(cache, size, limit)) return nullptr;
  void* block = size <= kMaxPooled ? take_pooled(cache, size) : take_large(size);
  if (block == nullptr) {
    count(cache, size_t{0} - size);
    return nullptr;
  }
  mark_live(block, size);
  return block;
}

[[gnu::noinline]] void give_slowly(void* block) {
  Head* head = head_of(block);
  Cache* cache = cache_of_thread();
  count(cache, size_t{0} - head->size);
  const uint32_t bin = head->bin;
  if (bin == kNoBin) {
    std::free(head);
    return;
  }
  const std::lock_guard guard(shared.lock);
  if (cache == nullptr) {
    push(shared.bins[bin], block);
    return;
  }
  push(cache->bins[bin], block);
  if (cache->bins[bin].count > kMostCached[bin]) {
    move_blocks(cache->bins[bin], shared.bins[bin], cache->bins[bin].count / 2);
  }
}

}  // namespace

void* take(uint32_t size, uint32_t limit) {
  Cache* cache = my_cache;
  if (cache == nullptr || limit != 0 || size > kMaxPooled) return take_slowly(size, limit);
  void* block = pop(cache->bins[bin_of(size)]);
  if (block == nullptr) return take_slowly(size, limit);
  cache->live.add(size);
  mark_live(block, size);
  clear(block, size);
  return block;
}

bool give(void* block) {
  Head* head = live_head(block);
  if (head == nullptr) return false;
  head->tag = 0;
  Cache* cache = my_cache;
  const uint32_t bin = head->bin;
  if (cache == nullptr || bin == kNoBin || cache->bins[bin].count >= kMostCached[bin]) {
    give_slowly(block);
    return true;
  }
  cache->live.add(size_t{0} - head->size);
  push(cache->bins[bin], block);
  return true;
}

size_t live_bytes() {
  const std::lock_guard guard(shared.lock);
  return sum_live();
}

}  // namespace mem

#endif
