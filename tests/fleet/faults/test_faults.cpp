// Three members of a real store, eight real agents, and faults at random: whatever happens, what a
// database holds is a revision that was published, and its mark says which. An agent that is broken on
// purpose runs beside them, and has to be caught.
//
// QIM_FLEET_FAULTS is the number of faults, QIM_FLEET_SEED what they are made of.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <thread>

#include "fleet/agent/device.h"
#include "fleet/base/backoff.h"
#include "fleet/state/state_digest.h"
#include "rov_edit.h"
#include "tests/fleet/agent/publisher.h"
#include "tests/fleet/faults/proxy.h"
#include "tests/fleet/support/cluster.h"
#include "tests/support/pace.h"
#include "tests/tools/support.h"

namespace {

using namespace qim::fleet;
using namespace std::chrono_literals;
using fleet_test::Cluster;
using fleet_test::Program;
using fleet_test::Proxy;
using fleet_test::Publisher;
using fleet_test::SmallPolicy;
using std::chrono::milliseconds;

uint64_t number_from(const char* name, uint64_t otherwise) {
  const char* text = getenv(name);
  return text == nullptr ? otherwise : strtoull(text, nullptr, 10);
}

std::string program(const std::string& name) {
  return std::string(getenv("QIM_BUILD_DIR")) + "/" + name;
}

// What a checker saw of a database: everything in one session.
struct Seen {
  Held held;
  State state;
};

class Checked {
 public:
  explicit Checked(const std::string& directory) {
    uint32_t library = 0;
    rov_parms_t parms;
    EXPECT_EQ(rov_lib_init(1, &library), 0U);
    EXPECT_EQ(rov_db_init_parms_init(&parms, ROV_VERSION), 0U);
    parms.p.db_path = directory.c_str();
    EXPECT_EQ(rov_db_init(library, ROV_VERSION, 0, 0, ROV_PROTO, 0, &parms, 0, &handle_), 0U)
        << rov_err_message();
  }
  ~Checked() { rov_db_close(handle_, 0); }
  Checked(const Checked&) = delete;
  Checked& operator=(const Checked&) = delete;

  Seen look() const {
    const qimctl::ReadSession session(handle_, "a device's database");
    return {read_mark(session.handle()), read_state(session.handle())};
  }

 private:
  uint32_t handle_ = 0;
};

struct Agent {
  std::string name;
  std::string settings;
  std::vector<std::string> command;
  std::unique_ptr<Checked> database;
  Program process;
  bool stopped = false;
  uint64_t highest = 0;
};

class Faults : public testing::Test {
 protected:
  static constexpr size_t kAgents = 8;

  Faults() {
    for (uint32_t id = 1; id <= 40; id++) policy_.actions[id * 100] = "first";
    for (int n = 0; n < cluster_.size(); n++) {
      proxies_.push_back(std::make_unique<Proxy>(cluster_.endpoint(n)));
    }
    tools_test::write_text(dir_ / "publishers",
                           trusted_line(publisher_.trusted().all().front().bytes, "publisher"));
    for (size_t n = 0; n < kAgents; n++) {
      add_agent("d" + std::to_string(n), {program("bin/qimd"), "--config"}, n % 2 == 0);
    }
    const char* flaws[] = {"two-commits", "unchecked", "by-node"};
    for (const char* flaw : flaws) {
      add_agent(flaw, {program("tests/fleet_broken_agent"), flaw}, false);
    }
    publisher_.publish(policy_.state(), true);
    for (Agent& agent : agents_) start(agent);
  }

  void add_agent(const std::string& name, std::vector<std::string> command, bool by_proxy) {
    Agent agent;
    agent.name = name;
    const std::filesystem::path kept = dir_ / (name + ".kept");
    std::filesystem::create_directory(kept);
    const std::string key = dir_ / (name + ".pem");
    tools_test::write_text(key, PrivateKey::generate().pem());
    std::filesystem::permissions(key, std::filesystem::perms::owner_read);
    std::string endpoints;
    for (int n = 0; n < cluster_.size(); n++) {
      endpoints +=
          " " + (by_proxy ? proxies_[static_cast<size_t>(n)]->endpoint() : cluster_.endpoint(n));
    }
    agent.settings = dir_ / (name + ".conf");
    tools_test::write_text(
        agent.settings,
        "scope = edge\ndevice = " + name + "\ndatabase = " + (dir_ / (name + ".db")).string() +
            "\ndirectory = " + kept.string() + "\nendpoints =" + endpoints +
            "\npublishers = " + (dir_ / "publishers").string() + "\nsigning_key = " + key +
            "\npoll = 1s\nreport_spread = 50ms\nretry_first = 50ms\n"
            "retry_most = 500ms\ntimeout = 1s\ndrift = 5s\n");
    command.push_back(agent.settings);
    agent.command = std::move(command);
    agent.database = std::make_unique<Checked>(dir_ / (name + ".db"));
    agents_.push_back(std::move(agent));
  }

