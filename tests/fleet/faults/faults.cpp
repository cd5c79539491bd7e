// What can happen to a fleet.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

#include "fleet/state/state_digest.h"
#include "tests/fleet/faults/faulty_fleet.h"
#include "tests/fleet/support/certificates.h"
#include "tests/support/pace.h"

namespace fleet_test {

using namespace qim::fleet;
using std::chrono::milliseconds;

// ---- Of publishers ----

void FaultyFleet::put(const std::string& key, const std::string& value) {
  const auto until = std::chrono::steady_clock::now() + milliseconds(pace::patience_ms());
  for (;;) {
    try {
      store_->change({{}, {{key, value}}});
      writes_.emplace_back(key, value);
      if (first_revision_.empty() && key.find("/r/") != std::string::npos) first_revision_ = value;
      return;
    } catch (const StoreError&) {
      if (std::chrono::steady_clock::now() > until) throw;
      std::this_thread::sleep_for(milliseconds(50));
    }
  }
}

// As publishers do who find that the store does not have it.
void FaultyFleet::put_again(size_t from) {
  const std::vector<std::pair<std::string, std::string>> since(
      writes_.begin() + static_cast<std::ptrdiff_t>(from), writes_.end());
  writes_.resize(from);
  for (const auto& [key, value] : since) put(key, value);
}

void FaultyFleet::publish_state(bool snapshot) {
  for (int n = 0; n < 6; n++) {
    const auto id = static_cast<uint32_t>(100 * (1 + random_.below(60)));
    policy_.actions[id] = std::to_string(random_.next());
  }
  publisher_.publish(policy_.state(), snapshot);
}

void FaultyFleet::publish_bad() {
  StateBuilder made;
  made.add({5, 0, "", "no TLV", {}});
  bad_.insert(publisher_.last() + 1);
  publisher_.publish(made.finish());
}

void FaultyFleet::publish_bad_between() {
  publish_bad();
  publish_state(true);
}

void FaultyFleet::roll_back() {
  const uint64_t to = publisher_.last() - 1;
  if (to == 0 || bad_.contains(to)) return;
  went_back_.insert(to);
  publisher_.move(to, to);
}

// Somebody signs with a key of his own, or changes what was signed; then what is right comes back.
void FaultyFleet::forge() {
  const std::string head = publisher_.keys().head("edge");
  if (random_.below(2) == 0) {
    Publisher stranger(
        [this](const std::string& key, const std::string& value) { put(key, value); }, "edge");
    stranger.publish(policy_.state());
  } else {
    std::string changed = publisher_.sealed_head(publisher_.head());
    changed[random_.below(changed.size())] ^= 1;
    put(head, changed);
  }
  pause(60);
  put(publisher_.keys().revision("edge", 1), first_revision_);
  put(head, publisher_.sealed_head(publisher_.head()));
}

// ---- Of agents ----

void FaultyFleet::kill_agent() {
  any_agent().start();
}

void FaultyFleet::toggle_agent() {
  FaultAgent& agent = any_agent();
  if (agent.is_held()) return agent.go_on();
  agent.hold();
}

// By up to a day, or to the right time.
void FaultyFleet::set_clock() {
  constexpr int64_t day = 86400;
  const FaultAgent& agent = any_agent();
  const auto seconds = static_cast<int64_t>(random_.below(2 * day)) - day;
  agent.set_clock(random_.below(3) == 0 ? 0 : seconds);
}

void FaultyFleet::spoil_certificate() {
  FaultAgent& agent = any_good_agent();
  const std::string& name = agent.name();
  if (!std::filesystem::exists(cluster_.directory() + "/" + name + ".pem")) return kill_agent();
  if (spoilt_.erase(name) != 0) {
    agent.most = UINT64_MAX;
    return make_certificate(cluster_.directory(), name);
  }
  spoilt_.insert(name);
  if (random_.below(2) == 0)
    make_certificate(cluster_.directory(), name, -1);
  else
    revoke_certificate(cluster_.directory(), name);
  // It comes with a new connection, which is not let in.
  agent.start();
  agent.most = publisher_.last();
}

// At a size that some of its files have not reached; often it can't even begin.
void FaultyFleet::fill_disk() {
  any_good_agent().start_on_full_disk(random_.below(200));
}

// ---- Of lines and proxies ----

void FaultyFleet::lie_on_line() {
  const uint64_t which = random_.below(4);
  Proxy& line = which < 3 ? *member_lines_[which] : *site_line_;
  line.lie(random_.below(2) == 0);
}

void FaultyFleet::cut_line() {
  const uint64_t which = random_.below(4);
  Proxy& line = which < 3 ? *member_lines_[which] : *site_line_;
  line.cut(random_.below(3) == 0);
}

void FaultyFleet::lie_as_store() {
  constexpr Lie lies[] = {Lie::none, Lie::changed, Lie::old, Lie::swapped, Lie::withheld};
  liar_->tell(lies[random_.below(5)]);
}

void FaultyFleet::kill_site_proxy() {
  site_proxy_.end(SIGKILL);
  pause(100);
  start_site_proxy();
}

// ---- Of the store ----

void FaultyFleet::kill_member() {
  const int member = static_cast<int>(random_.below(3));
  cluster_.kill(member);
  pause(200);
  cluster_.start(member);
  cluster_.await();
}

void FaultyFleet::kill_all_members() {
  for (int n = 0; n < cluster_.size(); n++) cluster_.kill(n);
  for (int n = 0; n < cluster_.size(); n++) cluster_.start(n);
  cluster_.await();
}

void FaultyFleet::hold_for(int member, int longest) {
  cluster_.stop(member);
  publish_state(false);
  pause(longest);
  cluster_.resume(member);
  cluster_.await();
}

void FaultyFleet::hold_member() {
  hold_for(static_cast<int>(random_.below(3)), 300);
}

void FaultyFleet::hold_leader() {
  const int leader = cluster_.leader();
  if (leader >= 0) hold_for(leader, 500);
}

// Who uses the store reaches it still, and the others make another one the leader.
void FaultyFleet::part_leader() {
  const int leader = cluster_.leader();
  if (leader < 0) return;
  lines_.part(cluster_, leader, random_.below(2) == 0);
  publish_state(false);
  const auto until = std::chrono::steady_clock::now() + milliseconds(pace::patience_ms());
  int next = leader;
  while ((next < 0 || next == leader) && std::chrono::steady_clock::now() < until) {
    pause(50);
    next = cluster_.leader();
  }
  EXPECT_TRUE(next >= 0 && next != leader) << "the leader was not parted from the others";
  lines_.join();
  cluster_.await();
}

void FaultyFleet::compact() {
  try {
    const GetAnswer answer = store_->get("anything");
    cluster_.control({"compact", std::to_string(answer.header.revision)});
  } catch (const std::exception&) {
    // It was compacted up to there before.
  }
}

void FaultyFleet::compact_behind_a_back() {
  FaultAgent& agent = any_agent();
  agent.hold();
  for (int n = 0; n < 2; n++) publish_state(false);
  compact();
  agent.go_on();
}

// One member has no more room, so that none takes anything.
void FaultyFleet::fill_quota() {
  const int member = static_cast<int>(random_.below(3));
  cluster_.kill(member);
  cluster_.start(member, "1");
  cluster_.await();
  EtcdOptions full = cluster_.options();
  full.endpoints = {cluster_.endpoint(member)};
  const auto refuses = [](Store& store) {
    const auto until = std::chrono::steady_clock::now() + milliseconds(pace::patience_ms());
    for (; std::chrono::steady_clock::now() < until;) {
      try {
        store.change({{}, {{"anything", "1"}}});
      } catch (const StoreError& error) {
        if (error.failure() == StoreFailure::refused) return true;
      }
      std::this_thread::sleep_for(milliseconds(20));
    }
    return false;
  };
  EXPECT_TRUE(refuses(*connect_etcd(full)));
  EXPECT_TRUE(refuses(*store_));
  kill_agent();
  pause(300);
  cluster_.kill(member);
  cluster_.start(member);
  cluster_.await();
  cluster_.control({"alarm", "disarm"});
}

// An old copy of the store comes up in its place. Nobody goes back to what it says; when it is another
// cluster, nobody takes what is published there either before somebody has accepted it.
void FaultyFleet::restore_backup() {
  const std::string file = (dir_ / "backup").string();
  cluster_.save(file);
  const size_t saved = writes_.size();
  for (uint64_t n = 0; n <= random_.below(3); n++) publish_state(false);
  pause(300);
  const bool is_foreign = random_.below(2) == 0;
  if (is_foreign) {
    // What somebody asked of an agent before is not meant for this one.
    for (FaultAgent& agent : agents_) {
      agent.forget_requests();
      agent.start();
    }
    asking_ = 0;
    foreign_++;
    forbidden_ = publisher_.last() + 1;
  }
  cluster_.restore(file, is_foreign ? "another-" + std::to_string(foreign_) : "");
  const size_t restored = writes_.size();
  if (is_foreign) publish_state(true);
  pause(500);
  forbidden_ = UINT64_MAX;
  if (random_.below(2) == 0) {
    cluster_.bring_back();
    return put_again(restored);
  }
  cluster_.forget_old();
  put_again(saved);
  if (is_foreign) asking_ = 20;
}

void FaultyFleet::ask_to_accept() {
  asking_--;
  for (const FaultAgent& agent : agents_) agent.ask(Request::accept_cluster);
}

void FaultyFleet::mend() {
  for (const auto& line : member_lines_) {
    line->cut(false);
    line->lie(false);
  }
  site_line_->cut(false);
  site_line_->lie(false);
  liar_->tell(Lie::none);
  for (const std::string& name : spoilt_) make_certificate(cluster_.directory(), name);
  spoilt_.clear();
  for (FaultAgent& agent : agents_) {
    agent.most = UINT64_MAX;
    agent.set_clock(0);
    agent.go_on();
    // It may have ended.
    if (agent.is_short_of_disk()) agent.start();
  }
  publish_state(true);
}

}  // namespace fleet_test
