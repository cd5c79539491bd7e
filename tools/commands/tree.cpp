#include "tools/commands/tree.h"

#include <nlohmann/json.hpp>

#include "policy/base/names.h"
#include "policy/formats/native/node_json.h"
#include "tools/base/output.h"
#include "tools/nodes/tree_walk.h"

namespace qimctl {

namespace {

using nlohmann::ordered_json;

const char* mark_text(TreeMark mark) {
  switch (mark) {
    case TreeMark::cycle:
      return "  (cycle)";
    case TreeMark::shared:
      return "  (shared)";
    case TreeMark::missing:
      return "  (missing)";
    case TreeMark::deep:
      return "  (deeper: see --depth)";
    case TreeMark::none:
      break;
  }
  return "";
}

// What a link carries beside its node.
std::string link_text(const qim_link_t& link) {
  std::string text;
  if (link.val != 0) text += " val " + std::to_string(link.val);
  if (link.tag != 0) text += " tag " + std::to_string(link.tag);
  return text;
}

std::string line_of(const TreeStep& step) {
  std::string line;
  if (!step.via.empty()) {
    line = step.via + link_text(step.link) + (step.next ? " => " : " -> ");
  }
  line += node_id_text(step.id);
  if (step.node) {
    line += " " + node_type_name(step.node->record.type);
    const std::string summary = node_summary(*step.node);
    if (!summary.empty()) line += "  " + summary;
  }
  return line + mark_text(step.mark);
}

void print_text(TreeWalk& walk) {
  std::vector<bool> open;  // for each level above: does another line follow on it?
  while (const auto step = walk.step()) {
    std::string line;
    open.resize(step->depth);
    if (step->depth > 0) {
      for (size_t level = 1; level < step->depth; level++) line += open[level] ? "│  " : "   ";
      line += step->last ? "└─ " : "├─ ";
    }
    print(line + line_of(*step) + "\n");
    open.push_back(!step->last);
  }
}

ordered_json step_to_json(const TreeStep& step) {
  ordered_json value;
  if (!step.via.empty()) value["via"] = step.via;
  if (step.next) value["next"] = true;
  if (step.link.val != 0) value["val"] = step.link.val;
  if (step.link.tag != 0) value["tag"] = step.link.tag;
  value["id"] = node_id_text(step.id);
  if (step.mark != TreeMark::none) value["mark"] = tree_mark_name(step.mark);
  if (!step.node) return value;
  value["type"] = node_type_name(step.node->record.type);
  const std::string summary = node_summary(*step.node);
  if (!summary.empty()) value["summary"] = summary;
  return value;
}

void print_json(TreeWalk& walk) {
  ordered_json root;
  // Lists of siblings from the root's down to the level where the walk is. Only the innermost one
  // grows, so those above stay where they are.
  std::vector<ordered_json*> nodes{&root};
  while (const auto step = walk.step()) {
    if (step->depth == 0) {
      root = step_to_json(*step);
      continue;
    }
    nodes.resize(step->depth);
    ordered_json& below = (*nodes.back())["nodes"];
    below.push_back(step_to_json(*step));
    nodes.push_back(&below.back());
  }
  print(root.dump(2) + "\n");
}

}  // namespace

void print_tree(const ReadSession& session, uint32_t id, const TreeOptions& options) {
  TreeWalk walk(session, id, options.depth);
  options.json ? print_json(walk) : print_text(walk);
}

}  // namespace qimctl
