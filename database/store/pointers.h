// Pointer values that clients attach to nodes: kept in this process only, by client and node.
//
// Looking one up takes no lock and, while nobody has set any, costs one load. Writers take turns. A
// table that has grown too small is kept beside its successor until the end, for readers may be in
// it; all old ones together are no larger than the current one.
#ifndef DATABASE_STORE_POINTERS_H
#define DATABASE_STORE_POINTERS_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

namespace rov {

class PointerTable {
 public:
  PointerTable() = default;
  ~PointerTable();
  PointerTable(const PointerTable&) = delete;
  PointerTable& operator=(const PointerTable&) = delete;

  // 0 when none is set.
  uintptr_t get(uint32_t client, uint32_t node) const;
  // 0 takes the value away. False = no memory.
  bool set(uint32_t client, uint32_t node, uintptr_t value);
  // Takes the values of all clients on that node away.
  void drop_node(uint32_t node);

 private:
  struct Cell {
    std::atomic<uint32_t> node;  // 0 = never used; written last, and once
    std::atomic<uint32_t> client;
    std::atomic<uintptr_t> value;
  };
  struct Block {
    Block* older;
    uint32_t mask;  // cells - 1
    uint32_t used;
    Cell* cells() { return reinterpret_cast<Cell*>(this + 1); }
  };
  static Cell* find(Block* block, uint32_t client, uint32_t node);
  static void add(Block* block, uint32_t client, uint32_t node, uintptr_t value);
  bool grow();

  std::atomic<Block*> block_{nullptr};
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

}  // namespace rov

#endif
