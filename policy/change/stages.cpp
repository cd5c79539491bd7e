// Which list is asked when, after a change.
#include "policy/change/stages.h"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>
#include <unordered_set>

#include "policy/base/policy.h"

namespace qimctl {

namespace {

using At = std::vector<const Attachment*>;  // in the order of stages

struct Lists {
  At old_named;  // of lists that are wanted
  At others;     // of other lists
  At wanted;
};

void sort_by_stage(At& all) {
  std::stable_sort(all.begin(), all.end(),
                   [](const Attachment* a, const Attachment* b) { return a->stage < b->stage; });
}

uint32_t old_stage(const Lists& place, const std::string& list) {
  for (const Attachment* at : place.old_named) {
    if (at->list == list) return at->stage;
  }
  return 0;
}

// Gives stages in ascending order, each its own where that is possible.
std::vector<Attachment> staged(const Lists& place) {
  std::vector<Attachment> all;
  std::set<uint32_t> taken;
  uint32_t last = 0;
  for (const Attachment* wanted : place.wanted) {
    last = std::max(old_stage(place, wanted->list), last + 1);
    taken.insert(last);
    all.push_back(*wanted);
    all.back().stage = last;
  }
  uint32_t behind = 0;  // the last one of the others
  for (const Attachment* other : place.others) {
    const bool stays = other->stage > behind && !taken.contains(other->stage);
    behind = stays ? other->stage : std::max(behind, last) + 1;
    while (taken.contains(behind)) behind++;
    all.push_back(*other);
    all.back().stage = behind;
  }
  return all;
}

// Stages are few enough to run out when lists are moved often: then all are numbered from 1.
void renumber(std::vector<Attachment>& all) {
  const auto by_stage = [](const Attachment& a, const Attachment& b) { return a.stage < b.stage; };
  std::sort(all.begin(), all.end(), by_stage);
  uint32_t stage = 0;
  for (Attachment& at : all) at.stage = ++stage;
  if (stage <= policy_type_stages) return;
  throw InputError(all.back().place, "more than " + std::to_string(policy_type_stages) +
                                         " access lists would be attached to " +
                                         attachment_text(all.back()) + "; attach fewer");
}

}  // namespace

std::vector<Attachment> attachments_after(const Model& old, const Model& wanted,
                                          const ChangeOptions& options) {
  std::unordered_set<std::string_view> named;
  for (const AccessList& list : wanted.lists) named.insert(list.name);
  std::map<std::pair<std::string_view, uint8_t>, Lists> places;
  for (const Attachment& at : old.attachments) {
    Lists& place = places[{at.interface, at.dir}];
    if (named.contains(at.list)) {
      place.old_named.push_back(&at);
    } else if (!options.prune) {
      place.others.push_back(&at);
    }
  }
  for (const Attachment& at : wanted.attachments)
    places[{at.interface, at.dir}].wanted.push_back(&at);

  std::vector<Attachment> after;
  for (auto& [where, place] : places) {
    sort_by_stage(place.wanted);
    sort_by_stage(place.others);
    std::vector<Attachment> all = staged(place);
    const auto too_far = [](const Attachment& at) { return at.stage > policy_type_stages; };
    if (std::any_of(all.begin(), all.end(), too_far)) renumber(all);
    after.insert(after.end(), all.begin(), all.end());
  }
  return after;
}

std::vector<bool> longest_ascending(const std::vector<size_t>& numbers) {
  std::vector<size_t> ends;  // position of the lowest number that ends a sequence of each length
  std::vector<size_t> before(numbers.size(), SIZE_MAX);
  for (size_t i = 0; i < numbers.size(); i++) {
    const auto at =
        std::lower_bound(ends.begin(), ends.end(), numbers[i],
                         [&](size_t end, size_t number) { return numbers[end] < number; });
    if (at != ends.begin()) before[i] = *std::prev(at);
    if (at == ends.end()) {
      ends.push_back(i);
    } else {
      *at = i;
    }
  }
  std::vector<bool> kept(numbers.size());
  for (size_t i = ends.empty() ? SIZE_MAX : ends.back(); i != SIZE_MAX; i = before[i])
    kept[i] = true;
  return kept;
}

}  // namespace qimctl
