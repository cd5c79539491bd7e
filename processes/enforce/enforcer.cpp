// Reading revisions, and putting them into the kernel.
#include "processes/enforce/enforcer.h"

#include <net/if.h>

#include <algorithm>
#include <set>
#include <utility>

#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/store/stored_model.h"
#include "processes/enforce/filter.h"
#include "processes/enforce/kernel_reader.h"
#include "processes/enforce/log.h"

namespace enforce {

namespace {

using qimctl::nft::Chain;
using qimctl::nft::Refusal;
using qimctl::nft::Ruleset;

constexpr size_t most_refusals = 20;

void say_refusals(const Revision& revision) {
  const std::vector<Refusal>& all = revision.made.refusals;
  for (size_t i = 0; i < all.size() && i < most_refusals; i++)
    say(Level::error, qimctl::quoted(all[i].where) + ": " + all[i].what);
  if (all.size() > most_refusals)
    say(Level::error, "and " + qimctl::counted(all.size() - most_refusals, "more obstacle"));
}

// For what the kernel has and the library can't decode the whole table is put anew.
void put_changes(const qimctl::nft::Changes& todo, const Ruleset& ruleset) {
  try {
    run_commands(todo.commands);
  } catch (const FilterError& error) {
    say(Level::warning, std::string("the whole table is put anew: ") + error.what());
    run_commands(qimctl::nft::to_json(ruleset));
  }
}

// A ruleset without base chains of devices that do not exist, which older kernels refuse.
Ruleset without_absent(const Ruleset& ruleset, std::vector<std::string>& absent) {
  Ruleset present = ruleset;
  std::erase_if(present.chains, [&absent](const Chain& chain) {
    if (chain.device.empty() || if_nametoindex(chain.device.c_str()) != 0) return false;
    absent.push_back(chain.device);
    return true;
  });
  return present;
}

}  // namespace

Revision read_revision(const qimctl::Database& database) {
  const qimctl::StoredModel stored = qimctl::read_stored_model(qimctl::ReadSession(database));
  Revision revision;
  revision.made = qimctl::nft::translate(stored.model);
  for (const qimctl::Unreadable& unreadable : stored.unreadable)
    revision.made.refusals.push_back(
        {unreadable.name.empty() ? qimctl::node_id_text(unreadable.node) : unreadable.name,
         qimctl::unreadable_text(unreadable)});
  std::set<std::string> attached;
  for (const qimctl::Attachment& attachment : stored.model.attachments)
    attached.insert(attachment.list);
  revision.lists = attached.size();
  for (const qimctl::AccessList& list : stored.model.lists)
    if (attached.contains(list.name)) revision.entries += list.entries.size();
  return revision;
}

Enforcer::Enforcer(const std::string& directory)
    : database_(directory, qimctl::OpenMode::read), following_(database_, 0) {
  metrics_.seen_revision = following_.from();
}

bool Enforcer::take_news() {
  while (const auto change = following_.next()) {
    const uint64_t revision = qimctl::joined(change->revision);
    metrics_.seen_revision = std::max(metrics_.seen_revision, revision);
    if (!is_behind_) behind_since_ = Clock::now();
    is_behind_ = true;
    is_unread_ = true;
  }
  return is_unread_;
}

// What is read is the newest revision that is known, unless more came meanwhile. Then it is read again,
// but not for ever: what was read is one whole revision in any case.
Outcome Enforcer::update() {
  constexpr int most_tries = 3;
  Revision revision;
  for (int tries = 0; tries < most_tries; tries++) {
    is_unread_ = false;
    const uint64_t number = metrics_.seen_revision;
    revision = read_revision(database_);
    revision.number = number;
    if (!take_news()) break;
  }
  const Outcome outcome = put(revision);
  if (outcome == Outcome::good && !is_unread_) is_behind_ = false;
  return outcome;
}

Outcome Enforcer::put(const Revision& revision) {
  const std::string name = "revision " + std::to_string(revision.number);
  if (!revision.made.refusals.empty()) {
    metrics_.refusals++;
    say_refusals(revision);
    say(Level::error,
        name + " is refused as a whole; the kernel keeps " +
            (metrics_.revision == 0 ? "what it has"
                                    : "revision " + std::to_string(metrics_.revision)));
    return Outcome::refused;
  }
  const Clock::time_point begin = Clock::now();
  const uint64_t before = metrics_.updates;
  if (!put_ruleset(revision.made.ruleset)) return Outcome::failed;
  metrics_.update_seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  metrics_.revision = revision.number;
  metrics_.lists = revision.lists;
  metrics_.entries = revision.entries;
  held_ = revision.made.ruleset;
  if (metrics_.updates == before) say(Level::info, name + " changes nothing in the kernel");
  return Outcome::good;
}

bool Enforcer::put_ruleset(const Ruleset& ruleset) {
  absent_.clear();
  std::string why;
  if (try_ruleset(ruleset, why)) return true;
  std::vector<std::string> absent;
  const Ruleset present = without_absent(ruleset, absent);
  if (!absent.empty() && try_ruleset(present, why)) {
    absent_ = absent;
    for (const std::string& device : absent)
      say(Level::warning, "there is no interface " + qimctl::quoted(device) + " yet");
    return true;
  }
  metrics_.failures++;
  say(Level::error, "the kernel keeps what it has: " + why);
  return false;
}

bool Enforcer::try_ruleset(const Ruleset& ruleset, std::string& why) {
  try {
    const qimctl::nft::Changes todo = qimctl::nft::changes(read_kernel(), ruleset);
    metrics_.rules = 0;
    for (const Chain& chain : ruleset.chains) metrics_.rules += chain.rules.size();
    if (todo.commands.empty()) return true;
    put_changes(todo, ruleset);
    metrics_.updates++;
    say(Level::notice, qimctl::counted(todo.added, "rule") + " added, " +
                           std::to_string(todo.deleted) + " deleted");
    return true;
  } catch (const FilterError& error) {
    why = error.what();
    return false;
  }
}

Outcome Enforcer::repair() {
  if (metrics_.revision == 0) return Outcome::good;
  const uint64_t before = metrics_.updates;
  if (!put_ruleset(held_)) return Outcome::failed;
  if (metrics_.updates == before) return Outcome::good;
  metrics_.repairs++;
  say(Level::warning, "somebody else had changed the table; it is as it should be again");
  return Outcome::good;
}

bool Enforcer::has_come() const {
  return std::any_of(absent_.begin(), absent_.end(),
                     [](const std::string& device) { return if_nametoindex(device.c_str()) != 0; });
}

Metrics Enforcer::metrics() const {
  Metrics now = metrics_;
  if (is_behind_)
    now.lag_seconds = std::chrono::duration<double>(Clock::now() - behind_since_).count();
  return now;
}

}  // namespace enforce
