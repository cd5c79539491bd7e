// What a push costs beside a transaction of the same size, and what of it goes over the wire.
#include <string>

#include "bench/fleet/measure.h"
#include "fleet/base/digest.h"

namespace fleet_bench {

using namespace qim::fleet;

namespace {

constexpr size_t difference_bytes = 33 * 1024;

// What can't be compressed, another one each time.
std::string noise(int seed) {
  std::string bytes;
  for (size_t i = 0; bytes.size() < difference_bytes; i++)
    bytes += to_bytes(sha256(std::to_string(seed) + "." + std::to_string(i)));
  return bytes;
}

}  // namespace

void measure_push(Fleet& fleet, int pushes) {
  fleet.publish(policy_of(100));
  PushPlan plan = plan_push(fleet.scope(), policy_of(101), {});
  push(fleet.scope(), plan, "");
  // To a device: the head that tells of the push, and the one that gives it to all.
  const auto head_bytes = [&] {
    return fleet.store().get(fleet.publisher().keys.head("bench")).found->value.size();
  };
  const size_t pushed = head_bytes();
  Stage stage;
  stage.percent = 100;
  start_rollout(fleet.scope(), stage);
  row("one changed entry on the wire", std::to_string(pushed + head_bytes()) + " B", "", "",
      "1 KB");

  std::vector<double> ours;
  std::vector<double> raw;
  for (int i = 0; i < pushes; i++) {
    plan.before = fleet.scope().head();
    plan.number = plan.before.head.last + 1;
    plan.newest_snapshot = plan.number - 1;  // no snapshot is due
    plan.chain_bytes = 0;
    plan.difference = noise(i);
    Moment begin = std::chrono::steady_clock::now();
    push(fleet.scope(), plan, "");
    ours.push_back(milliseconds_since(begin));
    const std::string key = "/raw/" + std::to_string(i);
    begin = std::chrono::steady_clock::now();
    fleet.store().change(
        {{{key, 0}}, {{key, noise(-i - 1)}, {"/raw/head", std::string(300, 'x')}}});
    raw.push_back(milliseconds_since(begin));
  }
  for (const double percent : {50.0, 99.0})
    row("push of 33 KB acknowledged, p" + number(percent, 0) +
            ", beside a transaction of that size",
        number(percentile(ours, percent)) + " ms", number(percentile(raw, percent)) + " ms",
        number(percentile(ours, percent) / percentile(raw, percent), 2), "1.5 (p99)");
}

}  // namespace fleet_bench
