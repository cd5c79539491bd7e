// Moves of the head.
#include "fleet/publish/rollout.h"

#include "fleet/base/backoff.h"
#include "fleet/publish/device_status.h"
#include "policy/base/names.h"
#include "policy/base/text.h"

namespace qim::fleet {

namespace {

StoredHead head_under_way(const Scope& scope) {
  StoredHead stored = scope.require_head();
  if (stored.head.next == stored.head.base)
    throw RefusedError("revision " + std::to_string(stored.head.next) + " of " +
                       qimctl::quoted(scope.name()) +
                       " is on all devices; there is nothing to roll out");
  return stored;
}

// Devices that are told of a stage have what they need for it at once, if that is short.
std::string carried_by(const Scope& scope, uint64_t number) {
  const Publisher& publisher = scope.publisher();
  const GetAnswer answer = publisher.store.get(publisher.keys.revision(scope.name(), number));
  if (!answer.found || answer.found->value.size() > most_carried) return "";
  return answer.found->value;
}

Head moved_to(const Scope& scope, const StoredHead& before, Head head, const char* what) {
  head.what = what;
  head.carried.clear();
  if (has_begun(head) && !head.stage.hold) head.carried = carried_by(scope, head.next);
  scope.move(before, head);
  return head;
}

Head hold_for_failures(const Scope& scope, const StoredHead& before) {
  Head head = before.head;
  head.stage.hold = true;
  return moved_to(scope, before, std::move(head), "held by failures");
}

Progress progress_at(const Scope& scope, const Head& head) {
  Progress progress;
  progress.head = head;
  const std::vector<DeviceStatus> devices = read_statuses(scope);
  progress.refused = count_refusals(devices, head.next);
  for (const DeviceStatus& device : devices) {
    if (wanted_of(head, device) != head.next || !device.problem.empty()) continue;
    progress.devices++;
    if (device.status.applied == head.next) progress.there++;
  }
  return progress;
}

}  // namespace

bool has_begun(const Head& head) {
  return head.next != head.base && (head.stage.percent != 0 || !head.stage.labels.empty());
}

bool is_under_way(const Head& head) {
  return has_begun(head) && (head.stage.percent < 100 || head.stage.hold);
}

std::string stage_text(const Head& head) {
  if (head.next == head.base) return "all";
  const Stage& stage = head.stage;
  if (!has_begun(head)) return "not begun";
  const bool all = stage.percent >= 100;
  std::string text = all ? "all" : std::to_string(stage.percent) + " %";
  for (size_t i = 0; i < stage.labels.size() && !all; i++)
    text += (i == 0 ? " and " : ", ") + qimctl::printable(stage.labels[i]);
  return text + (stage.hold ? ", held" : "");
}

Head start_rollout(const Scope& scope, Stage stage) {
  const StoredHead before = head_under_way(scope);
  if (has_begun(before.head))
    throw RefusedError("the rollout of revision " + std::to_string(before.head.next) +
                       " has begun (" + stage_text(before.head) + "); advance it instead");
  Head head = before.head;
  head.stage = std::move(stage);
  head.stage.salt = std::to_string(random_seed());
  return moved_to(scope, before, std::move(head), "rollout start");
}

Head advance_rollout(const Scope& scope, const Advance& advance) {
  const StoredHead before = head_under_way(scope);
  Head head = before.head;
  if (!has_begun(head))
    throw RefusedError("the rollout of revision " + std::to_string(head.next) +
                       " has not begun; start it first");
  if (advance.percent < head.stage.percent)
    throw RefusedError("devices that took revision " + std::to_string(head.next) +
                       " are not taken out of its rollout; hold it, or roll back");
  const size_t failures = count_refusals(read_statuses(scope), head.next);
  if (!advance.force && failures > head.stage.max_failures) {
    hold_for_failures(scope, before);
    throw RefusedError(failures_text(head, failures));
  }
  if (failures > head.stage.max_failures) head.stage.max_failures = static_cast<uint32_t>(failures);
  head.stage.percent = advance.percent;
  head.stage.hold = false;
  return moved_to(scope, before, std::move(head), "rollout advance");
}

bool has_failed(const Progress& progress) {
  return progress.refused > progress.head.stage.max_failures;
}

std::string to_string(const Progress& progress) {
  return std::to_string(progress.there) + " of " + qimctl::counted(progress.devices, "device") +
         (progress.there == 1 ? " holds" : " hold") + " revision " +
         std::to_string(progress.head.next) + ", " + std::to_string(progress.refused) +
         " refused it";
}

std::string failures_text(const Head& head, size_t failures) {
  return qimctl::counted(failures, "device") + " refused revision " + std::to_string(head.next) +
         ", and " + std::to_string(head.stage.max_failures) +
         " may: it is held; see 'qimctl fleet status --refused', then roll back, or go on with "
         "'rollout advance --force'";
}

Progress progress_of(const Scope& scope) {
  return progress_at(scope, scope.require_head().head);
}

Progress guard_rollout(const Scope& scope) {
  const StoredHead before = scope.require_head();
  Progress progress = progress_at(scope, before.head);
  if (!has_begun(before.head) || before.head.stage.hold || !has_failed(progress)) return progress;
  progress.head = hold_for_failures(scope, before);
  progress.held = true;
  return progress;
}

Head hold_rollout(const Scope& scope) {
  const StoredHead before = head_under_way(scope);
  Head head = before.head;
  head.stage.hold = true;
  return moved_to(scope, before, std::move(head), "rollout hold");
}

Head roll_back(const Scope& scope, std::optional<uint64_t> to) {
  const StoredHead before = scope.require_head();
  Head head = before.head;
  const uint64_t number = to.value_or(head.base);
  if (!to && head.next == head.base)
    throw RefusedError("there is no revision of " + qimctl::quoted(scope.name()) +
                       " to go back to by itself; name one with --to");
  head.base = head.next = number;
  head.base_state = head.next_state = number == 0 ? Digest{} : scope.revision(number).state;
  head.stage = {};
  return moved_to(scope, before, std::move(head), "rollback");
}

}  // namespace qim::fleet
