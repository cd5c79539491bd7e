// The process's pool of blocks: what mem.h hands out.
//
// Blocks of up to 4 KiB come from size classes. Each thread keeps a cache of free blocks of its
// own, so that taking and giving costs neither a lock nor an atomic read-modify-write; caches
// exchange blocks with a shared store in batches. Memory that the size classes took from the system
// stays with the pool for re-use. Larger blocks come from the C library and go back to it. Built
// with the address sanitizer every block comes from the C library, so that overruns and leaks show.
#ifndef DATABASE_MEMORY_POOL_H
#define DATABASE_MEMORY_POOL_H

#include <cstddef>
#include <cstdint>

#include "database/memory/block.h"
#include "rov_types.h"

namespace mem {

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

}  // namespace mem

// Where these three are inline.
#ifndef MEM_UNDER_ASAN
#include "database/memory/cache.h"
#endif

namespace mem {

// A zero-filled block of a client's pool, but only what is at hand without further questions:
// nullptr when nothing is, which is no failure yet.
inline void* take_at_hand(uint32_t size, const rov_mem_ctx_t* pool) {
  if (pool != nullptr && (pool->pool != nullptr || pool->limit != 0)) return nullptr;
  return take_cached(size);
}

}  // namespace mem

#endif
