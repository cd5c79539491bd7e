// What is still needed, and taking away the rest.
#include "fleet/publish/prune.h"

#include <algorithm>
#include <set>

#include "fleet/publish/device_status.h"
#include "policy/base/text.h"

namespace qim::fleet {

namespace {

// Operations and conditions of one change; the store takes 128 of each.
constexpr size_t most_erased = 100;
constexpr size_t most_scopes = 120;

// The first revision that is needed for its own sake.
uint64_t first_wanted(const Scope& scope, const Head& head, uint64_t keep) {
  uint64_t first = head.last > keep ? head.last - keep + 1 : 1;
  first = std::min(first, head.next);
  if (head.base != 0) first = std::min(first, head.base);
  for (const DeviceStatus& device : read_statuses(scope)) {
    if (device.status.applied != 0) first = std::min(first, device.status.applied);
  }
  return first;
}

// Where the ways begin by which the revisions from `first` on are made.
uint64_t first_needed(const std::vector<Revision>& revisions, uint64_t first) {
  uint64_t needed = first;
  for (const Revision& revision : revisions) {
    if (revision.number < first) continue;
    // Without a snapshot it goes back to the empty database.
    needed = std::min(needed, std::max<uint64_t>(revision.newest_snapshot, 1));
  }
  return needed;
}

class Pruning {
 public:
  Pruning(const Scope& scope, bool dry) : scope_(scope), publisher_(scope.publisher()), dry_(dry) {}

  Pruned run(uint64_t keep) {
    note_heads();
    const Head head = scope_.require_head().head;
    const std::vector<Revision> revisions = scope_.revisions();
    done_.first = first_needed(revisions, first_wanted(scope_, head, keep));
    std::vector<std::string> old;
    for (const Revision& revision : revisions) {
      if (revision.number < done_.first)
        old.push_back(publisher_.keys.revision(scope_.name(), revision.number));
    }
    done_.revisions = old.size();
    const std::vector<std::string> chunks = unused_chunks();
    done_.chunks = chunks.size();
    erase(old);
    erase(chunks);
    return done_;
  }

 private:
  // Nothing goes when any of them is moved meanwhile: a new revision may need what this takes for old.
  void note_heads() {
    for (const KeyValue& item : list_all(publisher_.store, publisher_.keys.heads(), true)) {
      heads_.push_back({item.key, item.modified});
      scopes_.push_back(Keys::last_part(item.key));
    }
    if (heads_.size() > most_scopes)
      throw RefusedError("the store has more than " + std::to_string(most_scopes) +
                         " scopes, which are too many to be compared at once; give each group of "
                         "them a prefix of its own");
  }

  std::vector<std::string> unused_chunks() const {
    std::set<std::string> used;
    for (const std::string& name : scopes_) {
      const bool is_this = name == scope_.name();
      for (const Revision& revision : Scope(publisher_, name).revisions()) {
        if (is_this && revision.number < done_.first) continue;
        for (const Chunk& chunk : revision.snapshot)
          used.insert(publisher_.keys.chunk(chunk.digest));
      }
    }
    std::vector<std::string> unused;
    for (const KeyValue& item : list_all(publisher_.store, publisher_.keys.chunks(), true)) {
      if (!used.contains(item.key)) unused.push_back(item.key);
    }
    return unused;
  }

  void erase(const std::vector<std::string>& keys) const {
    for (size_t at = 0; at < keys.size() && !dry_; at += most_erased) {
      Change change;
      change.conditions = heads_;
      const size_t end = std::min(keys.size(), at + most_erased);
      change.erased.assign(keys.begin() + static_cast<std::ptrdiff_t>(at),
                           keys.begin() + static_cast<std::ptrdiff_t>(end));
      if (!publisher_.store.change(change).done)
        throw RefusedError("somebody moved a head meanwhile; try again");
    }
  }

  const Scope& scope_;
  const Publisher& publisher_;
  bool dry_;
  std::vector<Condition> heads_;
  std::vector<std::string> scopes_;
  Pruned done_;
};

}  // namespace

Pruned prune(const Scope& scope, uint64_t keep, bool dry) {
  return Pruning(scope, dry).run(keep);
}

}  // namespace qim::fleet
