// The first time that a device takes a policy, beside fetching and applying the same bytes alone.
#include <sys/resource.h>
#include <sys/wait.h>

#include <filesystem>
#include <stdexcept>

#include "bench/fleet/measure.h"
#include "fleet/state/database_state.h"

namespace fleet_bench {

using namespace qim::fleet;

void measure_first_sync(Fleet& fleet, size_t entries) {
  fleet.publish(policy_of(entries));
  const uint64_t number_of_it = fleet.scope().head().head.next;
  fleet_test::Directory folder;
  Moment begin = std::chrono::steady_clock::now();
  const State state = fleet.scope().state(number_of_it);
  const double fetched = milliseconds_since(begin);
  begin = std::chrono::steady_clock::now();
  {
    const qimctl::Database database(folder / "db", qimctl::OpenMode::create);
    qimctl::WriteSession writer(database);
    apply_state(&writer, qimctl::ReadSession(database), state);
    writer.commit();
  }
  const double applied = milliseconds_since(begin);

  const char* build = getenv("QIM_BUILD_DIR");
  const std::string qimd = std::string(build == nullptr ? "build/native" : build) + "/bin/qimd";
  const std::string settings = fleet.device_settings("first");
  begin = std::chrono::steady_clock::now();
  fleet_test::Program agent({qimd, "--config", settings, "--once", "120"},
                            fleet.directory() + "/log");
  if (agent.wait() != 0) throw std::runtime_error("the first device does not take it");
  const double took = milliseconds_since(begin);
  row("first sync of " + std::to_string(state.size()) + " nodes, beside fetching (" +
          number(fetched, 0) + " ms) and applying (" + number(applied, 0) + " ms) the same",
      number(took, 0) + " ms", number(fetched + applied, 0) + " ms",
      number(took / (fetched + applied), 2), "2");
}

}  // namespace fleet_bench
