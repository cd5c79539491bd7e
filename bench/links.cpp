// Links: from the record and from the database.
#include "bench/database.h"
#include "bench/workloads.h"

namespace bench {

using benchmark::State;

void run_links(Harness& harness) {
  const std::string name = "link of a Police node";
  if (!harness.wanted(name)) return;
  const uint32_t nodes = sizes_of(harness.options()).small;
  const uint32_t ses = prepared({nodes}).ses;
  constexpr uint32_t kPolice = 5;  // its place in a block
  const auto from_record = [=](State& state) {
    qim_node_t node;
    check(qim_node_read(ses, id_at(kPolice), QIM_NODE_POLICE, &node), "read a node");
    qim_link_t link;
    for (auto _ : state) {
      if (qim_link_val(ses, &node, 0x202, &link) != 0) state.SkipWithError("no such link");
      benchmark::DoNotOptimize(link);
    }
  };
  const auto from_database = [=](State& state) {
    Random random(5);
    qim_link_t link;
    for (auto _ : state) {
      const qim_node_id_t id = id_at(random.next(nodes / kBlock) * kBlock + kPolice);
      if (qim_link_field_get(ses, id, 0x202, &link) != 0) state.SkipWithError("no such link");
      benchmark::DoNotOptimize(link);
    }
  };
  const auto whole = [=](State& state) {
    Random random(5);
    qim_node_t node;
    for (auto _ : state) {
      const qim_node_id_t id = id_at(random.next(nodes / kBlock) * kBlock + kPolice);
      if (qim_node_read(ses, id, 0, &node) != 0) state.SkipWithError("no such node");
      benchmark::DoNotOptimize(node);
    }
  };
  harness.run({name,
               {{"from its record", from_record},
                {"from the database", from_database},
                {"qim_node_read", whole}},
               {{"from its record", "qim_node_read"}, {"from the database", "qim_node_read"}}});
}

}  // namespace bench
