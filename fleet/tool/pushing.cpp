// `push`: policy files become the next revision.
#include "fleet/publish/push.h"
#include "fleet/tool/commands.h"
#include "policy/base/names.h"
#include "tools/base/complaint.h"
#include "tools/base/output.h"
#include "tools/commands/apply.h"

namespace qim::fleet {

using qimctl::ExitCode;
using qimctl::JsonValue;

namespace {

JsonValue plan_json(const PushPlan& plan) {
  JsonValue value;
  value.set("revision", plan.any() ? plan.number : plan.before.head.next);
  value.set("lines", JsonValue::array());
  for (const qimctl::DifferenceLine& line : plan.target.lines) {
    JsonValue item;
    item.set("sign", std::string(1, line.sign));
    item.set("name", line.name);
    item.set("what", line.what);
    value.add_to("lines", std::move(item));
  }
  value.set("added", plan.nodes.added);
  value.set("changed", plan.nodes.changed);
  value.set("removed", plan.nodes.removed);
  return value;
}

void print_plan(const PushPlan& plan) {
  for (const qimctl::DifferenceLine& line : plan.target.lines)
    qimctl::print(std::string(1, line.sign) + " " + line.name + "  " + line.what + "\n");
  if (plan.any()) qimctl::print(to_string(plan.nodes) + "\n");
}

}  // namespace

ExitCode push_files(const Publisher& publisher, const PushOptions& options) {
  const Scope scope(publisher, options.scope);
  qimctl::PolicyFiles files = qimctl::read_files(options.input);
  const bool text = qimctl::is_text(options.form);
  if (text) qimctl::print(files.text(false));
  if (!qimctl::accept_losses(files, options.lossy, "pushed")) return qimctl::exit_lossy;
  PushPlan plan;
  try {
    plan = plan_push(scope, {std::move(files.nodes), std::move(files.model), options.prune},
                     options.expect);
  } catch (const qimctl::InputError& error) {
    files.refuse(error);
  }
  if (text) print_plan(plan);
  const bool pushed = plan.any() && !options.dry_run;
  if (pushed) push(scope, plan, options.message);
  if (!text) {
    JsonValue value = plan_json(plan);
    value.set("pushed", pushed);
    qimctl::print_value(value, options.form);
  } else if (!plan.any()) {
    qimctl::print("nothing to do, revision " + std::to_string(plan.before.head.next) + "\n");
  } else if (options.dry_run) {
    qimctl::print("nothing was pushed, it would be revision " + std::to_string(plan.number) + "\n");
  } else {
    qimctl::print("revision " + std::to_string(plan.number) +
                  "; begin with 'qimctl fleet rollout start " + scope.name() + "'\n");
  }
  return qimctl::exit_ok;
}

}  // namespace qim::fleet
