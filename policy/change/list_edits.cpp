// Writing one changed access list. What a regular list's nodes hold is known from its model, so only
// what the change touches is looked at.
#include "policy/change/list_edits.h"

#include <algorithm>
#include <string_view>
#include <unordered_set>

#include "policy/base/text.h"
#include "policy/store/node_edits.h"
#include "policy/store/store_policy.h"

namespace qimctl {

namespace {

std::map<std::string_view, std::vector<const Attachment*>> by_list(
    const std::vector<Attachment>& attachments) {
  std::map<std::string_view, std::vector<const Attachment*>> all;
  for (const Attachment& at : attachments) all[at.list].push_back(&at);
  return all;
}

bool same_dset(const Node& a, const Node& b) {
  if (a.dset.has_value() != b.dset.has_value()) return false;
  if (!a.dset) return true;
  const auto bytes = [](const qim_dsetname_t& name) {
    return std::string_view(reinterpret_cast<const char*>(&name), sizeof name);
  };
  return bytes(*a.dset) == bytes(*b.dset);
}

bool same_link(const Link& a, const Link& b) {
  return a.field == b.field && a.node == b.node && a.val == b.val;
}

bool same_criteria(const Entry& a, const Entry& b) {
  return std::equal(a.criteria.begin(), a.criteria.end(), b.criteria.begin(), b.criteria.end(),
                    [](const Criterion& one, const Criterion& other) {
                      return one.type == other.type && one.args == other.args;
                    });
}

// Parts keep their identifiers, so what does the same leads to the same Action.
bool same_deed(const Entry& a, const Entry& b) {
  return a.forwarding == b.forwarding && a.log == b.log && a.policer == b.policer;
}

}  // namespace

ListEditor::ListEditor(uint32_t session, StoredModel& stored, const Change& change,
                       EditCounts& counts, const std::function<void()>& progress)
    : session_(session),
      stored_(stored),
      attached_before_(by_list(stored.model.attachments)),
      attached_after_(by_list(change.attachments)),
      counts_(counts),
      progress_(progress) {
  before_.policers = stored.model.policers;
  after_.policers = change.policers;
  for (size_t i = 0; i < stored.lists.size(); i++)
    lists_.emplace(stored.model.lists[i].name, &stored.lists[i]);
}

void ListEditor::write(const ListChange& list) {
  if (list.fate == ListFate::unchanged) return;
  if (list.fate == ListFate::added) return write_new(list);
  const StoredList& stored = *lists_.at(list.name());
  if (list.fate == ListFate::removed) return remove(stored);
  stored.regular ? write_difference(list, stored) : write_over(list, stored);
}

void ListEditor::write_new(const ListChange& list) {
  const ListNodes nodes(after_, *list.after, attached_after_[list.name()]);
  const ListIds ids = nodes.number(stored_.ids.take(list.name(), nodes.count()));
  for (const PartKey& key : nodes.parts()) put_whole(nodes.part(key, ids));
  put_filters(nodes, ids);
}

// A list that was made in another way is made anew. What it shares with others stays theirs.
void ListEditor::write_over(const ListChange& list, const StoredList& stored) {
  const ListNodes nodes(after_, *list.after, attached_after_[list.name()]);
  const auto is_own = [&](uint32_t id) {
    return std::binary_search(stored.members.begin(), stored.members.end(), id);
  };
  ListIds own{{{{Part::group}, stored.ids.group()}}, stored.ids.filters};
  for (const auto& [key, id] : stored.ids.parts) {
    if (is_own(id)) own.parts.emplace(key, id);
  }
  for (uint32_t& id : own.filters) id = is_own(id) ? id : 0;
  const ListIds ids = keep_ids(list, nodes, own);
  remove(stored);
  for (const PartKey& key : nodes.parts()) put_whole(nodes.part(key, ids));
  put_filters(nodes, ids);
}

void ListEditor::write_difference(const ListChange& list, const StoredList& stored) {
  const ListNodes before(before_, *list.before, attached_before_[list.name()]);
  const ListNodes after(after_, *list.after, attached_after_[list.name()]);
  const ListIds ids = keep_ids(list, after, stored.ids);
  for (const PartKey& key : after.parts()) {
    const Node node = after.part(key, ids);
    if (stored.ids.parts.contains(key)) {
      put_changed(before.part(key, stored.ids), node);
    } else {
      put_whole(node);
    }
  }
  write_filters(list, after, stored.ids, ids);
  for (const auto& [key, id] : stored.ids.parts) {
    if (!ids.parts.contains(key)) erase(id);
  }
}

ListIds ListEditor::keep_ids(const ListChange& list, const ListNodes& nodes, const ListIds& old) {
  ListIds ids;
  const uint32_t group = old.group();
  for (const PartKey& key : nodes.parts()) {
    const auto known = old.parts.find(key);
    ids.parts.emplace(key,
                      known != old.parts.end() ? known->second : stored_.ids.take_behind(group));
  }
  const auto& before = list.before->entries;
  const auto& after = list.after->entries;
  // Those in front that are called the same keep theirs without being looked for.
  size_t front = 0;
  const auto stays = [&](size_t from, size_t to) {
    return old.filters[from] != 0 && before[from].name == after[to].name;
  };
  while (front < old.filters.size() && front < after.size() && stays(front, front)) front++;
  size_t back = 0;
  while (back < old.filters.size() - front && back < after.size() - front &&
         stays(old.filters.size() - 1 - back, after.size() - 1 - back))
    back++;
  std::unordered_map<std::string_view, uint32_t> filters;
  for (size_t i = front; i < old.filters.size() - back; i++) {
    if (old.filters[i] != 0) filters.emplace(before[i].name, old.filters[i]);
  }
  ids.filters.reserve(after.size());
  ids.filters.assign(old.filters.begin(), old.filters.begin() + static_cast<std::ptrdiff_t>(front));
  for (size_t i = front; i < after.size() - back; i++) {
    const auto known = filters.find(after[i].name);
    ids.filters.push_back(known != filters.end() ? known->second : stored_.ids.take_behind(group));
  }
  ids.filters.insert(ids.filters.end(), old.filters.end() - static_cast<std::ptrdiff_t>(back),
                     old.filters.end());
  return ids;
}

void ListEditor::write_filters(const ListChange& list, const ListNodes& nodes, const ListIds& old,
                               const ListIds& ids) {
  if (list.before == list.after) return;
  const auto same =
      std::mismatch(old.filters.begin(), old.filters.end(), ids.filters.begin(), ids.filters.end());
  const auto front = static_cast<size_t>(same.first - old.filters.begin());
  std::unordered_map<uint32_t, size_t> places;  // of the old filters that others may be in front of
  for (size_t i = front; i < old.filters.size(); i++) places.emplace(old.filters[i], i);
  for (size_t to = 0; to < ids.filters.size(); to++) {
    if (to < front) {
      write_filter(list, to, to, nodes, old, ids);
      if (progress_) progress_();
      continue;
    }
    const auto known = places.find(ids.filters[to]);
    if (known == places.end()) {
      put_whole(nodes.filter(to, ids));
      continue;
    }
    write_filter(list, known->second, to, nodes, old, ids);
    places.erase(known);
    if (progress_) progress_();
  }
  for (const auto& [id, index] : places) erase(id);
}

void ListEditor::write_filter(const ListChange& list, size_t from, size_t to,
                              const ListNodes& nodes, const ListIds& old, const ListIds& ids) {
  const Entry& before = list.before->entries[from];
  const Entry& after = list.after->entries[to];
  const uint32_t id = ids.filters[to];
  const uint32_t next_before = from + 1 < old.filters.size() ? old.filters[from + 1] : 0;
  const uint32_t next = to + 1 < ids.filters.size() ? ids.filters[to + 1] : 0;
  if (!same_criteria(before, after) || (next == 0) != (next_before == 0)) {
    put_node(session_, nodes.filter(to, ids));
    counts_.edits++;
  }
  if (next != next_before && next != 0) link(id, {QIM_LN_FILTER_NEXT, next, 0, 0, 0});
  if (next == 0 && next_before != 0) {
    delete_link(session_, id, QIM_LN_FILTER_NEXT);
    counts_.edits++;
  }
  if (same_deed(before, after)) return;
  const uint32_t action = ids.parts.at(forward_key(after));
  if (action != old.parts.at(forward_key(before))) link(id, {QIM_LN_FILTER_TRUE, action, 0, 0, 0});
}

void ListEditor::remove(const StoredList& stored) {
  std::unordered_set<uint32_t> all(stored.members.begin(), stored.members.end());
  all.insert(stored.ids.group());
  for (const uint32_t id : all) erase(id);
}

void ListEditor::put_filters(const ListNodes& nodes, const ListIds& ids) {
  Node filter;
  for (size_t i = 0; i < ids.filters.size(); i++) {
    nodes.fill_filter(i, ids, filter);
    put_whole(filter);
  }
}

void ListEditor::put_whole(const Node& node) {
  put_node(session_, node);
  for (const Link& link : node.links) put_link(session_, node.id, link);
  counts_.nodes++;
  counts_.links += node.links.size();
  counts_.edits += 1 + node.links.size();
  if (progress_) progress_();
}

void ListEditor::put_changed(const Node& before, const Node& after) {
  if (!same_dset(before, after) || encode_node(before) != encode_node(after)) {
    put_node(session_, after);
    counts_.edits++;
  }
  for (const Link& wanted : after.links) {
    const bool same = std::any_of(before.links.begin(), before.links.end(),
                                  [&](const Link& link) { return same_link(link, wanted); });
    if (!same) link(after.id, wanted);
  }
  for (const Link& old : before.links) {
    const bool wanted = std::any_of(after.links.begin(), after.links.end(),
                                    [&](const Link& link) { return link.field == old.field; });
    if (wanted) continue;
    delete_link(session_, after.id, old.field);
    counts_.edits++;
  }
}

void ListEditor::link(uint32_t owner, const Link& link) {
  put_link(session_, owner, link);
  counts_.edits++;
}

void ListEditor::erase(uint32_t id) {
  delete_node(session_, id);
  counts_.edits++;
}

void refuse_unreadable(const StoredModel& stored, const Change& change) {
  std::vector<Problem> problems;
  for (const AccessList& list : change.named) {
    for (const Unreadable& other : stored.unreadable) {
      if (other.name != list.name || other.name.empty()) continue;
      problems.push_back({list.place, "the access list \"" + list.name + "\" that is stored " +
                                          unreadable_text(other) +
                                          "; delete it first, with 'qimctl delete acl --force'"});
    }
  }
  if (!problems.empty()) throw InputError(std::move(problems));
}

}  // namespace qimctl
