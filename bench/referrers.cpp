// All nodes that refer to one.
#include <cstdlib>

#include "bench/database.h"
#include "bench/workloads.h"

namespace bench {
namespace {

using benchmark::State;

constexpr uint16_t kFilterLink = 0x081;

// The first node, and so many filters that refer to it.
class Referred {
 public:
  explicit Referred(uint32_t count) : database_(folder_.at("db")) {
    std::vector<Image> images(count + 1);
    for (uint32_t i = 0; i <= count; ++i) {
      images[i].id = id_at(i);
      images[i].tlv = Record(QIM_NODE_FILTER, 0, i).tlv();
      if (i != 0) images[i].links.push_back({id_at(0), 0, 0, 0, kFilterLink});
    }
    write_images(database_, images);
    ses_ = database_.open_session();
    check(qim_node_read(ses_, id_at(0), 0, &node_), "read a node");
  }
  ~Referred() { check(rov_ses_close(ses_), "close a session"); }
  Referred(const Referred&) = delete;
  Referred& operator=(const Referred&) = delete;

  void list(State& state) const {
    for (auto _ : state) {
      qim_node_id_t* referrers = nullptr;
      uint32_t count = 0;
      if (qim_ref_get_all(ses_, &node_, &referrers, &count) != 0 || count != node_.refs) {
        state.SkipWithError("the referrers can't be listed");
      }
      benchmark::DoNotOptimize(referrers);
      std::free(referrers);
    }
  }

  void walk(State& state) const {
    for (auto _ : state) {
      qim_node_id_t referrer = 0;
      uint32_t at = 0;
      while (qim_ref_get(ses_, id_at(0), at, &referrer) == 0 && referrer != 0) ++at;
      if (at != node_.refs) state.SkipWithError("the walk ends too soon");
    }
  }

 private:
  Folder folder_;
  Database database_;
  uint32_t ses_ = 0;
  qim_node_t node_ = {};
};

}  // namespace

void run_referrers(Harness& harness) {
  const std::vector<uint32_t> counts =
      harness.options().smoke ? std::vector<uint32_t>{10} : std::vector<uint32_t>{10, 1000, 100000};
  for (const uint32_t count : counts) {
    const std::string name = "referrers, each of " + size_text(count);
    if (!harness.wanted(name)) continue;
    const Referred referred(count);
    const Rule rule = count == 100000 ? Rule::kAbsolute : Rule::kShown;
    harness.run(
        {name,
         {{"qim_ref_get_all", [&](State& state) { referred.list(state); }, double(count)},
          {"qim_ref_get in turn", [&](State& state) { referred.walk(state); }, double(count)}},
         {{"qim_ref_get_all", "qim_ref_get in turn", rule, 20}}});
  }
}

}  // namespace bench
