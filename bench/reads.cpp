// Reading nodes by identifier.
#include <string>

#include "bench/database.h"
#include "bench/peers/peers.h"
#include "bench/raw_engine.h"
#include "bench/workloads.h"

namespace bench {
namespace {

using benchmark::State;

// Random identifiers of the nodes that stand at `slot` in their blocks; kBlock: of any node.
class Pick {
 public:
  Pick(uint32_t nodes, uint32_t slot) : random_(nodes + slot), nodes_(nodes), slot_(slot) {}
  qim_node_id_t next() {
    if (slot_ == kBlock) return id_at(random_.next(nodes_));
    return id_at(random_.next(nodes_ / kBlock) * kBlock + slot_);
  }

 private:
  Random random_;
  uint32_t nodes_;
  uint32_t slot_;
};

template <class Ids>
void read_nodes(State& state, uint32_t ses, Ids ids) {
  qim_node_t node;
  for (auto _ : state) {
    if (qim_node_read(ses, ids.next(), 0, &node) != 0) state.SkipWithError("a node can't be read");
    benchmark::DoNotOptimize(node);
  }
}

template <class Ids>
void get_raw(State& state, const RawEngine& engine, Ids ids) {
  uint8_t bytes[kRawBytes];
  for (auto _ : state) {
    engine.get(ids.next(), bytes);
    benchmark::DoNotOptimize(bytes);
  }
}

Side ours(const std::string& name, uint32_t nodes, uint32_t slot) {
  return {name, [=](State& state) { read_nodes(state, prepared({nodes}).ses, Pick(nodes, slot)); }};
}

Side floor_of(uint32_t nodes, uint32_t slot) {
  return {"engine get + copy",
          [=](State& state) { get_raw(state, raw_engine(nodes), Pick(nodes, slot)); }};
}

// The databases are made before the first repetition is timed.
void prepare(uint32_t nodes) {
  (void)prepared({nodes});
  (void)raw_engine(nodes);
}

void run_types(Harness& harness, uint32_t nodes, bool small) {
  for (uint32_t slot = 0; slot < kBlock; ++slot) {
    const std::string type = type_name(kTypes[slot]);
    const std::string name = "read " + type + ", " + size_text(nodes);
    if (!harness.wanted(name)) continue;
    prepare(nodes);
    const double limit = !small ? 1.35 : kTypes[slot] == QIM_NODE_FILTER ? 2.6 : 2.0;
    const bool variable = kTypes[slot] == QIM_NODE_ACTION || kTypes[slot] == QIM_NODE_DEF;
    const Rule rule = small && variable ? Rule::kShown : Rule::kAtMost;
    harness.run({name,
                 {ours("qim_node_read", nodes, slot), floor_of(nodes, slot)},
                 {{"qim_node_read", "engine get + copy", rule, limit}}});
  }
}

// Any node, beside everybody who can look a value up by a number.
void run_any(Harness& harness, uint32_t nodes, Rule rule, double limit) {
  const std::string name = "read any node, " + size_text(nodes);
  if (!harness.wanted(name)) return;
  prepare(nodes);
  Workload workload{name,
                    {ours("qim_node_read", nodes, kBlock), floor_of(nodes, kBlock)},
                    {{"qim_node_read", "engine get + copy", rule, limit}}};
  peers::add_lookups(nodes, &workload);
  harness.run(workload);
}

void run_hot(Harness& harness, uint32_t nodes) {
  const std::string name = "read hot 1k among " + size_text(nodes);
  if (!harness.wanted(name)) return;
  prepare(nodes);
  struct Hot {
    std::vector<qim_node_id_t> ids;
    Random random{3};
    qim_node_id_t next() { return ids[random.next(static_cast<uint32_t>(ids.size()))]; }
  };
  Hot hot;
  Random random(11);
  for (uint32_t i = 0; i < 1000; ++i) hot.ids.push_back(id_at(random.next(nodes)));
  harness.run(
      {name,
       {{"qim_node_read", [=](State& state) { read_nodes(state, prepared({nodes}).ses, hot); }},
        floor_of(nodes, kBlock)},
       {{"qim_node_read", "engine get + copy", Rule::kAtMost, 0.6}}});
}

// A type with four links beside one with one, both without anything else to decode.
void run_link_counts(Harness& harness, uint32_t nodes) {
  const std::string name = "read by links, " + size_text(nodes);
  if (!harness.wanted(name)) return;
  prepare(nodes);
  harness.run({name,
               {ours("Ifelse: 4 links", nodes, 2), ours("Action: 1 link", nodes, 1)},
               {{"Ifelse: 4 links", "Action: 1 link", Rule::kAtMost, 1.1}}});
}

void run_readall(Harness& harness, uint32_t criteria) {
  const std::string name = "readall, " + std::to_string(criteria) + " criteria";
  if (!harness.wanted(name)) return;
  const uint32_t nodes = sizes_of(harness.options()).small;
  const Plan plan{nodes, 1, criteria};
  (void)prepared(plan);
  const auto body = [=](State& state) {
    const uint32_t ses = prepared(plan).ses;
    Pick pick(nodes, 0);
    alignas(8) uint8_t buffer[2048];
    qim_node_t node;
    for (auto _ : state) {
      if (qim_node_readall(ses, pick.next(), QIM_NODE_FILTER, &node, sizeof buffer, buffer) != 0) {
        state.SkipWithError("a filter can't be read");
      }
      benchmark::DoNotOptimize(buffer);
    }
  };
  prepare(nodes);
  harness.run({name,
               {{"qim_node_readall", body}, floor_of(nodes, 0)},
               {{"qim_node_readall", "engine get + copy"}}});
}

}  // namespace

void run_reads(Harness& harness) {
  const Sizes sizes = sizes_of(harness.options());
  run_any(harness, sizes.small, Rule::kShown, 0);
  if (!harness.options().smoke) run_any(harness, 10000, Rule::kAtMost, 1.4);
  run_types(harness, sizes.small, true);
  run_link_counts(harness, sizes.small);
  for (const uint32_t criteria : {1U, 4U, 16U}) run_readall(harness, criteria);
  for (const uint32_t nodes : {sizes.middle, sizes.large}) {
    if (nodes == 0) continue;
    run_any(harness, nodes, Rule::kAtMost, 1.35);
    run_types(harness, nodes, false);
    run_link_counts(harness, nodes);
    run_hot(harness, nodes);
  }
}

}  // namespace bench
