#include "database/store/arena.h"

#include <cstdlib>

#include "database/store/large_memory.h"

namespace rov {
namespace {

constexpr size_t kAlign = alignof(max_align_t);
constexpr size_t kFirstChunk = size_t{4} << 10;
constexpr size_t kLargestChunk = size_t{4} << 20;

constexpr size_t round_up(size_t size) {
  return (size + kAlign - 1) & ~(kAlign - 1);
}

}  // namespace

Arena::~Arena() {
  while (chunks_ != nullptr) {
    Chunk* chunk = chunks_;
    chunks_ = chunk->next;
    free(chunk);
  }
}

void* Arena::take_chunk(size_t size) {
  constexpr size_t kHead = round_up(sizeof(Chunk));
  size_t room = chunks_ == nullptr ? kFirstChunk : chunks_->size * 2;
  if (room > kLargestChunk) room = kLargestChunk;
  const bool own_chunk = size > room / 4;
  if (own_chunk) room = size;
  auto* chunk = static_cast<Chunk*>(large_memory(kHead + room));
  if (chunk == nullptr) return nullptr;
  char* start = reinterpret_cast<char*>(chunk) + kHead;
  if (own_chunk && chunks_ != nullptr) {
    // Behind the current chunk, which still has room for small things.
    *chunk = {chunks_->next, room};
    chunks_->next = chunk;
    return start;
  }
  *chunk = {chunks_, room};
  chunks_ = chunk;
  free_ = start + size;
  left_ = room - size;
  return start;
}

void* Arena::take(size_t size) {
  size = round_up(size);
  if (size > left_) return take_chunk(size);
  void* taken = free_;
  free_ += size;
  left_ -= size;
  return taken;
}

}  // namespace rov
