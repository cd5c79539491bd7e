// Memory that is given back all at once.
#ifndef DATABASE_STORE_ARENA_H
#define DATABASE_STORE_ARENA_H

#include <cstddef>

namespace rov {

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

#endif
