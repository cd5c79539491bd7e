// Carrying changes out.
#include "policy/change/apply.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "policy/base/names.h"
#include "policy/change/list_edits.h"
#include "policy/change/referrers.h"
#include "policy/store/node_edits.h"

namespace qimctl {

namespace {

// The names of lists, by the nodes that belong to them.
std::unordered_map<uint32_t, const std::string*> owners_of(const StoredModel& stored) {
  std::unordered_map<uint32_t, const std::string*> owners;
  for (size_t i = 0; i < stored.lists.size(); i++) {
    const std::string* name = &stored.model.lists[i].name;
    for (const auto& [key, id] : stored.lists[i].ids.parts) owners.emplace(id, name);
    for (const uint32_t id : stored.lists[i].ids.filters) owners.emplace(id, name);
    for (const uint32_t id : stored.lists[i].members) owners.emplace(id, name);
  }
  for (const Unreadable& list : stored.unreadable) {
    for (const uint32_t id : list.members) owners.emplace(id, &list.name);
  }
  return owners;
}

class NodeWriter {
 public:
  NodeWriter(uint32_t session, StoredModel& stored, const NodeOptions& options, EditCounts& counts)
      : session_(session), stored_(stored), options_(options), counts_(counts) {}

  void write(const std::vector<Policy>& policies, const std::function<void()>& progress) {
    owners_ = owners_of(stored_);
    for (const Policy& policy : policies) {
      for (const Node& node : policy.nodes) known_.insert(node.id);
    }
    for (const Policy& policy : policies) {
      for (const Node& node : policy.nodes) {
        write(node);
        if (progress) progress();
      }
    }
    if (!problems_.empty()) throw InputError(std::move(problems_));
    for (const uint32_t id : known_) stored_.ids.reserve(id, id);
  }

 private:
  void write(const Node& node) {
    if (!is_stored(session_, node.id)) {
      put(node, {true, node.links, {}});
      return;
    }
    if (options_.must_be_new) {
      report(node, "is in the database already; import with --replace to replace it");
      return;
    }
    counts_.replaced++;
    const NodeDifference difference = difference_from_stored(session_, node);
    const auto owner = owners_.find(node.id);
    if (difference.any() && owner != owners_.end()) {
      report(node, "belongs to the access list \"" + *owner->second +
                       "\"; give the node another identifier, or delete the list first");
      return;
    }
    put(node, difference);
  }

  void put(const Node& node, const NodeDifference& difference) {
    if (difference.contents) {
      put_node(session_, node);
      counts_.edits++;
    }
    for (const uint16_t field : difference.extras) delete_link(session_, node.id, field);
    for (const Link& link : difference.links) {
      check_target(node, link, link.node);
      if (link.node2 != 0) check_target(node, link, link.node2);
      put_link(session_, node.id, link);
    }
    counts_.edits += difference.extras.size() + difference.links.size();
    counts_.nodes++;
    counts_.links += node.links.size();
  }

  void check_target(const Node& node, const Link& link, uint32_t target) {
    if (known_.contains(target) || is_stored(session_, target)) return;
    report(node, "has a link " + slot_name(link.field) + " to node " + node_id_text(target) +
                     ", which is neither in the input nor in the database; add that node or "
                     "remove the link");
  }

  void report(const Node& node, const std::string& message) {
    problems_.push_back({node.place, "node " + node_id_text(node.id) + " " + message});
  }

  uint32_t session_;
  StoredModel& stored_;
  NodeOptions options_;
  EditCounts& counts_;
  std::unordered_map<uint32_t, const std::string*> owners_;
  std::unordered_set<uint32_t> known_;
  std::vector<Problem> problems_;
};

}  // namespace

Editor::Editor(uint32_t session, StoredModel& stored, std::function<void()> progress)
    : session_(session), stored_(stored), progress_(std::move(progress)) {}

void Editor::write_nodes(const std::vector<Policy>& policies, const NodeOptions& options) {
  NodeWriter(session_, stored_, options, counts_).write(policies, progress_);
}

void Editor::write_lists(const Change& change) {
  refuse_unreadable(stored_, change);
  ListEditor editor(session_, stored_, change, counts_, progress_);
  for (const ListChange& list : change.lists) editor.write(list);
}

void check_pruned(uint32_t session, const StoredModel& stored, const Change& change) {
  std::vector<Problem> problems;
  for (const ListChange& list : change.lists) {
    if (list.fate != ListFate::removed) continue;
    const std::string by = outside_referrer(session, find_stored(stored, list.name())->members);
    if (!by.empty())
      problems.push_back({{"--prune", 0, ""},
                          "the access list \"" + list.name() + "\" is still referred to by " + by +
                              "; delete that first"});
  }
  if (!problems.empty()) throw InputError(std::move(problems));
}

}  // namespace qimctl
