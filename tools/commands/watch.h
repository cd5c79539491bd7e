// `qimctl watch`: following the changes of a database.
#pragma once

#include <cstdint>
#include <optional>

#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

struct WatchOptions {
  uint64_t from = 0;                // the revision after which changes are wanted, 0 = from now on
  std::optional<uint64_t> count;    // stop after so many lines
  std::optional<uint32_t> seconds;  // stop when none came for so long
  std::optional<uint32_t> type;     // node by node, those of this type
  bool raw = false;                 // node by node
  bool acl = false;                 // what became of access lists, and nothing else
  OutputForm form = OutputForm::table;
};

// Prints changes as they come: a line for each change of a node or link, or one for each list and
// revision: in words unless `raw`, for programs if `acl`. A gap, where changes were lost, says so
// where nodes are told.
void watch_changes(const Database& database, const WatchOptions& options);

// The words. Waits as the other does.
void watch_lists(const Database& database, const WatchOptions& options);

// A document where there may be no end of them: a line in JSON, in whichever form; in YAML one with a
// mark in front, so that many are no contradiction.
std::string line_text(const JsonValue& value, OutputForm form);

// Waits until a descriptor is readable. False when nothing came in time.
bool wait_for(int fd, const std::optional<uint32_t>& seconds);

}  // namespace qimctl
