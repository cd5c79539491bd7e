// Making a database hold again what a session of it, or of a snapshot, reads: with the fewest edits of
// nodes, so that whoever follows the database learns of nothing else.
#pragma once

#include <cstdint>

#include "policy/store/database.h"

namespace qimctl {

// How many edits there are.
struct NodeEdits {
  uint64_t nodes_put = 0;
  uint64_t nodes_deleted = 0;
  uint64_t links = 0;     // put and deleted
  uint64_t privates = 0;  // private data put and taken away, of all clients

  uint64_t total() const { return nodes_put + nodes_deleted + links + privates; }
};

// Compares all nodes with their links, data-set names and the private data of all clients. Makes
// `held` into `wanted` through the write session, which sees what `held` does; NULL only counts.
NodeEdits roll_back(const ReadSession& wanted, const ReadSession& held, const WriteSession* writer);

}  // namespace qimctl
