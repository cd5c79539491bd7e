// Comparing the access lists that there are with those that are wanted.
#include <algorithm>
#include <iterator>
#include <map>
#include <unordered_map>
#include <unordered_set>

#include "policy/change/change.h"
#include "policy/change/stages.h"
#include "policy/model/name_hash.h"

namespace qimctl {

namespace {

using Indices = std::unordered_map<std::string_view, size_t>;

// Entries that follow one another.
struct Stretch {
  size_t from = 0;
  size_t end = 0;

  bool empty() const { return from == end; }
};

Indices entries_by_name(const AccessList& list, const Stretch& part) {
  Indices indices;
  indices.reserve(part.end - part.from);
  for (size_t i = part.from; i < part.end; i++) indices.emplace(list.entries[i].name, i);
  return indices;
}

// Mostly few entries differ, so what is the same in front of them and behind them is passed over.
class EntryComparison {
 public:
  EntryComparison(const AccessList& before, const AccessList& after)
      : before_(before), after_(after) {
    const auto& old = before.entries;
    const auto& wanted = after.entries;
    const auto [end, wanted_end] =
        std::mismatch(old.begin(), old.end(), wanted.begin(), wanted.end(), same_entry);
    const auto behind =
        std::mismatch(old.rbegin(), std::make_reverse_iterator(end), wanted.rbegin(),
                      std::make_reverse_iterator(wanted_end), same_entry);
    const auto front = static_cast<size_t>(end - old.begin());
    const auto back = static_cast<size_t>(behind.first - old.rbegin());
    old_ = {front, old.size() - back};
    wanted_ = {front, wanted.size() - back};
    seen_ = front;
  }

  std::vector<EntryChange> compare() {
    if (old_.empty() && wanted_.empty()) return {};
    const Indices before = entries_by_name(before_, old_);
    std::vector<size_t> common;   // indices in the old list
    std::vector<size_t> indices;  // by entry of the new one, SIZE_MAX = it is new
    for (size_t to = wanted_.from; to < wanted_.end; to++) {
      const auto known = before.find(after_.entries[to].name);
      indices.push_back(known == before.end() ? SIZE_MAX : known->second);
      if (known != before.end()) common.push_back(known->second);
    }
    const std::vector<bool> stays = longest_ascending(common);
    const Indices after = entries_by_name(after_, wanted_);
    size_t n = 0;
    for (size_t i = 0; i < indices.size(); i++) {
      const size_t to = wanted_.from + i;
      if (indices[i] == SIZE_MAX) {
        add_removed_here(after);
        changes_.push_back({EntryFate::added, 0, to, false});
        continue;
      }
      if (stays[n]) {
        add_removed(indices[i], after);
        seen_ = indices[i] + 1;
      }
      add_common(indices[i], to, !stays[n++]);
    }
    add_removed(old_.end, after);
    return std::move(changes_);
  }

 private:
  // Those in front of what stays.
  void add_removed(size_t end, const Indices& after) {
    for (; seen_ < end; seen_++) {
      if (!after.contains(before_.entries[seen_].name))
        changes_.push_back({EntryFate::removed, seen_, 0, false});
    }
  }

  // What is replaced stands in front of what replaces it.
  void add_removed_here(const Indices& after) {
    size_t end = seen_;
    while (end < old_.end && !after.contains(before_.entries[end].name)) end++;
    add_removed(end, after);
  }

  void add_common(size_t from, size_t to, bool moved) {
    if (!same_entry(before_.entries[from], after_.entries[to])) {
      changes_.push_back({EntryFate::changed, from, to, moved});
    } else if (moved) {
      changes_.push_back({EntryFate::moved, from, to, true});
    }
  }

