// The first time that a device takes a policy, beside fetching and applying the same bytes alone.
#include <sys/resource.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "bench/fleet/measure.h"
#include "fleet/base/files.h"
#include "fleet/state/database_state.h"

namespace fleet_bench {

using namespace qim::fleet;

namespace {

// The most that a process had in memory so far.
long most_kilobytes(const std::string& process) {
  std::ifstream status("/proc/" + process + "/status");
  for (std::string word; status >> word;) {
    long kilobytes = 0;
    if (word == "VmHWM:" && status >> kilobytes) return kilobytes;
  }
  return 0;
}

void make_database(const State& state, const std::string& database_directory) {
  const qimctl::Database database(database_directory, qimctl::OpenMode::create);
  qimctl::WriteSession writer(database);
  apply_state(&writer, qimctl::ReadSession(database), state);
  writer.commit();
}

}  // namespace

void write_alone(const std::string& file, const std::string& database_directory) {
  make_database(State::parse(read_file(file, size_t{1} << 30)), database_directory);
  printf("%ld\n", most_kilobytes("self"));
}

void measure_first_memory(Fleet& fleet, const State& state) {
  fleet_test::Directory folder;
  write_file(folder / "state", state.bytes(), 0600);
  const std::string self = std::filesystem::read_symlink("/proc/self/exe");
  const double writer =
      std::stod(fleet_test::output_of({self, "--apply", folder / "state", folder / "db"}));
  double agent = 0;
  {
    Devices device(fleet, 1);
    std::this_thread::sleep_for(std::chrono::seconds(3));
    agent = static_cast<double>(most_kilobytes(std::to_string(device.pid(0))));
  }
  row("the most memory of an agent in its first sync of " + std::to_string(state.size()) +
          " nodes, beside a program that only writes them",
      number(agent / 1024) + " MB", number(writer / 1024) + " MB", number(agent / writer, 2), "3");
}

void measure_first_sync(Fleet& fleet, size_t entries) {
  constexpr int rounds = 5;  // by turns, so that what else the machine does falls on all of them
  fleet.publish(policy_of(entries));
  const uint64_t number_of_it = fleet.scope().head().head.next;
  const char* build = getenv("QIM_BUILD_DIR");
  const std::string qimd = std::string(build == nullptr ? "build/native" : build) + "/bin/qimd";
  std::vector<double> fetched;
  std::vector<double> applied;
  std::vector<double> ours;
  State state;
  for (int round = 0; round < rounds; round++) {
    fleet_test::Directory folder;
    Moment begin = std::chrono::steady_clock::now();
    state = fleet.scope().state(number_of_it);
    fetched.push_back(milliseconds_since(begin));
    begin = std::chrono::steady_clock::now();
    make_database(state, folder / "db");
    applied.push_back(milliseconds_since(begin));
    const std::string settings = fleet.device_settings("first" + std::to_string(round));
    begin = std::chrono::steady_clock::now();
    fleet_test::Program agent({qimd, "--config", settings, "--once", "120"},
                              fleet.directory() + "/log");
    if (agent.wait() != 0) throw std::runtime_error("the first device does not take it");
    ours.push_back(milliseconds_since(begin));
  }
  const double took = percentile(ours, 50);
  const double fetch = percentile(fetched, 50);
  const double apply = percentile(applied, 50);
  row("first sync of " + std::to_string(state.size()) + " nodes, beside fetching (" +
          number(fetch, 0) + " ms) and applying (" + number(apply, 0) + " ms) the same",
      number(took, 0) + " ms", number(fetch + apply, 0) + " ms", number(took / (fetch + apply), 2),
      "2");
  measure_first_memory(fleet, state);
}

}  // namespace fleet_bench
