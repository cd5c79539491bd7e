// How soon a fleet that lost the store at once watches it again, over mutual TLS. Each client decides as an
// agent does and speaks as one does, but holds no database and is a thread.
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <thread>

#include "bench/fleet/measure.h"
#include "fleet/agent/machine.h"
#include "policy/base/names.h"

namespace fleet_bench {

using namespace qim::fleet;

namespace {

using std::chrono::milliseconds;

constexpr auto patience = std::chrono::seconds(180);
constexpr milliseconds piece{500};     // of a pause, so that a client ends soon
constexpr milliseconds watched{2000};  // the same of a watch

// An agent without a database: it takes what it is told to, and that is all.
class Client {
 public:
  Client(const Fleet& fleet, const EtcdOptions& options, size_t number)
      : fleet_(fleet),
        store_(connect_etcd(options)),
        name_("c" + std::to_string(number)),
        machine_({fleet.scope().name(), name_, {}}, {}, {}, {}, now(), random_seed()) {}

  void work(const std::atomic<bool>& over) {
    while (!over) {
      for (Task task = machine_.next(now()); task.kind != TaskKind::wait && !over;
           task = machine_.next(now()))
        perform(task);
      wait();
    }
  }
  // The newest head that it was told of, and in which way.
  uint64_t read() const { return read_; }
  uint64_t heard() const { return heard_; }

 private:
  static qim::fleet::Moment now() { return {system_clock().steady(), system_clock().now()}; }

  void perform(const Task& task) {
    switch (task.kind) {
      case TaskKind::read_head:
        return read_head();
      case TaskKind::take:
        return machine_.taken({fleet_.scope().name(), task.target.number, task.target.state, 0,
                               Digest{}, 0, machine_.memory().seen},
                              now());
      case TaskKind::report:
        return report();
      default:
        return machine_.drift_checked("", now());
    }
  }

  uint64_t follow(const GetAnswer& answer) {
    const std::string& value = answer.found.value().value;
    const Head head = open_head(value, fleet_.publisher().trusted, fleet_.scope().name());
    machine_.head_read(head, answer.header.cluster, sha256(value), now());
    return head.sequence;
  }

  void read_head() {
    const std::string key = fleet_.publisher().keys.head(fleet_.scope().name());
    try {
      const GetAnswer answer = store_->get(key);
      read_ = follow(answer);
      if (watch_ == nullptr) watch_ = store_->watch(key, answer.header.revision);
    } catch (const StoreError&) {
      machine_.head_failed(now());
    }
  }

  // As long as a signed one.
  void report() {
    const Keys& keys = fleet_.publisher().keys;
    try {
      store_->change({{}, {{keys.status(fleet_.scope().name(), name_), std::string(250, 'x')}}});
      machine_.reported(now());
    } catch (const StoreError&) {
      machine_.report_failed(now());
    }
  }

  void wait() {
    const auto due = std::chrono::ceil<milliseconds>(machine_.wake() - now().steady);
    const milliseconds time = std::clamp(due, milliseconds(0), watch_ ? watched : piece);
    if (watch_ == nullptr) return std::this_thread::sleep_for(time);
    try {
      if (watch_->wait(time) == WatchNews::changed) heard_ = follow(watch_->told().value());
      machine_.watch_works();
    } catch (const StoreError&) {
      watch_.reset();
      machine_.watch_lost(now());
    }
  }

  const Fleet& fleet_;
  std::unique_ptr<Store> store_;
  std::string name_;
  Machine machine_;
  std::unique_ptr<Watch> watch_;
  std::atomic<uint64_t> read_{0};
  std::atomic<uint64_t> heard_{0};
};

// All of them, each in a thread.
class Clients {
 public:
  Clients(const Fleet& fleet, const EtcdOptions& options, size_t count) {
    for (size_t i = 0; i < count; i++)
      clients_.push_back(std::make_unique<Client>(fleet, options, i));
    for (const auto& client : clients_)
      threads_.emplace_back([this, at = client.get()] { at->work(over_); });
  }
  ~Clients() {
    over_ = true;
    for (std::thread& thread : threads_) thread.join();
  }
  Clients(const Clients&) = delete;
  Clients& operator=(const Clients&) = delete;

  // Until each has been told of that head: by its watch, where `watching`, else in any way.
  void await(uint64_t sequence, bool watching) const {
    const Moment begin = std::chrono::steady_clock::now();
    for (;;) {
      const auto knows = [&](const auto& client) {
        return client->heard() >= sequence || (!watching && client->read() >= sequence);
      };
      const auto there = std::count_if(clients_.begin(), clients_.end(), knows);
      if (static_cast<size_t>(there) == clients_.size()) return;
      if (std::chrono::steady_clock::now() - begin > patience)
        throw std::runtime_error("only " + std::to_string(there) + " of " +
                                 std::to_string(clients_.size()) + " clients came back");
      std::this_thread::sleep_for(milliseconds(10));
    }
  }

 private:
  std::vector<std::unique_ptr<Client>> clients_;
  std::vector<std::thread> threads_;
  std::atomic<bool> over_{false};
};

// Moves the head, however long the store is away; its sequence then.
uint64_t move_head(Fleet& fleet) {
  const Moment begin = std::chrono::steady_clock::now();
  for (;;) {
    try {
      const StoredHead before = fleet.scope().head();
      fleet.scope().move(before, before.head);
      return before.head.sequence + 1;
    } catch (const StoreError&) {
      if (std::chrono::steady_clock::now() - begin > patience) throw;
      std::this_thread::sleep_for(milliseconds(50));
    }
  }
}

// Until a change reaches every one by its watch, from `begin` on: first all know what was changed while
// they were away, then they hear of one more.
void await_all(Fleet& fleet, const Clients& clients, const std::string& what, const char* goal,
               Moment begin) {
  clients.await(move_head(fleet), false);
  const double known = milliseconds_since(begin) / 1000;
  clients.await(move_head(fleet), true);
  row(what + " until all know the newest head", number(known) + " s", "", "", "");
  row("the same, until their watches tell all of one more",
      number(milliseconds_since(begin) / 1000) + " s", "", "", goal);
}

// Each client takes some.
void allow_descriptors() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

void measure_reconnect(size_t count, size_t timeout) {
  allow_descriptors();
  fleet_test::Cluster cluster({.tls = true});
  Fleet fleet(cluster);
  fleet.publish(policy_of(1));
  EtcdOptions options = cluster.options();
  options.timeout = std::chrono::seconds(timeout);
  const std::string who = qimctl::counted(count, "client");
  Moment begin = std::chrono::steady_clock::now();
  const Clients clients(fleet, options, count);
  await_all(fleet, clients, who + " that start at once,", "", begin);
  std::this_thread::sleep_for(std::chrono::seconds(4));  // they report
  for (int member = 0; member < cluster.size(); member++) cluster.kill(member);
  begin = std::chrono::steady_clock::now();
  for (int member = 0; member < cluster.size(); member++) cluster.start(member);
  await_all(fleet, clients, who + ", all members killed and started at once,", "30 s (1,000)",
            begin);
}

}  // namespace fleet_bench
