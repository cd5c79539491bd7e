// Looking up the enforcement destination of a policy instance at a place.
#include "bench/database.h"
#include "bench/workloads.h"

namespace bench {
namespace {

using benchmark::State;

// With more data sets than this a look-up walks over the referrers.
constexpr uint32_t kMostDirect = 1000;

// Looks up what the policy instances of the blocks with names have.
void look_up(State& state, const Prepared& in) {
  const uint32_t named = in.plan.nodes / kBlock / in.plan.named_every;
  std::vector<qim_node_t> instances(named);
  std::vector<qim_policy_dest_t> places(named);
  for (uint32_t i = 0; i < named; ++i) {
    const uint32_t first = i * in.plan.named_every * kBlock;
    check(qim_node_read(in.ses, id_at(first + kPinstAt), QIM_NODE_PINST, &instances[i]),
          "read a policy instance");
    places[i] = place_of(first + kEdestAt);
  }
  Random random(9);
  qim_node_t node;
  for (auto _ : state) {
    const uint32_t at = random.next(named);
    if (qim_pinst_edest_lookup(in.ses, &instances[at], &places[at], &node) != 0) {
      state.SkipWithError("an enforcement destination was not found");
    }
    benchmark::DoNotOptimize(node);
  }
}

// Reads the same nodes.
void read_them(State& state, const Prepared& in) {
  const uint32_t named = in.plan.nodes / kBlock / in.plan.named_every;
  Random random(9);
  qim_node_t node;
  for (auto _ : state) {
    const uint32_t first = random.next(named) * in.plan.named_every * kBlock;
    if (qim_node_read(in.ses, id_at(first + kEdestAt), 0, &node) != 0) {
      state.SkipWithError("a node can't be read");
    }
    benchmark::DoNotOptimize(node);
  }
}

// Reads any node of the database.
void read_any(State& state, const Prepared& in) {
  Random random(9);
  qim_node_t node;
  for (auto _ : state) {
    if (qim_node_read(in.ses, id_at(random.next(in.plan.nodes)), 0, &node) != 0) {
      state.SkipWithError("a node can't be read");
    }
    benchmark::DoNotOptimize(node);
  }
}

void run_plan(Harness& harness, const std::string& name, const Plan& plan, bool direct) {
  if (!harness.wanted(name)) return;
  const Prepared& in = prepared(plan);
  const Rule rule = direct ? Rule::kAtMost : Rule::kShown;
  harness.run({name,
               {{"qim_pinst_edest_lookup", [&](State& state) { look_up(state, in); }},
                {"qim_node_read of any", [&](State& state) { read_any(state, in); }},
                {"qim_node_read of the same", [&](State& state) { read_them(state, in); }}},
               {{"qim_pinst_edest_lookup", "qim_node_read of any", rule, 2.2},
                {"qim_pinst_edest_lookup", "qim_node_read of the same"}}});
}

}  // namespace

void run_edests(Harness& harness) {
  const Sizes sizes = sizes_of(harness.options());
  for (const uint32_t nodes : {sizes.small, sizes.middle}) {
    const uint32_t pairs = nodes / kBlock;
    const uint32_t every = (2 * pairs + kMostDirect - 1) / kMostDirect;
    run_plan(harness, "edest lookup, direct, " + size_text(nodes), {nodes, every, 4}, true);
  }
  if (!harness.options().smoke) {
    run_plan(harness, "edest lookup, by walk, " + size_text(sizes.middle), {sizes.middle}, false);
  }
}

}  // namespace bench
