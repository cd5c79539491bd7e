// Taking old revisions, and parts of snapshots that nobody needs any more, out of the store.
#pragma once

#include <cstdint>

#include "fleet/publish/scope.h"

namespace qim::fleet {

struct Pruned {
  uint64_t first = 0;  // revision that is kept; what comes before it is gone
  size_t revisions = 0;
  size_t chunks = 0;
};

// Keeps the newest `keep` revisions; whatever the head names and devices say that they hold, with all that
// comes after; and what these are made of, back to a snapshot. Parts of snapshots go that no revision of
// any scope has. `dry`: only counts. Throws RefusedError when a head was moved meanwhile; then less is gone.
Pruned prune(const Scope& scope, uint64_t keep, bool dry);

}  // namespace qim::fleet
