// A database's content as a state, and a database made to have one.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "fleet/state/difference.h"
#include "policy/store/database.h"

namespace qim::fleet {

// Calls `visit` for each node that a session sees from `first` to `last`, ascending. Throws
// DatabaseError.
void each_stored(uint32_t session, uint32_t first, uint32_t last,
                 const std::function<void(const NodeView&)>& visit);

// All that a session sees. Throws DatabaseError.
State read_state(uint32_t session);

// Of the nodes of that list, ascending, those that are there.
State read_nodes(uint32_t session, const std::vector<uint32_t>& nodes);

// Edits of a write session, and which nodes they touched.
struct StateEdits {
  uint64_t nodes_put = 0;
  uint64_t nodes_removed = 0;
  uint64_t links = 0;
  std::vector<uint32_t> touched;  // ascending

  uint64_t total() const { return nodes_put + nodes_removed + links; }
};

// Both make the smallest edits, so that whoever follows the database learns of nothing else, and throw
// ForgedError where a change does not fit what is there, and DatabaseError. What clients keep on nodes
// that stay is left alone.
StateEdits apply_changes(const qimctl::WriteSession& writer,
                         const std::vector<NodeChange>& changes);
// `held` sees what the write session began with. `writer` may be NULL: then edits are only counted.
StateEdits apply_state(const qimctl::WriteSession* writer, const qimctl::ReadSession& held,
                       const State& wanted);

}  // namespace qim::fleet
