#include "database/memory/pool.h"

#ifndef MEM_UNDER_ASAN

#include <pthread.h>

#include <cstdlib>
#include <mutex>
#include <new>

namespace mem {
namespace {

constexpr size_t kChunkBytes = size_t{64} * 1024;
constexpr uint32_t kCacheBytes = 32 * 1024;  // most free bytes of a class that a thread keeps
constexpr uint32_t kBatchBytes = 4 * 1024;   // what it fetches from the shared store at once
constexpr uint32_t kLargeBin = kBins;        // of blocks that are the C library's own

struct Chunk {
  alignas(kAlign) Chunk* next;
};

// What all threads share, under `lock`.
struct Shared {
  std::mutex lock;
  Free* bins[kBins] = {};
  char* fresh = nullptr;  // never used part of the newest chunk
  size_t fresh_left = 0;
  Chunk* chunks = nullptr;
  Cache* caches = nullptr;
  Count live;  // of threads that have no cache, or have ended
};

constinit Shared shared;
pthread_once_t key_once = PTHREAD_ONCE_INIT;
pthread_key_t key;
bool key_made = false;

uint32_t batch_of(uint32_t bin) {
  const uint32_t fit = kBatchBytes / kBinSize[bin];
  return fit < 2 ? 2 : fit;
}

// A cache that has this many free blocks of a class gives half of them to the shared store.
uint32_t most_cached(uint32_t bin) {
  return kCacheBytes / kBinSize[bin];
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

void refill(CacheBin& to, uint32_t bin) {
  for (uint32_t wanted = batch_of(bin); wanted > 0; --wanted) {
    void* block = shared_take(bin);
    if (block == nullptr) return;
    push(to.free, block);
    --to.room;
  }
}

void put_back(CacheBin& from, uint32_t bin, uint32_t count) {
  for (; count > 0 && from.free != nullptr; --count) {
    push(shared.bins[bin], pop(from.free));
    ++from.room;
  }
}

// ---- Caches ----

// `cache`: nullptr stands for threads that have none, as below.
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
  my_cache = &no_cache;
  {
    const std::lock_guard guard(shared.lock);
    for (uint32_t bin = 0; bin < kBins; ++bin) {
      put_back(cache->bins[bin], bin, most_cached(bin));
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
  for (uint32_t bin = 0; bin < kBins; ++bin) cache->bins[bin].room = most_cached(bin);
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
  return cache != &no_cache ? cache : make_cache();
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

void* take_large(uint32_t size) {
  const size_t whole = sizeof(Head) + size;
  if (whole < size) return nullptr;
  auto* head = static_cast<Head*>(std::calloc(1, whole));
  if (head == nullptr) return nullptr;
  head->bin = kLargeBin;
  return block_of(head);
}

void* take_pooled(Cache* cache, uint32_t size) {
  const uint32_t bin = bin_of(size);
  void* block = nullptr;
  {
    const std::lock_guard guard(shared.lock);
    if (cache == nullptr) {
      block = shared_take(bin);
    } else {
      CacheBin& own = cache->bins[bin];
      if (own.free == nullptr) refill(own, bin);
      block = pop(own.free);
      if (block != nullptr) ++own.room;
    }
  }
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

}  // namespace

constinit Cache no_cache;
constinit thread_local Cache* my_cache = &no_cache;

// Not inline, where the compiler would know that pooled blocks are small and clear them by an
// instruction that takes longer to start than that takes.
void clear_many(void* block, size_t size) {
  std::memset(block, 0, size);
}

void* take_slowly(uint32_t size, uint32_t limit) {
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

void give_slowly(void* block) {
  Head* head = head_of(block);
  Cache* cache = cache_of_thread();
  count(cache, size_t{0} - head->size);
  const uint32_t bin = head->bin;
  if (bin == kLargeBin) {
    std::free(head);
    return;
  }
  const std::lock_guard guard(shared.lock);
  if (cache == nullptr) {
    push(shared.bins[bin], block);
    return;
  }
  CacheBin& own = cache->bins[bin];
  if (own.room == 0) put_back(own, bin, most_cached(bin) / 2);
  push(own.free, block);
  --own.room;
}

size_t live_bytes() {
  const std::lock_guard guard(shared.lock);
  return sum_live();
}

}  // namespace mem

#endif
