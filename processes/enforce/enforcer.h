// Keeps the kernel's packet filter equal to the policy.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "policy/formats/nft/kernel_table.h"
#include "policy/store/database.h"
#include "policy/store/history.h"
#include "processes/enforce/metrics.h"

namespace enforce {

// The policy of one commit as a ruleset.
struct Revision {
  uint64_t number = 0;  // 0 = not known
  qimctl::nft::Translation made;
  uint64_t lists = 0;  // that are attached
  uint64_t entries = 0;
};
Revision read_revision(const qimctl::Database& database);

enum class Outcome {
  good,
  refused,  // the kernel can't do it, now or later
  failed,   // the kernel may do it later
};

class Enforcer {
 public:
  // Opens the database. Throws DatabaseError.
  explicit Enforcer(const std::string& directory);

  // Becomes readable when there may be news.
  int descriptor() const { return following_.descriptor(); }

  // Takes note of what changed in the database. Did anything since update() has read it?
  bool take_news();

  // Makes the kernel hold the newest revision. One that it can't do is refused as a whole, and what it
  // holds stays; so it does when the kernel fails. Throws DatabaseError.
  Outcome update();

  // Puts back what others have changed.
  Outcome repair();

  // Do interfaces that lists are attached to not exist yet, on a kernel that must see them first?
  bool is_waiting() const { return !absent_.empty(); }
  // Do some of these exist now?
  bool has_come() const;

  Metrics metrics() const;

 private:
  using Clock = std::chrono::steady_clock;

  Outcome put(const Revision& revision);
  bool put_ruleset(const qimctl::nft::Ruleset& ruleset);
  bool try_ruleset(const qimctl::nft::Ruleset& ruleset, std::string& why);

  qimctl::Database database_;
  qimctl::Following following_;
  Metrics metrics_;
  bool is_behind_ = true;  // the kernel does not hold the newest revision
  bool is_unread_ = true;
  Clock::time_point behind_since_ = Clock::now();
  qimctl::nft::Ruleset held_;
  std::vector<std::string> absent_;
};

}  // namespace enforce
