// Nodes to be visited, each once, in the order in which they were first met.
#ifndef DATABASE_SESSION_NODE_QUEUE_H
#define DATABASE_SESSION_NODE_QUEUE_H

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace rov {

class NodeQueue {
 public:
  NodeQueue() = default;
  ~NodeQueue() {
    free(nodes_);
    free(cells_);
  }
  NodeQueue(const NodeQueue&) = delete;
  NodeQueue& operator=(const NodeQueue&) = delete;

  // Adds a node that is not there yet; 0 is none. False = out of memory.
  bool add(uint32_t node) {
    if (node == 0) return true;
    if (!reserve()) return false;
    uint32_t& cell = cells_[find(node)];
    if (cell != 0) return true;
    nodes_[count_++] = node;
    cell = count_;
    return true;
  }

  uint32_t count() const { return count_; }
  uint32_t at(uint32_t i) const { return nodes_[i]; }

 private:
  // The cell that holds the node's place counted from 1, or the free one where it belongs.
  uint32_t find(uint32_t node) const {
    uint32_t i = (node * 0x9e3779b9U) & mask_;
    while (cells_[i] != 0 && nodes_[cells_[i] - 1] != node) i = (i + 1) & mask_;
    return i;
  }

  // Keeps half of the cells free.
  bool reserve() {
    if (cells_ != nullptr && count_ < (mask_ + 1) / 2) return true;
    const uint32_t cells = cells_ == nullptr ? 64 : (mask_ + 1) * 2;
    auto* nodes = static_cast<uint32_t*>(realloc(nodes_, sizeof(uint32_t) * (cells / 2)));
    if (nodes == nullptr) return false;
    nodes_ = nodes;
    auto* fresh = static_cast<uint32_t*>(calloc(cells, sizeof(uint32_t)));
    if (fresh == nullptr) return false;
    free(cells_);
    cells_ = fresh;
    mask_ = cells - 1;
    for (uint32_t i = 0; i < count_; ++i) cells_[find(nodes_[i])] = i + 1;
    return true;
  }

  uint32_t* nodes_ = nullptr;
  uint32_t* cells_ = nullptr;
  uint32_t mask_ = 0;
  uint32_t count_ = 0;
};

}  // namespace rov

#endif
