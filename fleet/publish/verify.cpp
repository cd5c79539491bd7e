// Every revision, made again from its predecessor and from its snapshot.
#include "fleet/publish/verify.h"

#include <map>

#include "fleet/state/difference.h"
#include "fleet/state/state_digest.h"
#include "policy/base/text.h"

namespace qim::fleet {

namespace {

class Walk {
 public:
  Walk(const Scope& scope, Verification& found) : scope_(scope), found_(found) {}

  void run() {
    const Publisher& publisher = scope_.publisher();
    const std::string prefix = publisher.keys.revisions(scope_.name());
    for (const KeyValue& item : list_all(publisher.store, prefix, true)) {
      found_.revisions++;
      attempt([&] { look_at(item.key); });
    }
    attempt([&] { check_head(); });
  }

 private:
  template <typename Look>
  void attempt(Look look) {
    try {
      look();
    } catch (const StoreError&) {
      throw;
    } catch (const Error& error) {
      found_.defects.push_back(error.what());
    }
  }

  void look_at(const std::string& key) {
    const std::string digits = Keys::last_part(key);
    if (digits.size() > 18 || digits.find_first_not_of("0123456789") != std::string::npos)
      throw ForgedError(qimctl::quoted(key) + " is no revision's key");
    const Revision revision = scope_.revision(std::stoull(digits));
    const std::string name = "revision " + std::to_string(revision.number);
    check_difference(revision, name);
    if (revision.has_snapshot) {
      found_.snapshots++;
      // This begins with the snapshot, and compares its digest.
      states_[revision.number] = scope_.state(revision.number);
    }
    digests_[revision.number] = revision.state;
    forget_old();
  }

  void check_difference(const Revision& revision, const std::string& name) {
    const auto before = states_.find(revision.predecessor);
    // What came before the first one that is kept was pruned; its snapshot is looked at.
    const bool is_first = digests_.empty() && revision.has_snapshot && revision.predecessor != 0;
    if (!revision.has_difference || is_first) return;
    // Revisions are gone through by their numbers, and most follow the one before.
    const State from =
        before != states_.end() ? before->second : scope_.state(revision.predecessor);
    if (state_digest(from) != revision.predecessor_state)
      throw ForgedError(name + " follows another state than revision " +
                        std::to_string(revision.predecessor) + " has");
    const std::string bytes = difference_of(revision);
    State state = changed(from, parse_difference(bytes));
    if (state_digest(state) != revision.state)
      throw ForgedError(name + ": its difference does not make its state");
    states_[revision.number] = std::move(state);
  }

  void forget_old() {
    while (states_.size() > 2) states_.erase(states_.begin());
  }

  void check_head() {
    const Head head = scope_.require_head().head;
    check_place("base", head.base, head.base_state);
    check_place("next", head.next, head.next_state);
    if (!digests_.empty() && digests_.rbegin()->first > head.last)
      throw ForgedError("there is a revision behind the head's last one, " +
                        std::to_string(head.last));
  }

  void check_place(const char* place, uint64_t number, const Digest& state) {
    const auto found = digests_.find(number);
    if (number != 0 && (found == digests_.end() || found->second != state))
      throw ForgedError("the head's " + std::string(place) + ", revision " +
                        std::to_string(number) + ", is missing or of another state");
  }

  const Scope& scope_;
  Verification& found_;
  std::map<uint64_t, State> states_;    // the last ones
  std::map<uint64_t, Digest> digests_;  // of all sound ones
};

}  // namespace

Verification verify_scope(const Scope& scope) {
  Verification found;
  Walk(scope, found).run();
  return found;
}

}  // namespace qim::fleet
