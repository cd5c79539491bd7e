// How soon devices have what was pushed, beside bare watches; also when the leader dies.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <thread>

#include "bench/fleet/measure.h"
#include "policy/base/names.h"

namespace fleet_bench {

using namespace qim::fleet;

namespace {

// Watches by themselves, a thread each.
class BareWatches {
 public:
  BareWatches(Fleet& fleet, const fleet_test::Cluster& cluster, int count)
      : fleet_(fleet), after_(fleet.store().get(key_).header.revision) {
    for (int i = 0; i < count; i++) {
      stores_.push_back(cluster.connect());
      watches_.push_back(stores_.back()->watch(key_, after_));
      watches_.back()->wait(std::chrono::milliseconds(50));
      files_.push_back(open((folder_ / std::to_string(i)).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC,
                            S_IRUSR | S_IWUSR));
    }
  }
  ~BareWatches() {
    for (const int file : files_) close(file);
  }
  BareWatches(const BareWatches&) = delete;
  BareWatches& operator=(const BareWatches&) = delete;

  // How long it takes from the acknowledgement of a change, or from its sending, until each has heard of it; `sync`: and has
  // what it heard on the disk, which is the least that a device can do.
  std::vector<double> hear(size_t bytes, bool sync, bool from_sent) {
    std::vector<Moment> at(watches_.size());
    std::vector<std::thread> threads;
    for (size_t i = 0; i < watches_.size(); i++) {
      threads.emplace_back([this, &at, i, sync] {
        while (watches_[i]->wait(std::chrono::seconds(60)) != WatchNews::changed) continue;
        const std::string value = watches_[i]->told().value().found->value;
        if (sync && (pwrite(files_[i], value.data(), value.size(), 0) < 0 || fsync(files_[i]) != 0))
          throw std::runtime_error("cannot write beside the watch");
        at[i] = std::chrono::steady_clock::now();
      });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    Moment begin = std::chrono::steady_clock::now();
    fleet_.store().change({{}, {{key_, std::string(bytes, 'x')}}});
    if (!from_sent) begin = std::chrono::steady_clock::now();
    for (std::thread& thread : threads) thread.join();
    std::vector<double> times;
    for (const Moment moment : at)
      times.push_back(std::chrono::duration<double, std::milli>(moment - begin).count());
    return times;
  }

 private:
  Fleet& fleet_;
  std::string key_ = "/raw/watched";
  int64_t after_;
  fleet_test::Directory folder_;
  std::vector<std::unique_ptr<Store>> stores_;
  std::vector<std::unique_ptr<Watch>> watches_;
  std::vector<int> files_;
};

// Gives devices what was pushed before; when it was acknowledged, or sent.
Moment roll_out(Fleet& fleet, bool from_sent = false) {
  const StoredHead before = fleet.scope().head();
  const Keys& keys = fleet.publisher().keys;
  Head head = before.head;
  head.stage.percent = 100;
  head.stage.salt = "bench";
  head.carried = fleet.store().get(keys.revision(head.scope, head.next)).found->value;
  const Moment sent = std::chrono::steady_clock::now();
  fleet.scope().move(before, head);
  return from_sent ? sent : std::chrono::steady_clock::now();
}

void push_entries(Fleet& fleet, size_t entries) {
  push(fleet.scope(), plan_push(fleet.scope(), policy_of(entries), {}), "");
}

constexpr auto quiet = std::chrono::seconds(3);  // until all have told of what they hold

// Devices beside as many watches. `entries` counts what was pushed.
void measure_beside(Fleet& fleet, const fleet_test::Cluster& cluster, Devices& agents, int count,
                    int rounds, size_t& entries) {
  const bool alone = count == 1;  // it may be there before the acknowledgement is
  std::vector<double> ours;
  for (int round = 0; round < rounds; round++) {
    push_entries(fleet, entries++);
    std::this_thread::sleep_for(quiet);
    agents.forget_commits();
    const std::vector<double> times = agents.await_commits(roll_out(fleet, alone));
    ours.insert(ours.end(), times.begin(), times.end());
    std::this_thread::sleep_for(quiet);
  }
  const size_t bytes =
      fleet.store().get(fleet.publisher().keys.head(fleet.scope().name())).found->value.size();
  BareWatches bare(fleet, cluster, count);
  for (const bool sync : {false, true}) {
    std::vector<double> beside;
    for (int round = 0; round < rounds; round++) {
      const std::vector<double> times = bare.hear(bytes, sync, alone);
      beside.insert(beside.end(), times.begin(), times.end());
    }
    for (const double percent : {50.0, 99.0}) {
      row(std::string("one entry, from ") + (alone ? "sent" : "acknowledged") +
              " to committed on " + qimctl::counted(static_cast<size_t>(count), "device") + ", p" +
              number(percent, 0) + ", beside as many bare watches" +
              (sync ? " that write it down with one sync" : ""),
          number(percentile(ours, percent)) + " ms", number(percentile(beside, percent)) + " ms",
          number(percentile(ours, percent) / percentile(beside, percent), 2), "2 (p99, 200)");
    }
  }
}

}  // namespace

void measure_spread(Fleet& fleet, fleet_test::Cluster& cluster, int devices) {
  size_t entries = 200;
  push_entries(fleet, entries++);
  roll_out(fleet);  // a device makes its database when there is something to put there
  {
    Devices alone(fleet, 1);
    std::this_thread::sleep_for(quiet);
    measure_beside(fleet, cluster, alone, 1, 25, entries);
  }
  Devices agents(fleet, devices);
  std::this_thread::sleep_for(quiet * 2);
  row("an agent at rest, resident",
      number(static_cast<double>(agents.resident_kilobytes(0)) / 1024) + " MB", "", "", "30 MB");
  measure_beside(fleet, cluster, agents, devices, 5, entries);

  const std::string count = std::to_string(devices);
  const int leader = cluster.leader();
  const Moment killed = std::chrono::steady_clock::now();
  agents.forget_commits();
  cluster.kill(leader);
  push_entries(fleet, entries++);
  roll_out(fleet);
  const std::vector<double> after = agents.await_commits(killed);
  row("leader killed, until " + count + " devices have applied what was pushed then",
      number(percentile(after, 100) / 1000) + " s", "", "", "4 s");
  cluster.start(leader);
  cluster.await();
}

}  // namespace fleet_bench
