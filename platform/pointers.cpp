#include "platform/pointers.h"

#include <cstdlib>

namespace rov {
namespace {

constexpr uint32_t kFirstCells = 64;

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

// The cell of that key. NULL when it has none: the unused one where it belongs then is *unused,
// which only who holds the mutex may look into, since it can become another key's at any moment. A
// block always has unused cells.
PointerTable::Cell* PointerTable::find(Block* block, uint32_t client, uint32_t node,
                                       Cell** unused) {
  for (uint32_t at = hash(client, node);; ++at) {
    Cell* cell = &block->cells()[at & block->mask];
    const uint32_t found = cell->node.load(std::memory_order_acquire);
    if (found == 0) {
      *unused = cell;
      return nullptr;
    }
    if (found == node && cell->client.load(std::memory_order_relaxed) == client) return cell;
  }
}

uintptr_t PointerTable::get(uint32_t client, uint32_t node) const {
  Block* block = block_.load(std::memory_order_acquire);
  if (block == nullptr) [[likely]]
    return 0;
  Cell* unused = nullptr;
  const Cell* cell = find(block, client, node, &unused);
  return cell == nullptr ? 0 : cell->value.load(std::memory_order_acquire);
}

bool PointerTable::grow() {
  Block* old = block_.load(std::memory_order_relaxed);
  const uint32_t cells = old == nullptr ? kFirstCells : (old->mask + 1) * 2;
  auto* block = static_cast<Block*>(calloc(1, sizeof(Block) + size_t{cells} * sizeof(Cell)));
  if (block == nullptr) return false;
  block->older = old;
  block->mask = cells - 1;
  for (uint32_t at = 0; old != nullptr && at <= old->mask; ++at) {
    Cell& cell = old->cells()[at];
    const uintptr_t value = cell.value.load(std::memory_order_relaxed);
    if (value == 0) continue;
    const uint32_t client = cell.client.load(std::memory_order_relaxed);
    const uint32_t node = cell.node.load(std::memory_order_relaxed);
    Cell* copy = nullptr;
    find(block, client, node, &copy);
    copy->value.store(value, std::memory_order_relaxed);
    copy->client.store(client, std::memory_order_relaxed);
    copy->node.store(node, std::memory_order_relaxed);
    ++block->used;
  }
  block_.store(block, std::memory_order_release);
  return true;
}

bool PointerTable::set(uint32_t client, uint32_t node, uintptr_t value) {
  pthread_mutex_lock(&mutex_);
  Block* block = block_.load(std::memory_order_relaxed);
  Cell* unused = nullptr;
  Cell* cell = block == nullptr ? nullptr : find(block, client, node, &unused);
  bool done = true;
  if (cell != nullptr) {
    cell->value.store(value, std::memory_order_release);
  } else if (value != 0) {
    if (block == nullptr || block->used >= block->mask / 2) {
      done = grow();
      block = block_.load(std::memory_order_relaxed);
      if (done) find(block, client, node, &unused);
    }
    if (done) {
      unused->value.store(value, std::memory_order_relaxed);
      unused->client.store(client, std::memory_order_relaxed);
      unused->node.store(node, std::memory_order_release);
      ++block->used;
    }
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
