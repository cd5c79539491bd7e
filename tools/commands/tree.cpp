// `qimctl tree`: a policy expanded along its links.
#include "tools/commands/tree.h"

#include <utility>

#include "policy/base/names.h"
#include "policy/formats/native/node_json.h"
#include "tools/base/output.h"
#include "tools/base/terminal.h"
#include "tools/nodes/node_names.h"
#include "tools/nodes/node_words.h"
#include "tools/nodes/tree_walk.h"

namespace qimctl {

namespace {

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

// What the link is for; where there is room, its code.
std::string via_text(const TreeStep& step, bool wide) {
  const std::string second = " node2";
  if (wide) return step.via;
  return link_words(step.link.field) + (step.via.ends_with(second) ? second : "");
}

std::string line_of(const ReadSession& session, const TreeStep& step, bool wide) {
  std::string line;
  if (!step.via.empty()) {
    line = via_text(step, wide) + link_text(step.link) + (step.next ? " => " : " -> ");
  }
  line += node_id_text(step.id);
  if (step.node) {
    line += " " + node_type_name(step.node->record.type);
    const std::string summary = node_words(session, *step.node, wide);
    if (!summary.empty()) line += "  " + summary;
  }
  return line + mark_text(step.mark);
}

void print_text(const ReadSession& session, TreeWalk& walk, OutputForm form) {
  const bool wide = form == OutputForm::wide;
  std::vector<bool> open;  // for each level above: does another line follow on it?
  while (const auto step = walk.step()) {
    std::string line;
    open.resize(step->depth);
    if (step->depth > 0) {
      for (size_t level = 1; level < step->depth; level++) line += open[level] ? "│  " : "   ";
      line += step->last ? "└─ " : "├─ ";
    }
    print(cut(line + line_of(session, *step, wide), wide ? 0 : terminal().width) + "\n");
    open.push_back(!step->last);
  }
}

JsonValue step_to_json(const TreeStep& step) {
  JsonValue value;
  if (!step.via.empty()) value.set("via", step.via);
  if (step.next) value.set("next", true);
  if (step.link.val != 0) value.set("val", step.link.val);
  if (step.link.tag != 0) value.set("tag", step.link.tag);
  value.set("id", node_id_text(step.id));
  if (step.mark != TreeMark::none) value.set("mark", tree_mark_name(step.mark));
  if (!step.node) return value;
  value.set("type", node_type_name(step.node->record.type));
  const std::string summary = node_summary(*step.node);
  if (!summary.empty()) value.set("summary", summary);
  return value;
}

// A node is complete when the walk comes back to its level or above, and goes into the one above it.
void close_below(std::vector<JsonValue>& open, size_t depth) {
  while (open.size() > depth) {
    JsonValue node = std::move(open.back());
    open.pop_back();
    open.back().add_to("nodes", std::move(node));
  }
}

void print_document(TreeWalk& walk, OutputForm form) {
  std::vector<JsonValue> open;  // from the root down to where the walk is
  while (const auto step = walk.step()) {
    if (step->depth != 0) close_below(open, step->depth);
    open.push_back(step_to_json(*step));
  }
  close_below(open, 1);
  print_value(open.front(), form);
}

}  // namespace

void print_tree(const ReadSession& session, uint32_t id, const TreeOptions& options) {
  TreeWalk walk(session, id, options.depth);
  if (is_text(options.form)) return print_text(session, walk, options.form);
  print_document(walk, options.form);
}

}  // namespace qimctl
