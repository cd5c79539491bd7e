// How soon devices have what was pushed, beside bare watches; also when the leader dies.
#include <unistd.h>

#include <atomic>
#include <thread>

#include "bench/fleet/measure.h"

namespace fleet_bench {

using namespace qim::fleet;

namespace {

// How long it takes until so many watches tell of a change, from its acknowledgement.
std::vector<double> raw_watches(Fleet& fleet, const fleet_test::Cluster& cluster, int count,
                                int rounds) {
  const std::string key = "/raw/watched";
  const int64_t after = fleet.store().get(key).header.revision;
  std::vector<std::unique_ptr<Store>> stores;
  std::vector<std::unique_ptr<Watch>> watches;
  for (int i = 0; i < count; i++) {
    stores.push_back(cluster.connect());
    watches.push_back(stores.back()->watch(key, after));
    watches.back()->wait(std::chrono::milliseconds(50));
  }
  std::vector<double> times;
  for (int round = 0; round < rounds; round++) {
    std::vector<double> heard(watches.size());
    std::vector<Moment> at(watches.size());
    std::vector<std::thread> threads;
    for (size_t i = 0; i < watches.size(); i++)
      threads.emplace_back([&watches, &at, i] {
        while (watches[i]->wait(std::chrono::seconds(60)) != WatchNews::changed) continue;
        at[i] = std::chrono::steady_clock::now();
      });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    fleet.store().change({{}, {{key, std::to_string(round)}}});
    const Moment begin = std::chrono::steady_clock::now();
    for (std::thread& thread : threads) thread.join();
    for (const Moment moment : at)
      times.push_back(std::chrono::duration<double, std::milli>(moment - begin).count());
  }
  return times;
}

// A push and its rollout; from what time on devices can know of it.
Moment publish(Fleet& fleet, size_t entries) {
  push(fleet.scope(), plan_push(fleet.scope(), policy_of(entries), {}), "");
  Stage stage;
  stage.percent = 100;
  start_rollout(fleet.scope(), stage);
  return std::chrono::steady_clock::now();
}

}  // namespace

void measure_spread(Fleet& fleet, fleet_test::Cluster& cluster, int devices) {
  constexpr int rounds = 5;
  size_t entries = 200;
  publish(fleet, entries++);  // a device makes its database when there is something to put there
  Devices agents(fleet, devices);
  std::this_thread::sleep_for(std::chrono::seconds(5));  // until all have told of themselves
  row("an agent at rest, resident",
      number(static_cast<double>(agents.resident_kilobytes(0)) / 1024) + " MB", "", "", "30 MB");
  std::vector<double> ours;
  for (int round = 0; round < rounds; round++) {
    const std::vector<double> times = agents.await_commits(publish(fleet, entries++));
    ours.insert(ours.end(), times.begin(), times.end());
    std::this_thread::sleep_for(std::chrono::seconds(3));
  }
  const std::vector<double> raw = raw_watches(fleet, cluster, devices, rounds);
  const std::string count = std::to_string(devices);
  for (const double percent : {50.0, 99.0})
    row("one entry, from acknowledged to committed on " + count + " devices, p" +
            number(percent, 0) + ", beside " + count + " bare watches",
        number(percentile(ours, percent)) + " ms", number(percentile(raw, percent)) + " ms",
        number(percentile(ours, percent) / percentile(raw, percent), 2), "2 (p99, 200)");

  const int leader = cluster.leader();
  const Moment killed = std::chrono::steady_clock::now();
  cluster.kill(leader);
  publish(fleet, entries++);
  const std::vector<double> after = agents.await_commits(killed);
  row("leader killed, until " + count + " devices have applied what was pushed then",
      number(percentile(after, 100) / 1000) + " s", "", "", "4 s");
  cluster.start(leader);
  cluster.await();
}

}  // namespace fleet_bench
