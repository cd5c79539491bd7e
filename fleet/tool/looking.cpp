// The commands that look at a fleet, and the one that makes a key.
#include <algorithm>

#include "fleet/base/files.h"
#include "fleet/publish/device_status.h"
#include "fleet/publish/push.h"
#include "fleet/publish/verify.h"
#include "fleet/state/difference.h"
#include "fleet/tool/commands.h"
#include "policy/base/names.h"
#include "policy/base/text.h"
#include "tools/base/complaint.h"
#include "tools/base/output.h"
#include "tools/base/rows.h"
#include "tools/base/terminal.h"

namespace qim::fleet {

using qimctl::ExitCode;
using qimctl::JsonValue;
using qimctl::OutputForm;
using qimctl::printable;
using qimctl::Rows;

namespace {

std::string number_text(uint64_t number) {
  return number == 0 ? "-" : std::to_string(number);
}

JsonValue head_json(const Head& head) {
  JsonValue value;
  value.set("scope", head.scope);
  value.set("sequence", head.sequence);
  value.set("base", head.base);
  value.set("next", head.next);
  value.set("stage", stage_text(head));
  value.set("percent", head.stage.percent);
  value.set("held", head.stage.hold);
  value.set("max_failures", head.stage.max_failures);
  value.set("confirm_seconds", head.stage.confirm_seconds);
  value.set("author", head.author);
  value.set("time", time_text(head.time));
  value.set("what", head.what);
  return value;
}

std::string head_text(const Head& head) {
  const std::string scope = printable(head.scope);
  const std::string revision = scope + ": revision " + std::to_string(head.next);
  if (head.next == 0) return scope + ": devices stay as they are";
  if (head.next == head.base) return revision + " on all devices";
  if (has_begun(head) && !is_under_way(head)) return revision + " on all";
  const std::string others = head.base == 0 ? "" : ", the others " + std::to_string(head.base);
  return revision + (has_begun(head) ? " on " + stage_text(head) : ", its rollout not begun") +
         others;
}

// Which rows of the status are asked for.
bool is_wanted(const StatusOptions& options, DeviceState state) {
  const bool all = !options.behind && !options.refused && !options.drift;
  return all || (options.behind && state == DeviceState::behind) ||
         (options.refused && state == DeviceState::refused) ||
         (options.drift && state == DeviceState::drifted);
}

std::string reason_of(const DeviceStatus& device, DeviceState state) {
  if (state == DeviceState::forged) return device.problem;
  if (state == DeviceState::drifted) return device.status.drift;
  return device.status.refused != 0 ? device.status.reason : "";
}

std::string labels_of(const Status& status) {
  std::string text;
  for (const std::string& label : status.labels) text += (text.empty() ? "" : ",") + label;
  return text;
}

void add_device(Rows& rows, const Head& head, const DeviceStatus& device, DeviceState state) {
  const Status& status = device.status;
  const std::string reason = reason_of(device, state);
  if (rows.is_text()) {
    rows.add({printable(head.scope), printable(device.device), to_string(state),
              number_text(status.applied), number_text(wanted_of(head, device)),
              number_text(status.refused), time_text(status.away_since),
              printable(labels_of(status)), time_text(status.time), short_hex(device.signer),
              printable(reason)});
    return;
  }
  JsonValue value;
  value.set("scope", head.scope);
  value.set("device", device.device);
  value.set("state", to_string(state));
  value.set("applied", status.applied);
  value.set("wanted", wanted_of(head, device));
  value.set("refused", status.refused);
  value.set("reason", reason);
  value.set("away_since", time_text(status.away_since));
  value.set("labels", labels_of(status));
  value.set("time", time_text(status.time));
  value.set("key", to_hex(device.signer));
  value.set("database", status.database);
  rows.add(value);
}

std::vector<std::string> all_scopes(const Publisher& publisher) {
  std::vector<std::string> scopes;
  for (const KeyValue& item : list_all(publisher.store, publisher.keys.heads(), true))
    scopes.push_back(Keys::last_part(item.key));
  return scopes;
}

std::string mark_of(const Head& head, uint64_t number) {
  if (number == head.next) return head.next == head.base ? "all" : "next";
  return number == head.base ? "base" : "";
}

}  // namespace

void print_head(const Head& head, OutputForm form) {
  if (qimctl::is_text(form)) return qimctl::print(head_text(head) + "\n");
  qimctl::print_value(head_json(head), form);
}

ExitCode print_status(const Publisher& publisher, const StatusOptions& options) {
  const std::vector<std::string> scopes =
      options.scopes.empty() ? all_scopes(publisher) : options.scopes;
  Rows rows(options.form, {{"SCOPE"},
                           {"DEVICE"},
                           {"STATE"},
                           {"HAS"},
                           {"WANTS"},
                           {"REFUSED"},
                           {"AWAY UNTIL", true},
                           {"LABELS", true},
                           {"SAID", true},
                           {"KEY", true},
                           {"WHY"}});
  for (const std::string& name : scopes) {
    const Scope scope(publisher, name);
    const Head head = scope.require_head().head;
    if (rows.is_text()) qimctl::print(head_text(head) + "\n");
    for (const DeviceStatus& device : read_statuses(scope)) {
      const DeviceState state = state_of(head, device);
      if (is_wanted(options, state)) add_device(rows, head, device, state);
    }
  }
  rows.finish("device");
  return qimctl::exit_ok;
}

ExitCode print_log(const Scope& scope, OutputForm form) {
  const Head head = scope.require_head().head;
  std::vector<Revision> revisions = scope.revisions();
  std::reverse(revisions.begin(), revisions.end());
  Rows rows(form, {{"REVISION"},
                   {"AFTER"},
                   {"TIME"},
                   {"BY"},
                   {"BYTES"},
                   {"SNAPSHOT", true},
                   {"STATE", true},
                   {"IS"},
                   {"MESSAGE"}});
  for (const Revision& revision : revisions) {
    if (rows.is_text()) {
      rows.add({std::to_string(revision.number), number_text(revision.predecessor),
                time_text(revision.time), printable(revision.author),
                revision.has_difference ? std::to_string(revision.difference.size()) : "-",
                revision.has_snapshot ? "yes" : "no", short_hex(revision.state),
                mark_of(head, revision.number), printable(revision.message)});
      continue;
    }
    JsonValue value;
    value.set("revision", revision.number);
    value.set("predecessor", revision.predecessor);
    value.set("time", time_text(revision.time));
    value.set("author", revision.author);
    value.set("bytes", revision.difference.size());
    value.set("snapshot", revision.has_snapshot);
    value.set("state", to_hex(revision.state));
    value.set("is", mark_of(head, revision.number));
    value.set("message", revision.message);
    rows.add(value);
  }
  rows.finish("revision");
  return qimctl::exit_ok;
}

ExitCode print_difference(const Scope& scope, uint64_t from, uint64_t to, OutputForm form) {
  const State before = scope.state(from);
  const State after = scope.state(to);
  Rows rows(form, {});
  for (const qimctl::DifferenceLine& line : difference_of_lists(before, after)) {
    if (rows.is_text()) {
      qimctl::print(std::string(1, line.sign) + " " + line.name + "  " + line.what + "\n");
      continue;
    }
    JsonValue item;
    item.set("sign", std::string(1, line.sign));
    item.set("name", line.name);
    item.set("what", line.what);
    rows.add(item);
  }
  rows.finish();
  const NodeCounts counts = count_nodes(difference(before, after));
  if (rows.is_text() && counts.any()) qimctl::print(to_string(counts) + "\n");
  return counts.any() ? qimctl::exit_differs : qimctl::exit_ok;
}

ExitCode print_verification(const Scope& scope, OutputForm form) {
  const Verification found = verify_scope(scope);
  if (qimctl::is_text(form)) {
    for (const std::string& defect : found.defects) qimctl::print(defect + "\n");
    qimctl::print(qimctl::counted(found.revisions, "revision") + ", " +
                  qimctl::counted(found.snapshots, "snapshot") + ", " +
                  qimctl::counted(found.defects.size(), "defect") + "\n");
  } else {
    JsonValue value;
    value.set("revisions", found.revisions);
    value.set("snapshots", found.snapshots);
    value.set("defects", JsonValue::array());
    for (const std::string& defect : found.defects) value.add_to("defects", defect);
    qimctl::print_value(value, form);
  }
  return found.defects.empty() ? qimctl::exit_ok : qimctl::exit_defects;
}

ExitCode make_key(const std::string& file, const std::string& name) {
  if (file_exists(file))
    throw RefusedError(qimctl::quoted(file) +
                       " is there already; a key that was replaced could not be had back");
  if (!is_name(name))
    throw ConfigError(qimctl::quoted(name) +
                      " is no name; it has letters, digits, '.', '_' and '-' only");
  const PrivateKey key = PrivateKey::generate();
  write_file(file, key.pem(), 0600);
  qimctl::print(trusted_line(key.public_key(), name));
  return qimctl::exit_ok;
}

}  // namespace qim::fleet