  const AccessList& before_;
  const AccessList& after_;
  Stretch old_;  // what may differ
  Stretch wanted_;
  std::vector<EntryChange> changes_;
  size_t seen_ = 0;  // entries of the old list that were looked at
};

using PlaceKey = std::pair<std::string_view, uint8_t>;
using Order = std::map<PlaceKey, std::vector<const Attachment*>>;

Order order_of(const std::vector<Attachment>& attachments) {
  Order order;
  for (const Attachment& at : attachments) order[{at.interface, at.dir}].push_back(&at);
  for (auto& [place, all] : order) {
    std::sort(all.begin(), all.end(),
              [](const Attachment* a, const Attachment* b) { return a->stage < b->stage; });
  }
  return order;
}

// What happens at one place, by list.
using PlaceChanges = std::map<std::string_view, std::vector<PlaceChange>>;

void compare_place(const std::vector<const Attachment*>& before,
                   const std::vector<const Attachment*>& after, PlaceChanges& changes) {
  Indices old;
  for (size_t i = 0; i < before.size(); i++) old.emplace(before[i]->list, i);
  std::vector<size_t> common;
  for (const Attachment* at : after) {
    if (old.contains(at->list)) common.push_back(old.at(at->list));
  }
  const std::vector<bool> stays = longest_ascending(common);
  size_t n = 0;
  for (const Attachment* at : after) {
    const auto known = old.find(at->list);
    if (known == old.end()) {
      changes[at->list].push_back({PlaceFate::added, *at});
      continue;
    }
    const bool moved = !stays[n++];
    const bool renumbered = before[known->second]->stage != at->stage;
    old.erase(known);
    if (moved || renumbered)
      changes[at->list].push_back({moved ? PlaceFate::moved : PlaceFate::renumbered, *at});
  }
  for (const auto& [list, index] : old)
    changes[list].push_back({PlaceFate::removed, *before[index]});
}

PlaceChanges compare_places(const std::vector<Attachment>& before,
                            const std::vector<Attachment>& after) {
  const Order old = order_of(before);
  const Order wanted = order_of(after);
  PlaceChanges changes;
  for (const auto& [place, all] : old) {
    const auto now = wanted.find(place);
    compare_place(all, now == wanted.end() ? std::vector<const Attachment*>() : now->second,
                  changes);
  }
  for (const auto& [place, all] : wanted) {
    if (!old.contains(place)) compare_place({}, all, changes);
  }
  return changes;
}

void check_interfaces(const std::vector<Attachment>& attachments) {
  std::unordered_map<uint32_t, const Attachment*> indices;
  for (const Attachment& at : attachments) {
    const auto [known, fresh] = indices.emplace(interface_index(at.interface), &at);
    if (!fresh && known->second->interface != at.interface)
      throw InputError(at.place.file.empty() ? known->second->place : at.place,
                       "the interfaces " + known->second->interface + " and " + at.interface +
                           " have the same index; give one another name");
  }
}

class Comparison {
 public:
  Comparison(const Model& old, Change& change) : old_(old), change_(change) {}

  void compare(const ChangeOptions& options) {
    places_ = compare_places(old_.attachments, change_.attachments);
    for (const AccessList& list : old_.lists) before_.emplace(list.name, &list);
    std::unordered_set<std::string_view> named;
    for (const AccessList& list : change_.named) {
      named.insert(list.name);
      const auto known = before_.find(list.name);
      add(known == before_.end() ? nullptr : known->second, &list, true);
    }
    for (const AccessList& list : old_.lists) {
      if (!named.contains(list.name)) add(&list, options.prune ? nullptr : &list, false);
    }
  }

  void merge_policers(const std::vector<Policer>& wanted) {
    std::map<std::string_view, const Policer*> old;
    for (const Policer& policer : old_.policers) old.emplace(policer.name, &policer);
    for (const Policer& policer : wanted) {
      const auto known = old.find(policer.name);
      if (known == old.end()) continue;
      if (!(*known->second == policer)) changed_policers_.insert(policer.name);
      old.erase(known);
    }
    change_.policers = wanted;
    for (const auto& [name, policer] : old) change_.policers.push_back(*policer);
  }

 private:
  void add(const AccessList* before, const AccessList* after, bool named) {
    ListChange list;
    list.before = before;
    list.after = after;
    const auto places = places_.find(list.name());
    if (places != places_.end()) list.places = std::move(places->second);
    if (before == nullptr) list.fate = ListFate::added;
    if (after == nullptr) list.fate = ListFate::removed;
    if (before != nullptr && after != nullptr) compare_lists(list);
    if (named || list.fate != ListFate::unchanged) change_.lists.push_back(std::move(list));
  }

  void compare_lists(ListChange& list) const {
    if (list.before != list.after) {
      list.entries = compare_entries(*list.before, *list.after);
      list.type_changed = list.before->type != list.after->type;
      list.default_changed = list.before->default_action != list.after->default_action;
    }
    if (!changed_policers_.empty()) find_policers(list);
    if (!list.entries.empty() || !list.places.empty() || !list.policers.empty() ||
        list.type_changed || list.default_changed)
      list.fate = ListFate::changed;
  }

  void find_policers(ListChange& list) const {
    std::unordered_set<std::string_view> used;
    for (const Entry& entry : list.after->entries) {
      if (changed_policers_.contains(entry.policer) && used.insert(entry.policer).second)
        list.policers.push_back(entry.policer);
    }
  }

  const Model& old_;
  Change& change_;
  PlaceChanges places_;
  std::unordered_map<std::string_view, const AccessList*> before_;
  std::unordered_set<std::string> changed_policers_;
};

}  // namespace

std::vector<EntryChange> compare_entries(const AccessList& before, const AccessList& after) {
  return EntryComparison(before, after).compare();
}

bool Change::any() const {
  return std::any_of(lists.begin(), lists.end(),
                     [](const ListChange& list) { return list.fate != ListFate::unchanged; });
}

Change difference(const Model& old, Model wanted, const ChangeOptions& options) {
  Change change;
  change.attachments = attachments_after(old, wanted, options);
  check_interfaces(change.attachments);
  change.named = std::move(wanted.lists);
  Comparison comparison(old, change);
  comparison.merge_policers(wanted.policers);
  comparison.compare(options);
  return change;
}

}  // namespace qimctl