  void start(Agent& agent) {
    agent.process = Program(agent.command, dir_ / (agent.name + ".log"));
    agent.stopped = false;
  }

  // ---- Faults ----

  void publish(bool snapshot) {
    for (int n = 0; n < 6; n++) {
      const auto id = static_cast<uint32_t>(100 * (1 + random_.below(60)));
      policy_.actions[id] = std::to_string(random_.next());
    }
    publisher_.publish(policy_.state(), snapshot);
  }
  void roll_back() {
    const uint64_t last = publisher_.last();
    if (last < 2) return;
    publisher_.move(last - 1, last - 1);
    went_back_.insert(last - 1);
  }
  void publish_bad() {
    StateBuilder made;
    made.add({5, 0, "", "no TLV", {}});
    publisher_.publish(made.finish());
    bad_.insert(publisher_.last());
    publish(true);
  }
  void forge() {
    Publisher stranger(
        [this](const std::string& key, const std::string& value) { put(key, value); }, "edge");
    stranger.publish(policy_.state());
    std::this_thread::sleep_for(pace::paced(milliseconds(30)));
    const uint64_t first = 1;
    // Its revision lies where one of ours was; ours comes back.
    put(publisher_.keys().revision("edge", first), first_revision_);
    put(publisher_.keys().head("edge"), publisher_.sealed_head(publisher_.head()));
  }
  void kill_member() {
    const int member = static_cast<int>(random_.below(3));
    cluster_.kill(member);
    std::this_thread::sleep_for(milliseconds(100));
    cluster_.start(member);
    cluster_.await();
  }
  void kill_all_members() {
    for (int n = 0; n < cluster_.size(); n++) cluster_.kill(n);
    for (int n = 0; n < cluster_.size(); n++) cluster_.start(n);
    cluster_.await();
  }
  void hold_leader() {
    const int leader = cluster_.leader();
    if (leader < 0) return;
    cluster_.stop(leader);
    std::this_thread::sleep_for(milliseconds(1500));
    cluster_.resume(leader);
    cluster_.await();
  }
  void compact() {
    const GetAnswer answer = store_->get("anything");
    try {
      cluster_.control({"compact", std::to_string(answer.header.revision)});
    } catch (const std::exception&) {
      // It was compacted up to there before.
    }
  }
  Agent& any_agent() { return agents_[random_.below(agents_.size())]; }

  void fault() {
    const uint64_t what = random_.below(200);
    if (what < 90) return publish(random_.below(10) == 0);
    if (what < 130) return kill_agent(any_agent());
    if (what < 150) return toggle(any_agent());
    if (what < 162) return proxies_[random_.below(3)]->lie(random_.below(2) == 0);
    if (what < 174) return proxies_[random_.below(3)]->cut(random_.below(3) == 0);
    if (what < 182) return publish_bad();
    if (what < 188) return forge();
    if (what < 193) return compact();
    if (what < 195) return roll_back();
    if (what < 198) return kill_member();
    if (what < 199) return hold_leader();
    kill_all_members();
  }
  void kill_agent(Agent& agent) {
    agent.process.end(SIGKILL);
    start(agent);
  }
  static void toggle(Agent& agent) {
    agent.process.signal(agent.stopped ? SIGCONT : SIGSTOP);
    agent.stopped = !agent.stopped;
  }

  // ---- The checker ----

