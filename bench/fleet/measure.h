// What the measurements of a fleet share: a store, devices, and times.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fleet/publish/push.h"
#include "fleet/publish/rollout.h"
#include "tests/fleet/support/cluster.h"

namespace fleet_bench {

using Moment = std::chrono::steady_clock::time_point;

double milliseconds_since(Moment begin);
// The value that so many of a hundred are not above.
double percentile(std::vector<double> values, double percent);
// "name | value | beside it | ratio | goal"
void row(const std::string& name, const std::string& value, const std::string& beside,
         const std::string& ratio, const std::string& goal);
std::string number(double value, int digits = 1);

// A policy of so many entries in lists of at most 2,000.
qim::fleet::Wanted policy_of(size_t entries);

// A publisher with a scope, on a cluster.
class Fleet {
 public:
  explicit Fleet(const fleet_test::Cluster& cluster);

  qim::fleet::Store& store() { return *store_; }
  const qim::fleet::Publisher& publisher() const { return publisher_; }
  const qim::fleet::Scope& scope() const { return scope_; }
  // Pushes, and gives it to all devices.
  void publish(qim::fleet::Wanted wanted);
  // The settings of a device, in a folder of its own.
  std::string device_settings(const std::string& name) const;
  const std::string& directory() const { return directory_.path(); }

 private:
  const fleet_test::Cluster& cluster_;
  fleet_test::Directory directory_;
  std::unique_ptr<qim::fleet::Store> store_;
  qim::fleet::PrivateKey key_ = qim::fleet::PrivateKey::generate();
  qim::fleet::Publisher publisher_;
  qim::fleet::Scope scope_;
};

// Agents, each a process with a database of its own, and the times of their commits.
class Devices {
 public:
  Devices(const Fleet& fleet, int count);
  ~Devices();
  Devices(const Devices&) = delete;
  Devices& operator=(const Devices&) = delete;

  // Forgets what was committed up to now.
  void forget_commits();
  // Until each one has committed since then: how long each took from `begin`. Throws after two minutes.
  std::vector<double> await_commits(Moment begin);
  long resident_kilobytes(int device) const;
  pid_t pid(int device) const { return programs_[static_cast<size_t>(device)].pid(); }

 private:
  int inotify_ = -1;
  std::vector<fleet_test::Program> programs_;
  std::map<int, int> watches_;  // device, by the number of its watch
};

// The measurements, each a part of the table.
void measure_push(Fleet& fleet, int pushes);
void measure_spread(Fleet& fleet, fleet_test::Cluster& cluster, int devices);
// With a store of its own, over TLS; a call of a client takes at most so many seconds.
void measure_reconnect(size_t clients, size_t timeout);
void measure_first_sync(Fleet& fleet, size_t entries);
void measure_first_memory(Fleet& fleet, const qim::fleet::State& state);
// What `--apply FILE DIRECTORY` does: a state becomes a database, and the most memory of that is printed.
void write_alone(const std::string& file, const std::string& database_directory);

}  // namespace fleet_bench
