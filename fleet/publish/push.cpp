// A push: what it would do, and doing it.
#include "fleet/publish/push.h"

#include "fleet/base/compression.h"
#include "fleet/publish/rollout.h"
#include "fleet/state/difference.h"
#include "fleet/state/state_digest.h"
#include "policy/base/names.h"
#include "policy/base/text.h"

namespace qim::fleet {

std::string to_string(const NodeCounts& counts) {
  return qimctl::counted(counts.added, "node") + " added, " + std::to_string(counts.changed) +
         " changed, " + std::to_string(counts.removed) + " removed";
}

NodeCounts count_nodes(const std::string& difference) {
  NodeCounts counts;
  for (const NodeChange& change : parse_difference(difference)) {
    if (change.fate == NodeFate::added) counts.added++;
    if (change.fate == NodeFate::changed) counts.changed++;
    if (change.fate == NodeFate::removed) counts.removed++;
  }
  return counts;
}

PushPlan plan_push(const Scope& scope, Wanted wanted, std::optional<uint64_t> expect) {
  PushPlan plan;
  plan.before = scope.head();
  const Head& head = plan.before.head;
  if (expect && *expect != head.next)
    throw RefusedError("the newest revision of " + qimctl::quoted(scope.name()) + " is " +
                       std::to_string(head.next) + ", not " + std::to_string(*expect) +
                       "; see what 'qimctl fleet log' says of it");
  if (is_under_way(head))
    throw RefusedError("revision " + std::to_string(head.next) + " of " +
                       qimctl::quoted(scope.name()) + " is not rolled out (" + stage_text(head) +
                       "); advance it to all, or roll back");
  const State from = scope.state(head.next);
  plan.target = build_target(from, std::move(wanted));
  plan.difference = difference(from, plan.target.state);
  plan.nodes = count_nodes(plan.difference);
  plan.number = head.last + 1;
  if (head.next != 0) {
    const Revision last = scope.revision(head.next);
    plan.newest_snapshot = last.newest_snapshot;
    plan.chain_bytes = last.chain_bytes;
  }
  return plan;
}

Revision push(const Scope& scope, const PushPlan& plan, const std::string& message) {
  const Head& head = plan.before.head;
  Revision revision;
  revision.scope = scope.name();
  revision.number = plan.number;
  revision.predecessor = head.next;
  revision.predecessor_state = head.next == 0 ? state_digest(State()) : head.next_state;
  revision.state = state_digest(plan.target.state);
  std::string packed = compress(plan.difference);
  revision.newest_snapshot = plan.newest_snapshot;
  revision.chain_bytes = plan.chain_bytes + packed.size();
  revision.has_difference = packed.size() <= most_difference;
  if (revision.has_difference) {
    revision.difference = std::move(packed);
    revision.difference_plain = plan.difference.size();
  }
  revision.has_snapshot = !revision.has_difference ||
                          plan.number - plan.newest_snapshot >= snapshot_revisions ||
                          revision.chain_bytes > snapshot_bytes;
  if (revision.has_snapshot) {
    revision.snapshot = scope.store_chunks(plan.target.state);
    revision.newest_snapshot = plan.number;
    revision.chain_bytes = 0;
  }
  revision.author = scope.publisher().author;
  revision.time = scope.publisher().clock.now();
  revision.message = message;

  Head moved = head;
  moved.last = plan.number;
  // What nobody could take yet is nothing to go back to.
  if (has_begun(head)) {
    moved.base = head.next;
    moved.base_state = head.next_state;
  }
  moved.next = plan.number;
  moved.next_state = revision.state;
  moved.stage = {};
  moved.what = "push";
  moved.carried.clear();
  scope.move(plan.before, std::move(moved), &revision);
  // Somebody who pruned meanwhile may have taken chunks for old ones that this revision needs.
  if (revision.has_snapshot) scope.store_chunks(plan.target.state);
  return revision;
}

}  // namespace qim::fleet
