#include "database/memory/block.h"
#include "database/memory/pool.h"

#ifdef MEM_UNDER_ASAN

#include <atomic>

namespace mem {
namespace {

std::atomic<size_t> live{0};

bool charge(uint32_t size, uint32_t limit) {
  size_t before = live.load();
  do {
    if (limit != 0 && (before > limit || limit - before < size)) return false;
  } while (!live.compare_exchange_weak(before, before + size));
  return true;
}

}  // namespace

void* take_cached(uint32_t) {
  return nullptr;
}

void* take(uint32_t size, uint32_t limit) {
  const size_t whole = sizeof(Head) + size;
  if (whole < size || !charge(size, limit)) return nullptr;
  auto* head = static_cast<Head*>(std::calloc(1, whole));
  if (head == nullptr) {
    live -= size;
    return nullptr;
  }
  head->size = size;
  head->tag = tag_of(head);
  return block_of(head);
}

bool give(void* block) {
  Head* head = live_head(block);
  if (head == nullptr) return false;
  live -= head->size;
  head->tag = 0;
  std::free(head);
  return true;
}

size_t live_bytes() {
  return live.load();
}

}  // namespace mem

#endif
