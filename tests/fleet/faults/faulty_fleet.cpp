// Setting a fleet up, dealing faults, and the checker.
#include "tests/fleet/faults/faulty_fleet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <utility>

#include "fleet/base/signature.h"
#include "fleet/state/state_digest.h"
#include "tests/fleet/support/certificates.h"
#include "tests/support/pace.h"

namespace fleet_test {

using namespace qim::fleet;
using std::chrono::milliseconds;

namespace {

constexpr size_t most_looked_at = 8;  // good ones at a time
constexpr int rounds_to_ask = 25;     // of looks while agents are waited for
constexpr size_t newest = 20;         // faults that are told when something is wrong
// So many good agents share what eight have for themselves.
constexpr size_t usual_agents = 8;

Cluster::Options cluster_options(PeerLines& lines) {
  Cluster::Options options;
  options.tls = true;
  options.revocation = true;
  options.line = [&lines](int port) { return lines.add(port); };
  return options;
}

// Whoever publishes tries again anyway, and at another member.
EtcdOptions in_a_hurry(EtcdOptions options) {
  options.timeout = milliseconds(500);
  return options;
}

}  // namespace

FaultyFleet::FaultyFleet(uint64_t seed, size_t agents)
    : random_(seed),
      looks_(seed),
      cluster_(cluster_options(lines_)),
      store_(connect_etcd(in_a_hurry(cluster_.options()))),
      good_(agents),
      publisher_([this](const std::string& key, const std::string& value) { put(key, value); },
                 "edge") {
  for (uint32_t id = 1; id <= 40; id++) policy_.actions[id * 100] = "first";
  for (size_t n = 0; n < member_lines_.size(); n++) {
    member_lines_[n] = std::make_unique<Proxy>(cluster_.endpoint(static_cast<int>(n)));
  }
  liar_ = std::make_unique<LyingStore>(cluster_.options(), seed);
  site_line_ = std::make_unique<Proxy>("127.0.0.1:" + std::to_string(site_port_));
  make_certificate(cluster_.directory(), "proxy", 30, "/O=proxy of a site");
  start_site_proxy();
  add_agents(agents);
  publisher_.publish(policy_.state(), true);
  for (FaultAgent& agent : agents_) agent.start();
  EXPECT_TRUE(converges()) << "before there was any fault";
}

Way FaultyFleet::way(size_t agent) {
  Way way{cluster_.options().endpoints, cluster_.directory()};
  switch (agent % 5) {
    case 0:
    case 1:
      break;
    case 2:
      for (size_t n = 0; n < member_lines_.size(); n++) {
        way.endpoints[n] = member_lines_[n]->endpoint();
      }
      break;
    case 3:
      way = {{site_line_->endpoint()}, ""};
      break;
    default:
      way = {{liar_->endpoint()}, ""};
  }
  return way;
}

void FaultyFleet::add_agents(size_t count) {
  tools_test::write_text(dir_ / "publishers",
                         trusted_line(publisher_.trusted().all().front().bytes, "publisher"));
  const size_t share = std::max<size_t>(1, count / usual_agents / 2);
  const std::string settings =
      "scope = edge\npublishers = " + (dir_ / "publishers").string() +
      "\nreport_spread = " + std::to_string(50 * share) +
      "ms\nretry_first = 50ms\nretry_most = 500ms\npoll = " + std::to_string(share) +
      "s\ntimeout = 1s\ndrift = " + std::to_string(5 * share) + "s\n";
  const auto add = [&](const std::string& name, const std::string& flaw, const Way& way) {
    if (!way.certificates.empty()) make_certificate(way.certificates, name);
    agents_.emplace_back(dir_ / "agents", name, flaw, settings, way);
  };
  for (size_t n = 0; n < count; n++) add("d" + std::to_string(n), "", way(n));
  for (const char* flaw : {"two-commits", "unchecked", "by-node"}) add(flaw, flaw, way(0));
}

void FaultyFleet::start_site_proxy() {
  const std::string certificates = cluster_.directory();
  std::string members;
  for (const std::string& endpoint : cluster_.options().endpoints) {
    members += (members.empty() ? "https://" : ",https://") + endpoint;
  }
  site_proxy_ =
      Program({"etcd", "grpc-proxy", "start",
               "--listen-addr=127.0.0.1:" + std::to_string(site_port_), "--endpoints=" + members,
               "--cacert=" + certificates + "/ca.pem", "--cert=" + certificates + "/proxy.pem",
               "--key=" + certificates + "/proxy.key", "--data-dir=" + certificates + "/proxy"},
              certificates + "/proxy.log");
}

// ---- Faults are dealt ----

struct FaultyFleet::Kind {
  const char* name;
  int of_300;
  void (FaultyFleet::*happen)();
};

const std::vector<FaultyFleet::Kind>& FaultyFleet::kinds() {
  static const std::vector<Kind> kinds{
      {"publish", 118, &FaultyFleet::publish},
      {"publish what nobody can hold", 10, &FaultyFleet::publish_bad_between},
      {"roll back", 3, &FaultyFleet::roll_back},
      {"forge", 8, &FaultyFleet::forge},
      {"kill an agent", 50, &FaultyFleet::kill_agent},
      {"hold an agent, or let it go on", 26, &FaultyFleet::toggle_agent},
      {"set an agent's clock", 9, &FaultyFleet::set_clock},
      {"a certificate expires, is revoked, or renewed", 6, &FaultyFleet::spoil_certificate},
      {"fill an agent's disk", 4, &FaultyFleet::fill_disk},
      {"compact", 6, &FaultyFleet::compact},
      {"compact behind an agent's back", 6, &FaultyFleet::compact_behind_a_back},
      {"change bytes on a line", 14, &FaultyFleet::lie_on_line},
      {"cut a line", 14, &FaultyFleet::cut_line},
      {"a proxy lies", 10, &FaultyFleet::lie_as_store},
      {"kill the store's own proxy", 4, &FaultyFleet::kill_site_proxy},
      {"kill a member", 3, &FaultyFleet::kill_member},
      {"kill all members", 1, &FaultyFleet::kill_all_members},
      {"hold a member", 3, &FaultyFleet::hold_member},
      {"hold the leader", 1, &FaultyFleet::hold_leader},
      {"part the leader from the others", 2, &FaultyFleet::part_leader},
      {"fill the store", 1, &FaultyFleet::fill_quota},
      {"restore a backup", 1, &FaultyFleet::restore_backup}};
  return kinds;
}

void FaultyFleet::fault() {
  if (deck_.empty()) {
    for (const Kind& kind : kinds())
      deck_.insert(deck_.end(), static_cast<size_t>(kind.of_300), &kind);
    for (size_t n = deck_.size(); n > 1; n--) std::swap(deck_[n - 1], deck_[random_.below(n)]);
  }
  const Kind* kind = deck_.back();
  deck_.pop_back();
  happened_.emplace_back(kind->name);
  if (happened_.size() > newest) happened_.erase(happened_.begin());
  if (asking_ > 0) ask_to_accept();
  const auto begin = std::chrono::steady_clock::now();
  (this->*kind->happen)();
  if (getenv("QIM_FLEET_SAY") == nullptr) return;
  const auto took = std::chrono::steady_clock::now() - begin;
  printf("%s: %lld ms\n", kind->name,
         static_cast<long long>(std::chrono::duration_cast<milliseconds>(took).count()));
  fflush(stdout);
}

std::string FaultyFleet::newest_faults() const {
  std::string text = "faults before:";
  for (const std::string& name : happened_) text += "\n  " + name;
  return text;
}

uint64_t FaultyFleet::lies() const {
  return liar_->lies() + site_line_->lies();
}

void FaultyFleet::pause(int longest) {
  const auto until = std::chrono::steady_clock::now() +
                     milliseconds(random_.below(static_cast<uint64_t>(longest)));
  while (std::chrono::steady_clock::now() < until) {
    look();
    std::this_thread::sleep_for(milliseconds(10));
  }
}

// ---- The checker ----

bool FaultyFleet::is_whole(const Seen& seen) const {
  if (seen.held.number == 0) return seen.state == State();
  return seen.held.number <= publisher_.last() && !bad_.contains(seen.held.number) &&
         seen.state == publisher_.state(seen.held.number);
}

void FaultyFleet::judge(FaultAgent& agent) {
  const Seen seen = agent.look();
  const uint64_t number = seen.held.number;
  std::string wrong;
  if (!is_whole(seen)) wrong = "half of something";
  if (number < agent.highest && !went_back_.contains(number)) wrong = "less than before";
  if (number > agent.most) wrong = "what its certificate keeps from it";
  if (number >= forbidden_) wrong = "what another cluster says";
  agent.highest = number;
  if (wrong.empty()) return;
  caught_.insert(agent.name());
  findings_ += agent.name() + " held " + std::to_string(number) + ", which is " + wrong + "\n";
  if (agent.flaw().empty()) findings_ += newest_faults() + "\n";
}

// Of many, some at a time.
void FaultyFleet::look() {
  for (size_t n = 0; n < agents_.size(); n++) {
    const bool is_turn =
        n >= good_ || good_ <= most_looked_at || looks_.below(good_) < most_looked_at;
    if (is_turn && !caught_.contains(agents_[n].name())) judge(agents_[n]);
  }
}

bool FaultyFleet::converges() {
  const auto until = std::chrono::steady_clock::now() + milliseconds(pace::patience_ms());
  for (int round = 1;; round++) {
    bool all = true;
    for (FaultAgent& agent : agents_) {
      if (caught_.contains(agent.name())) continue;
      judge(agent);
      all = all && agent.highest == publisher_.head().next;
    }
    if (all || std::chrono::steady_clock::now() > until) return all;
    if (foreign_ > 0 && round % rounds_to_ask == 0) ask_to_accept();
    std::this_thread::sleep_for(milliseconds(200));
  }
}

std::string FaultyFleet::lost() {
  std::map<std::string, std::string> should;
  for (const auto& [key, value] : writes_) should[key] = value;
  for (const auto& item : list_all(*store_, "/qim/")) {
    const auto found = should.find(item.key);
    if (found != should.end() && found->second == item.value) should.erase(found);
  }
  std::string text;
  for (const auto& [key, value] : should) text += key + "\n";
  return text;
}

std::map<std::string, size_t> FaultyFleet::refusals() {
  std::map<std::string, size_t> reasons;
  for (size_t n = 0; n < good_; n++) {
    const std::string& name = agents_[n].name();
    const GetAnswer answer = store_->get(publisher_.keys().status("edge", name));
    if (!answer.found) continue;
    const Status status = open_status(answer.found->value, nullptr, "edge", name);
    if (status.refused == publisher_.last()) reasons[status.reason]++;
  }
  return reasons;
}

}  // namespace fleet_test
