// Walking a policy along its links.
#include "tools/nodes/tree_walk.h"

#include <utility>

#include "policy/base/names.h"
#include "rov.h"
#include "schema/rows.h"

namespace qimctl {

namespace {

using qim::schema::Row;
using qim::schema::Slot;

// The slot through which an element of a filter list or an action list leads to the next element; 0
// for other nodes.
uint16_t next_slot(const qim_node_t& record) {
  if (qim_is_filterlist_type(&record) == 0 && qim_is_actionlist_type(&record) == 0) return 0;
  for (const Row& row : *qim::schema::node_type(record.type)->body) {
    if (row.slot == Slot::single) return row.link;
  }
  return 0;
}

std::optional<NodeImage> read_if_there(const ReadSession& session, uint32_t id, bool required) {
  try {
    return read_node(session, id);
  } catch (const DatabaseError& error) {
    if (required || error.status() != ROV_ERR_NO_ITEM) throw;
    return std::nullopt;
  }
}

}  // namespace

const char* tree_mark_name(TreeMark mark) {
  switch (mark) {
    case TreeMark::cycle:
      return "cycle";
    case TreeMark::shared:
      return "shared";
    case TreeMark::missing:
      return "missing";
    case TreeMark::deep:
      return "deeper";
    case TreeMark::none:
      break;
  }
  return "";
}

TreeWalk::TreeWalk(const ReadSession& session, uint32_t root, uint32_t depth)
    : session_(session), depth_(depth) {
  levels_.push_back({{{"", {}, root, false}}, 0, {}});
}

std::optional<TreeStep> TreeWalk::step() {
  while (!levels_.empty() && levels_.back().at == levels_.back().edges.size()) {
    leave_chain();
    levels_.pop_back();
  }
  if (levels_.empty()) return std::nullopt;

  Level& level = levels_.back();
  const Edge edge = level.edges[level.at++];
  if (!edge.next) leave_chain();
  TreeStep step{edge.via, edge.link, edge.target, levels_.size() - 1, false, edge.next, {}, {}};
  step.mark = enter(level, edge, step.node);
  std::vector<Edge> below;
  if (step.mark == TreeMark::none) expand(level, *step.node, below);
  step.last = level.at == level.edges.size();
  if (!below.empty() && levels_.size() > depth_) {
    step.mark = TreeMark::deep;
    level.cut = true;
  } else if (!below.empty()) {
    levels_.push_back({std::move(below), 0, {}});
  }
  return step;
}

TreeMark TreeWalk::enter(Level& level, const Edge& edge, std::optional<NodeImage>& node) {
  const bool root = edge.via.empty();
  node = read_if_there(session_, edge.target, root);
  if (!node) return TreeMark::missing;
  if (open_.contains(edge.target)) return TreeMark::cycle;
  const size_t depth = levels_.size();
  const auto [seen, is_new] = seen_.try_emplace(edge.target, Seen{depth});
  if (!is_new) {
    // What was left out there has room here.
    if (!seen->second.cut || seen->second.depth <= depth) return TreeMark::shared;
    seen->second = {depth};
  }
  open_.insert(edge.target);
  level.chain.push_back(edge.target);
  return TreeMark::none;
}

// A link to the next element stays on the level, right behind this node; all others lead below it.
// The root stands alone on its level.
void TreeWalk::expand(Level& level, const NodeImage& node, std::vector<Edge>& below) const {
  const uint16_t next = levels_.size() == 1 ? uint16_t{0} : next_slot(node.record);
  for (const qim_link_t& link : node.links) {
    const std::string name = slot_name(link.field);
    Edge edge{name, link, link.node, next != 0 && link.field == next};
    if (edge.next) {
      level.edges.insert(level.edges.begin() + static_cast<std::ptrdiff_t>(level.at), edge);
      continue;
    }
    below.push_back(edge);
    if (link.node2 != 0) below.push_back({name + " node2", link, link.node2, false});
  }
}

// What is left out below a node is left out below all that lead to it.
void TreeWalk::leave_chain() {
  Level& level = levels_.back();
  for (const uint32_t id : level.chain) {
    open_.erase(id);
    seen_[id].cut = level.cut;
  }
  if (level.cut && levels_.size() > 1) levels_[levels_.size() - 2].cut = true;
  level.chain.clear();
  level.cut = false;
}

}  // namespace qimctl