  bool is_whole(const Seen& seen) const {
    if (seen.held.number == 0) return seen.state == State();
    return seen.held.number <= publisher_.last() && !bad_.contains(seen.held.number) &&
           seen.state == publisher_.state(seen.held.number);
  }
  // The name of an agent whose database is not what it should be goes to `caught_`.
  void check_all() {
    for (Agent& agent : agents_) {
      if (caught_.contains(agent.name)) continue;
      const Seen seen = agent.database->look();
      const bool goes_on =
          seen.held.number >= agent.highest || went_back_.contains(seen.held.number);
      agent.highest = seen.held.number;
      if (is_whole(seen) && goes_on) continue;
      caught_.insert(agent.name);
      checked_ += agent.name + " held " + std::to_string(seen.held.number) + "\n";
    }
  }

  bool have_converged() {
    for (const Agent& agent : agents_) {
      if (caught_.contains(agent.name)) continue;
      if (agent.database->look().held.number != publisher_.head().next) return false;
    }
    return true;
  }

  void put(const std::string& key, const std::string& value) {
    const auto until = std::chrono::steady_clock::now() + milliseconds(pace::patience_ms());
    for (;;) {
      try {
        store_->change({{}, {{key, value}}});
        if (first_revision_.empty() && key.find("/r/") != std::string::npos)
          first_revision_ = value;
        return;
      } catch (const StoreError& error) {
        if (std::chrono::steady_clock::now() > until) throw;
        std::this_thread::sleep_for(milliseconds(50));
      }
    }
  }

  Random random_{number_from("QIM_FLEET_SEED", 1)};
  Cluster cluster_;
  std::unique_ptr<Store> store_ = cluster_.connect();
  tools_test::TempDir dir_;
  std::string first_revision_;
  Publisher publisher_{
      [this](const std::string& key, const std::string& value) { put(key, value); }, "edge"};
  SmallPolicy policy_;
  std::vector<std::unique_ptr<Proxy>> proxies_;
  std::vector<Agent> agents_;
  std::set<uint64_t> bad_;
  std::set<uint64_t> went_back_;  // where a rollback led to
  std::set<std::string> caught_;
  std::string checked_;
};

TEST_F(Faults, NoDatabaseIsEverHalfOfSomething) {
  const bool is_slow = pace::kSanitized || getenv("QIM_COUNTED") != nullptr;
  const uint64_t few = (is_slow ? 60 : 300) * number_from("QIM_SOAK", 1);
  const uint64_t faults = number_from("QIM_FLEET_FAULTS", std::min<uint64_t>(few, 20'000));
  for (uint64_t n = 0; n < faults; n++) {
    fault();
    for (int look = 0; look < 3; look++) {
      check_all();
      std::this_thread::sleep_for(milliseconds(random_.below(25)));
    }
  }
  for (Agent& agent : agents_) {
    if (agent.stopped) toggle(agent);
  }
  for (const auto& proxy : proxies_) {
    proxy->cut(false);
    proxy->lie(false);
  }
  publish(true);
  const auto until = std::chrono::steady_clock::now() + milliseconds(pace::patience_ms());
  while (!have_converged() && std::chrono::steady_clock::now() < until) {
    check_all();
    std::this_thread::sleep_for(100ms);
  }
  EXPECT_TRUE(have_converged());
  // Whoever is broken was caught, and nobody else.
  EXPECT_EQ(caught_, (std::set<std::string>{"by-node", "two-commits", "unchecked"})) << checked_;
}

TEST_F(Faults, WhatIsRefusedIsRefusedEverywhereForTheSameReason) {
  StateBuilder made;
  made.add({5, 0, "", "no TLV", {}});
  publisher_.publish(made.finish());
  const uint64_t bad = publisher_.last();
  const auto until = std::chrono::steady_clock::now() + milliseconds(pace::patience_ms());
  std::set<std::string> reasons;
  size_t refused = 0;
  while (refused < kAgents && std::chrono::steady_clock::now() < until) {
    std::this_thread::sleep_for(100ms);
    refused = 0;
    reasons.clear();
    for (size_t n = 0; n < kAgents; n++) {
      const std::string& name = agents_[n].name;
      const GetAnswer answer = store_->get(publisher_.keys().status("edge", name));
      if (!answer.found) continue;
      const Status status = open_status(answer.found->value, nullptr, "edge", name);
      if (status.refused != bad) continue;
      refused++;
      reasons.insert(status.reason);
    }
  }
  EXPECT_EQ(refused, kAgents);
  EXPECT_EQ(reasons.size(), 1U);
}

}  // namespace
