// Memory for edits and hints: in large pieces, and an arena that is given back all at once.
#pragma once

#include <cstddef>

namespace rov {

// Memory in large pieces, given back with free(): where the system has large pages for it, looking here and there in it
// costs fewer walks through the page tables.
// NULL when there is none. Small sizes are malloc's and calloc's.
void* large_memory(size_t size);
void* zeroed_memory(size_t size);

class Arena {
 public:
  Arena() = default;
  ~Arena();
  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;

  // `size` bytes aligned for any object, contents unspecified; NULL when there is no memory.
  void* take(size_t size);

 private:
  struct Chunk {
    Chunk* next;
    size_t size;
  };
  void* take_chunk(size_t size);

  Chunk* chunks_ = nullptr;
  char* free_ = nullptr;
  size_t left_ = 0;
};

}  // namespace rov
