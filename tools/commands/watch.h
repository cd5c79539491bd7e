// `qimctl watch`: following the changes of a database.
#pragma once

#include <cstdint>
#include <optional>

#include "policy/store/database.h"

namespace qimctl {

struct WatchOptions {
  uint64_t from = 0;                // the revision after which changes are wanted, 0 = from now on
  std::optional<uint64_t> count;    // stop after so many messages
  std::optional<uint32_t> seconds;  // stop when none came for so long
  bool json = false;
};

// Prints changes as they come, a line each; a gap, where changes were lost, says so.
void watch_changes(const Database& database, const WatchOptions& options);

}  // namespace qimctl
