// Drawing interfaces, lists and actions.
#include "policy/graph/dot.h"

#include <map>
#include <set>
#include <vector>

#include "policy/base/criteria.h"
#include "policy/base/text.h"
#include "policy/model/words.h"

namespace qimctl {

namespace {

constexpr const char* head =
    "digraph policy {\n"
    "  rankdir=LR; bgcolor=white; nodesep=0.3; ranksep=0.8;\n"
    "  node [shape=plain, fontname=\"Helvetica\", fontsize=11];\n"
    "  edge [fontname=\"Helvetica\", fontsize=10, color=\"#667788\"];\n";
constexpr const char* table =
    "<table border=\"0\" cellborder=\"1\" cellspacing=\"0\" cellpadding=\"4\" color=\"#8899aa\">";
constexpr size_t first_shown = 50;
constexpr size_t last_shown = 10;

// Text in an HTML-like label.
std::string html(const std::string& text) {
  std::string safe;
  for (const char c : printable(text)) {
    switch (c) {
      case '&':
        safe += "&amp;";
        break;
      case '<':
        safe += "&lt;";
        break;
      case '>':
        safe += "&gt;";
        break;
      case '"':
        safe += "&quot;";
        break;
      default:
        safe += c;
    }
  }
  return safe;
}

// "9,900"
std::string grouped(size_t number) {
  std::string digits = std::to_string(number);
  for (size_t at = digits.size(); at > 3; at -= 3) digits.insert(at - 3, 1, ',');
  return digits;
}

std::string cell(const std::string& text, const char* attributes = "align=\"left\"") {
  return std::string("<td ") + attributes + ">" + html(text) + "</td>";
}

std::string row(const std::string& cells) {
  return "<tr>" + cells + "</tr>";
}

const char* direction_word(const Attachment& attachment) {
  return attachment.dir == QIM_DIR_IN ? "in" : "out";
}

class Drawing {
 public:
  Drawing(const Model& model, const GraphChoice& choice) : model_(model), choice_(choice) {}

  std::string text() {
    choose();
    if (lists_.empty() && interfaces_.empty()) return "";
    text_ = head;
    draw_interfaces();
    for (const AccessList* list : lists_) draw_list(*list);
    for (const auto& [words, number] : actions_)
      text_ += "  action" + std::to_string(number) + " [shape=box, style=\"rounded,filled\", " +
               "fillcolor=\"#eef7ee\", label=<" + html(words) + ">];\n";
    return text_ + "}\n";
  }

 private:
  bool is_chosen(const Attachment& attachment) const {
    if (!choice_.list.empty() && attachment.list != choice_.list) return false;
    if (!choice_.interface.empty() && attachment.interface != choice_.interface) return false;
    return choice_.direction.empty() || choice_.direction == direction_word(attachment);
  }

  void choose() {
    std::set<std::string_view> attached;
    for (const Attachment& attachment : model_.attachments) {
      if (!is_chosen(attachment)) continue;
      interfaces_[attachment.interface].push_back(&attachment);
      attached.insert(attachment.list);
    }
    for (const AccessList& list : model_.lists) {
      const bool named = choice_.list.empty() || list.name == choice_.list;
      if (named && (choice_.interface.empty() || attached.contains(list.name))) {
        numbers_[list.name] = lists_.size();
        lists_.push_back(&list);
      }
    }
  }

  void draw_interfaces() {
    size_t number = 0;
    for (const auto& [name, attachments] : interfaces_) {
      const std::string node = "interface" + std::to_string(number++);
      std::string rows = row(cell("if:" + name, "bgcolor=\"#eaf2fb\""));
      std::string edges;
      size_t port = 0;
      for (const Attachment* attachment : attachments) {
        const std::string at = "p" + std::to_string(port++);
        const std::string attributes =
            std::string("port=\"").append(at).append("\" align=\"left\"");
        rows += row(cell(std::string(direction_word(*attachment)) + ", stage " +
                             std::to_string(attachment->stage),
                         attributes.c_str()));
        edges.append("  ").append(node).append(":").append(at).append(" -> ");
        edges.append(node_of(attachment->list)).append(":head;\n");
      }
      text_.append("  ").append(node).append(" [label=<").append(table).append(rows);
      text_.append("</table>>];\n").append(edges);
    }
  }

  std::string node_of(const std::string& list) const {
    return "list" + std::to_string(numbers_.at(list));
  }

  void draw_list(const AccessList& list) {
    const size_t count = list.entries.size();
    const bool folded = count > choice_.most;
    std::string rows = row(cell(list.name + "  (" + list_type_words(list.type) + ", " +
                                    grouped(count) + (count == 1 ? " entry)" : " entries)"),
                                "colspan=\"4\" port=\"head\" bgcolor=\"#fdf3e6\" align=\"left\""));
    for (size_t i = 0; i < count; i++) {
      if (folded && i == first_shown) {
        const size_t skipped = count - first_shown - last_shown;
        rows += row(cell("... " + grouped(skipped) + " more", "colspan=\"4\" align=\"left\""));
        i += skipped;
      }
      const Entry& entry = list.entries[i];
      rows += row(cell(std::to_string(i + 1), "align=\"right\"") + cell(entry.name) +
                  cell(criteria_words(entry)) + cell(action_words(entry)));
    }
    const std::string otherwise = default_words(list);
    rows += row(cell("otherwise", "colspan=\"3\" align=\"left\"") + cell(otherwise));
    text_ += "  " + node_of(list.name) + " [label=<" + table + rows + "</table>>];\n";
    draw_actions(list, otherwise);
  }

  void draw_actions(const AccessList& list, const std::string& otherwise) {
    std::map<std::string, size_t> used;
    for (const Entry& entry : list.entries) used[with_limit(entry)]++;
    for (const auto& [words, count] : used)
      text_ += "  " + node_of(list.name) + " -> " + action(words) + " [label=\"" + grouped(count) +
               "\"];\n";
    text_ += "  " + node_of(list.name) + " -> " + action(otherwise) + " [style=dashed];\n";
  }

  // Of a policer the limit, too: it is shared, and worth a look.
  std::string with_limit(const Entry& entry) const {
    const Policer* policer = find_policer(model_, entry.policer);
    return action_words(entry) + (policer == nullptr ? "" : ": " + policer_words(*policer));
  }

  std::string action(const std::string& words) {
    const auto [known, added] = actions_.emplace(words, actions_.size());
    return "action" + std::to_string(known->second);
  }

  const Model& model_;
  const GraphChoice& choice_;
  std::map<std::string, std::vector<const Attachment*>> interfaces_;
  std::vector<const AccessList*> lists_;
  std::map<std::string, size_t> numbers_;  // of the lists that are drawn
  std::map<std::string, size_t> actions_;  // by their words
  std::string text_;
};

}  // namespace

GraphChoice graph_choice(const std::string& text) {
  GraphChoice choice;
  if (!text.starts_with("if:")) {
    choice.list = text;
    return choice;
  }
  choice.interface = text.substr(3);
  for (const char* direction : {"in", "out"}) {
    const std::string end = std::string("/") + direction;
    if (!choice.interface.ends_with(end)) continue;
    choice.interface.resize(choice.interface.size() - end.size());
    choice.direction = direction;
    break;
  }
  return choice;
}

std::string to_dot(const Model& model, const GraphChoice& choice) {
  return Drawing(model, choice).text();
}

}  // namespace qimctl
