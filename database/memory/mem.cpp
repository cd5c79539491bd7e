// C entries: memory.
#include <cstdint>

#include "database/memory/pool.h"
#include "mem.h"
#include "rov.h"

namespace {

// The database has one pool, the process's: a context that names another was not made here.
bool knows(const rov_mem_ctx_t* pool) {
  return pool == nullptr || pool->pool == nullptr;
}

uint32_t limit_of(const rov_mem_ctx_t* pool) {
  return pool == nullptr ? 0 : pool->limit;
}

// Empties every output. False, and nothing is written, when there is one missing.
bool clear_outputs(uint32_t count, const mem_request_t* requests) {
  if (requests == nullptr) return count == 0;
  for (uint32_t i = 0; i < count; ++i) {
    if (requests[i].out == nullptr) return false;
  }
  for (uint32_t i = 0; i < count; ++i) *requests[i].out = nullptr;
  return true;
}

void give_first(uint32_t count, const mem_request_t* requests) {
  for (uint32_t i = 0; i < count; ++i) {
    if (*requests[i].out != nullptr) mem::give(*requests[i].out);
    *requests[i].out = nullptr;
  }
}

[[gnu::noinline]] uint32_t take_with(uint32_t size, const rov_mem_ctx_t* pool, void** out) {
  *out = nullptr;
  if (!knows(pool)) return ROV_ERR_INVALID;
  if (size == 0) return ROV_OK;
  *out = mem::take(size, limit_of(pool));
  return *out != nullptr ? ROV_OK : ROV_ERR_NO_MEM;
}

}  // namespace

extern "C" uint32_t mem_zalloc(uint32_t size, rov_mem_ctx_t* pool, void** out) {
  if (out == nullptr) return ROV_ERR_INVALID;
  void* block = mem::take_at_hand(size, pool);
  if (block == nullptr) return take_with(size, pool, out);
  *out = block;
  return ROV_OK;
}

extern "C" uint32_t mem_alloc_ary(uint32_t count, const mem_request_t* requests,
                                  rov_mem_ctx_t* pool) {
  if (!clear_outputs(count, requests) || !knows(pool)) return ROV_ERR_INVALID;
  const uint32_t limit = limit_of(pool);
  for (uint32_t i = 0; i < count; ++i) {
    if (requests[i].size == 0) continue;
    void* block = mem::take(requests[i].size, limit);
    if (block == nullptr) {
      give_first(i, requests);
      return ROV_ERR_NO_MEM;
    }
    *requests[i].out = block;
  }
  return ROV_OK;
}

extern "C" uint32_t mem_free(void* block, rov_mem_ctx_t* pool) {
  return knows(pool) && mem::give(block) ? ROV_OK : ROV_ERR_INVALID;
}
