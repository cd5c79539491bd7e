#include "tests/system/fault/refusing_arena.h"

#include <cstdlib>

#include "database/store/arena.h"

namespace {

constexpr uint32_t kNever = 0xffffffff;

uint32_t g_requests = 0;
uint32_t g_refused = kNever;

}  // namespace

namespace refusing_arena {

void begin(uint32_t at) {
  g_requests = 0;
  g_refused = at;
}

bool end() {
  const bool refused = g_requests > g_refused;
  g_refused = kNever;
  return refused;
}

}  // namespace refusing_arena

namespace rov {

Arena::~Arena() {
  while (chunks_ != nullptr) {
    Chunk* chunk = chunks_;
    chunks_ = chunk->next;
    free(chunk);
  }
}

void* Arena::take(size_t size) {
  constexpr size_t kAlign = alignof(max_align_t);
  constexpr size_t kHead = (sizeof(Chunk) + kAlign - 1) & ~(kAlign - 1);
  if (g_requests++ == g_refused) return nullptr;
  auto* chunk = static_cast<Chunk*>(malloc(kHead + size));
  if (chunk == nullptr) return nullptr;
  *chunk = {chunks_, size};
  chunks_ = chunk;
  return reinterpret_cast<char*>(chunk) + kHead;
}

}  // namespace rov
