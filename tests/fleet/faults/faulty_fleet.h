// A fleet to which faults happen at random, by a seed, and a checker that looks at every device's
// database: three members of a real store, real agents, and such as are broken on purpose.
//
// Agents reach the store in five ways, in turn: with certificates, twice; the same by lines that are cut;
// by the store's own proxy, over a line that changes bytes; and by a proxy that lies.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fleet/base/backoff.h"
#include "tests/fleet/agent/publisher.h"
#include "tests/fleet/faults/agents.h"
#include "tests/fleet/faults/lying_store.h"
#include "tests/fleet/faults/peer_lines.h"
#include "tests/tools/support.h"

namespace fleet_test {

class FaultyFleet {
 public:
  FaultyFleet(uint64_t seed, size_t agents);

  // The next one. They are dealt: in each 300 every kind has its number.
  void fault();
  void look();
  // Puts everything right that faults have left.
  void mend();
  // Until all agents that were not caught hold what the head says.
  bool converges();

  // ---- What came of it ----
  // Agents whose database was not what it should be, and what it was.
  const std::set<std::string>& caught() const { return caught_; }
  const std::string& findings() const { return findings_; }
  // What was acknowledged, and the store does not have; "" = nothing.
  std::string lost();
  std::string newest_faults() const;
  uint64_t lies() const;
  // A revision that nobody can hold, and why it was refused by how many.
  void publish_bad();
  std::map<std::string, size_t> refusals();

 private:
  struct Kind;
  static const std::vector<Kind>& kinds();
  Way way(size_t agent);
  void start_site_proxy();
  void add_agents(size_t count);
  void pause(int longest);

  // ---- Faults ----
  void publish() { publish_state(random_.below(10) == 0); }
  void publish_state(bool snapshot);
  void publish_bad_between();
  void roll_back();
  void forge();
  void kill_agent();
  void toggle_agent();
  void set_clock();
  void spoil_certificate();
  void fill_disk();
  void compact();
  void compact_behind_a_back();
  void lie_on_line();
  void cut_line();
  void lie_as_store();
  void kill_site_proxy();
  void kill_member();
  void kill_all_members();
  void hold_member();
  void hold_leader();
  void part_leader();
  void fill_quota();
  void restore_backup();

  // ---- What they are made of ----
  FaultAgent& any_agent() { return agents_[random_.below(agents_.size())]; }
  FaultAgent& any_good_agent() { return agents_[random_.below(good_)]; }
  void hold_for(int member, int milliseconds);
  void put(const std::string& key, const std::string& value);
  void put_again(size_t from);
  void ask_to_accept();
  void judge(FaultAgent& agent);
  bool is_whole(const Seen& seen) const;

  qim::fleet::Random random_;
  qim::fleet::Random looks_;
  tools_test::TempDir dir_;
  PeerLines lines_;
  Cluster cluster_;
  std::unique_ptr<qim::fleet::Store> store_;
  std::array<std::unique_ptr<Proxy>, 3> member_lines_;  // to the members
  Program site_proxy_;
  int site_port_ = free_port();
  std::unique_ptr<Proxy> site_line_;  // to the store's own proxy
  std::unique_ptr<LyingStore> liar_;
  size_t good_;
  std::vector<FaultAgent> agents_;  // the good ones, then the others
  Publisher publisher_;
  SmallPolicy policy_;
  std::vector<std::pair<std::string, std::string>> writes_;  // as they were acknowledged
  std::string first_revision_;
  std::set<std::string> spoilt_;     // certificates
  std::set<uint64_t> bad_;           // revisions
  std::set<uint64_t> went_back_;     // where a rollback led to
  uint64_t forbidden_ = UINT64_MAX;  // this revision and later ones are another cluster's
  int foreign_ = 0;                  // how many clusters came after the first
  int asking_ = 0;  // for how many faults more agents are told to accept the cluster
  std::vector<const Kind*> deck_;
  std::vector<std::string> happened_;
  std::set<std::string> caught_;
  std::string findings_;
};

}  // namespace fleet_test
