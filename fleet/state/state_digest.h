// A digest over a state: that of its blocks' digests, so that few changes need few nodes read again.
//
// A block holds the nodes whose identifiers differ in the lowest eight bits only; its digest is the
// SHA-256 of their bytes as they stand in a state (state.h). The state's digest is the SHA-256 of
// "qim state 1", a newline, and of each block that has nodes, ascending, its number (identifier / 256,
// 4 bytes) and its digest.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "fleet/base/digest.h"
#include "fleet/state/difference.h"
#include "fleet/state/state.h"

namespace qim::fleet {

Digest state_digest(const State& state);

// The digests of a database's blocks.
class BlockDigests {
 public:
  // Of everything that a session of the database sees. Throws DatabaseError.
  void read(uint32_t session);
  // Reads the blocks again in which these nodes are.
  void refresh(uint32_t session, const std::vector<uint32_t>& nodes);
  Digest digest() const;

 private:
  std::map<uint32_t, Digest> blocks_;
};

}  // namespace qim::fleet
