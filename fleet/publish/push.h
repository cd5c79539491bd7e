// Pushing a revision.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fleet/publish/scope.h"
#include "fleet/publish/scratch.h"

namespace qim::fleet {

// A snapshot is stored with a revision when the last one is so many revisions, or bytes of
// differences, behind.
inline constexpr uint64_t snapshot_revisions = 64;
inline constexpr uint64_t snapshot_bytes = 1024 * 1024;
// A longer difference is left out: who needs it takes the snapshot.
inline constexpr size_t most_difference = 512 * 1024;

struct NodeCounts {
  size_t added = 0;
  size_t changed = 0;
  size_t removed = 0;

  bool any() const { return added + changed + removed != 0; }
};
// "3 nodes added, 1 changed, 0 removed"
std::string to_string(const NodeCounts& counts);
// What a difference does to nodes.
NodeCounts count_nodes(const std::string& difference);

// What a push is about to do.
struct PushPlan {
  StoredHead before;
  PushTarget target;
  std::string difference;  // not compressed
  NodeCounts nodes;
  uint64_t number = 0;           // the revision's
  uint64_t newest_snapshot = 0;  // of those before it, 0 = none
  uint64_t chain_bytes = 0;      // of the differences since then

  bool any() const { return nodes.any(); }
};

// Throws RefusedError when the newest revision is not `expect`, or one is on its way.
PushPlan plan_push(const Scope& scope, Wanted wanted, std::optional<uint64_t> expect);
// Stores the revision and makes it what is next; no device takes it before its rollout begins.
Revision push(const Scope& scope, const PushPlan& plan, const std::string& message);

}  // namespace qim::fleet
