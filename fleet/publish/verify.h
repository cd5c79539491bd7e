// Looking a whole scope over.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "fleet/publish/scope.h"

namespace qim::fleet {

struct Verification {
  size_t revisions = 0;
  size_t snapshots = 0;
  std::vector<std::string> defects;  // what is wrong, a line each
};

// Makes every revision's state anew: signatures, predecessors, differences, snapshots, digests and the
// head. Throws StoreError.
Verification verify_scope(const Scope& scope);

}  // namespace qim::fleet
