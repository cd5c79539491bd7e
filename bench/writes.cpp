// Writing a whole policy, and what it takes in the file.
#include <filesystem>
#include <memory>

#include "bench/database.h"
#include "bench/raw_engine.h"
#include "bench/workloads.h"

namespace bench {
namespace {

using benchmark::State;

std::vector<Image> images_of(const Plan& plan) {
  std::vector<Image> images;
  for (uint32_t index = 0; index < plan.nodes; ++index) images.push_back(image_at(plan, index));
  return images;
}

void import(State& state, const std::vector<Image>& images) {
  for (auto _ : state) {
    state.PauseTiming();
    const Folder folder;
    const auto database = std::make_unique<Database>(folder.at("db"));
    state.ResumeTiming();
    write_images(*database, images);
  }
}

void put_raw(State& state, const std::vector<RawTable>& tables) {
  for (auto _ : state) {
    state.PauseTiming();
    const auto writer = std::make_unique<RawWriter>();
    state.ResumeTiming();
    writer->write(tables);
  }
}

// Bytes that the parts of the nodes have: identifier, name, TLV data, and 16 for each link.
uint64_t bytes_of(const std::vector<Image>& images) {
  uint64_t bytes = 0;
  for (const Image& image : images) {
    bytes += sizeof(qim_node_id_t) + image.name.size() + image.tlv.size();
    bytes += image.links.size() * sizeof(qim_link_t);
  }
  return bytes;
}

void run_import(Harness& harness, const std::string& of, const Plan& plan) {
  const std::string name = "import, each of " + of;
  const std::string room = "bytes in the file, each of " + of;
  if (!harness.wanted(name) && !harness.wanted(room)) return;
  const std::vector<Image> images = images_of(plan);
  const Folder folder;
  const std::string path = folder.at("db");
  {
    const Database database(path);
    write_images(database, images);
  }
  if (harness.wanted(room)) {
    Row row;
    row.workload = room;
    row.claim = {"file", "identifier, name, TLV, links", Rule::kAtMost, 1.6};
    row.ours = double(std::filesystem::file_size(path + "/data.mdb")) / plan.nodes;
    row.theirs = double(bytes_of(images)) / plan.nodes;
    row.value = estimate_of({row.ours / row.theirs});
    harness.add(row);
  }
  if (!harness.wanted(name)) return;
  const std::vector<RawTable> tables = read_tables(path);
  const double count = plan.nodes;
  harness.run({name,
               {{"rov_edit", [&](State& state) { import(state, images); }, count, 1, false, 1},
                {"engine puts", [&](State& state) { put_raw(state, tables); }, count, 1, false, 1}},
               {{"rov_edit", "engine puts", Rule::kAtMost, 2.5}}});
}

}  // namespace

void run_writes(Harness& harness) {
  const uint32_t nodes = sizes_of(harness.options()).middle;
  run_import(harness, size_text(nodes) + " nodes, links nearby", {nodes, 1, 4, 50});
  run_import(harness, size_text(nodes) + " nodes, links anywhere", {nodes});
}

}  // namespace bench
