// The commands that look after a fleet: watching a rollout, and pruning.
#include <thread>

#include "fleet/publish/prune.h"
#include "fleet/tool/commands.h"
#include "policy/base/names.h"
#include "policy/base/text.h"
#include "tools/base/complaint.h"
#include "tools/base/output.h"

namespace qim::fleet {

using qimctl::ExitCode;
using qimctl::JsonValue;

namespace {

void print_progress(const Progress& progress, qimctl::OutputForm form) {
  if (qimctl::is_text(form)) {
    return qimctl::print(qimctl::printable(progress.head.scope) + ": " + to_string(progress) +
                         "\n");
  }
  JsonValue value;
  value.set("scope", progress.head.scope);
  value.set("revision", progress.head.next);
  value.set("stage", stage_text(progress.head));
  value.set("devices", progress.devices);
  value.set("there", progress.there);
  value.set("refused", progress.refused);
  value.set("max_failures", progress.head.stage.max_failures);
  value.set("held", progress.head.stage.hold);
  qimctl::print_value(value, form);
}

// A head that somebody moved in between is looked at again.
Progress guarded(const Scope& scope) {
  try {
    return guard_rollout(scope);
  } catch (const RefusedError&) {
    return guard_rollout(scope);
  }
}

}  // namespace

ExitCode watch_rollout(const Publisher& publisher, const WatchOptions& options) {
  const Scope scope(publisher, options.scope);
  const auto end = publisher.clock.steady() + options.most;
  std::string said;
  for (;;) {
    const Progress progress = guarded(scope);
    const Head& head = progress.head;
    const bool is_over = head.stage.hold || progress.is_done() || !has_begun(head);
    const bool is_late = options.most.count() != 0 && publisher.clock.steady() >= end;
    // People see each step; programs get one answer.
    const std::string now = to_string(progress);
    if (is_over || is_late || (now != said && qimctl::is_text(options.form)))
      print_progress(progress, options.form);
    said = now;
    if (head.stage.hold) {
      qimctl::complain(has_failed(progress) ? failures_text(head, progress.refused)
                                            : "the rollout is held");
      return qimctl::exit_refused;
    }
    if (is_over) return qimctl::exit_ok;
    if (is_late) return qimctl::exit_differs;
    qimctl::flush_output();
    std::this_thread::sleep_for(options.every);
  }
}

ExitCode prune_scope(const Publisher& publisher, const PruneOptions& options) {
  const Pruned done = prune(Scope(publisher, options.scope), options.keep, options.dry_run);
  if (qimctl::is_text(options.form)) {
    qimctl::print(std::string(options.dry_run ? "would go: " : "gone: ") +
                  qimctl::counted(done.revisions, "revision") + " and " +
                  qimctl::counted(done.chunks, "part") + " of snapshots; the first that stays is " +
                  std::to_string(done.first) + "\n");
    return qimctl::exit_ok;
  }
  JsonValue value;
  value.set("first", done.first);
  value.set("revisions", done.revisions);
  value.set("chunks", done.chunks);
  value.set("pruned", !options.dry_run);
  qimctl::print_value(value, options.form);
  return qimctl::exit_ok;
}

}  // namespace qim::fleet
