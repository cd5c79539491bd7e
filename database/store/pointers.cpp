// Pointer values on nodes: a hash table that is read without a lock.
#include "database/store/pointers.h"

#include <cstdlib>

namespace rov {
namespace {

constexpr uint32_t kFirstPointerCells = 64;

uint32_t hash(uint32_t client, uint32_t node) {
  // Multiplicative hashing (Knuth, TAOCP 6.4) of both numbers.
  uint32_t mixed = (node * 2654435769U) ^ (client * 2246822519U);
  return mixed ^ (mixed >> 15);
}

}  // namespace

PointerTable::~PointerTable() {
  Block* block = block_.load(std::memory_order_relaxed);
  while (block != nullptr) {
    Block* older = block->older;
    free(block);
    block = older;
  }
}

// The cell of that key, NULL when it has none. The unused cell where the search ends is no answer: it
// can become another key's at any moment. A block always has unused cells.
PointerTable::Cell* PointerTable::find(Block* block, uint32_t client, uint32_t node) {
  for (uint32_t at = hash(client, node);; ++at) {
    Cell* cell = &block->cells()[at & block->mask];
    const uint32_t found = cell->node.load(std::memory_order_acquire);
    if (found == 0) return nullptr;
    if (found == node && cell->client.load(std::memory_order_relaxed) == client) return cell;
  }
}

// Gives a key that has no cell the unused one where it belongs. Only who holds the mutex may.
void PointerTable::add(Block* block, uint32_t client, uint32_t node, uintptr_t value) {
  uint32_t at = hash(client, node);
  while (block->cells()[at & block->mask].node.load(std::memory_order_relaxed) != 0) ++at;
  Cell& cell = block->cells()[at & block->mask];
  cell.value.store(value, std::memory_order_relaxed);
  cell.client.store(client, std::memory_order_relaxed);
  cell.node.store(node, std::memory_order_release);
  ++block->used;
}

uintptr_t PointerTable::get(uint32_t client, uint32_t node) const {
  Block* block = block_.load(std::memory_order_acquire);
  if (block == nullptr) [[likely]]
    return 0;
  const Cell* cell = find(block, client, node);
  return cell == nullptr ? 0 : cell->value.load(std::memory_order_acquire);
}

bool PointerTable::grow() {
  Block* old = block_.load(std::memory_order_relaxed);
  const uint32_t cells = old == nullptr ? kFirstPointerCells : (old->mask + 1) * 2;
  auto* block = static_cast<Block*>(calloc(1, sizeof(Block) + size_t{cells} * sizeof(Cell)));
  if (block == nullptr) return false;
  block->older = old;
  block->mask = cells - 1;
  for (uint32_t at = 0; old != nullptr && at <= old->mask; ++at) {
    const Cell& cell = old->cells()[at];
    const uintptr_t value = cell.value.load(std::memory_order_relaxed);
    if (value == 0) continue;
    add(block, cell.client.load(std::memory_order_relaxed),
        cell.node.load(std::memory_order_relaxed), value);
  }
  block_.store(block, std::memory_order_release);
  return true;
}

bool PointerTable::set(uint32_t client, uint32_t node, uintptr_t value) {
  pthread_mutex_lock(&mutex_);
  Block* block = block_.load(std::memory_order_relaxed);
  Cell* cell = block == nullptr ? nullptr : find(block, client, node);
  bool done = true;
  if (cell != nullptr) {
    cell->value.store(value, std::memory_order_release);
  } else if (value != 0) {
    const bool full = block == nullptr || block->used >= block->mask / 2;
    done = !full || grow();
    if (done) add(block_.load(std::memory_order_relaxed), client, node, value);
  }
  pthread_mutex_unlock(&mutex_);
  return done;
}

void PointerTable::drop_node(uint32_t node) {
  Block* block = block_.load(std::memory_order_acquire);
  if (block == nullptr) return;
  pthread_mutex_lock(&mutex_);
  block = block_.load(std::memory_order_relaxed);
  for (uint32_t at = 0; at <= block->mask; ++at) {
    Cell& cell = block->cells()[at];
    if (cell.node.load(std::memory_order_relaxed) == node) {
      cell.value.store(0, std::memory_order_release);
    }
  }
  pthread_mutex_unlock(&mutex_);
}

}  // namespace rov
