// The lines of a saved rule set, and their words.
#include "policy/formats/iptables/lines.h"

#include <algorithm>
#include <optional>

#include "policy/base/names.h"
#include "policy/base/text.h"

namespace qimctl::iptables {

namespace {

// Words stand apart by blanks; in double quotes a backslash takes the meaning of what follows.
std::optional<std::vector<std::string>> split(const std::string& text) {
  std::vector<std::string> words;
  bool quoted = false;
  bool inside = false;  // a word has begun
  for (size_t i = 0; i < text.size(); i++) {
    const char c = text[i];
    if (c == '"') {
      quoted = !quoted;
    } else if (!quoted && (c == ' ' || c == '\t')) {
      inside = false;
      continue;
    }
    if (!std::exchange(inside, true)) words.emplace_back();
    if (c == '"') continue;
    const bool escape = quoted && c == '\\' && i + 1 < text.size();
    words.back() += escape ? text[++i] : c;
  }
  if (quoted) return {};
  return words;
}

class TableFinder {
 public:
  explicit TableFinder(Notes& notes) : notes_(notes) {}

  FilterTable find(const std::string& text) {
    unsigned number = 0;
    for (size_t at = 0; at < text.size();) {
      const size_t end = std::min(text.find('\n', at), text.size());
      std::string line = text.substr(at, end - at);
      if (line.ends_with('\r')) line.pop_back();
      take({notes_.file(), ++number, ""}, line);
      at = end + 1;
    }
    if (inside_) notes_.problem(Place{notes_.file(), number, ""}, "ends before COMMIT");
    if (!found_)
      notes_.problem(Place{notes_.file(), 0, ""},
                     "has no filter table, which begins with a line \"*filter\"");
    return std::move(table_);
  }

 private:
  void take(const Place& place, const std::string& text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return;
    if (text[first] == '#') {
      if (!found_ && text.find("ip6tables") != std::string::npos) table_.is_ipv6 = true;
      return;
    }
    auto words = split(text);
    if (!words) return notes_.problem(place, "a quote is not closed");
    const std::string& word = words->front();
    if (word.starts_with('*')) return begin(place, word);
    if (!inside_) return notes_.problem(place, "stands in no table");
    if (word == "COMMIT") return end();
    if (is_filter_) {
      table_.lines.push_back({place, text.substr(first), *std::move(words)});
    } else if (word == "-A" && rules_++ == 0) {
      first_rule_ = place;
    }
  }

  void begin(const Place& place, const std::string& word) {
    if (inside_) notes_.problem(place, "begins a table before COMMIT has ended the one before");
    inside_ = true;
    rules_ = 0;
    name_ = word.substr(1);
    is_filter_ = name_ == "filter";
    if (is_filter_ && std::exchange(found_, true))
      notes_.problem(place,
                     "the filter table comes twice; keep IPv4 and IPv6 in files of their own");
  }

  void end() {
    inside_ = false;
    if (!is_filter_ && rules_ != 0)
      notes_.finding(Fate::skipped, first_rule_,
                     "the table " + formats::in_quotes(name_) + " with " + counted(rules_, "rule") +
                         " is left out; only the filter table is carried");
  }

  Notes& notes_;
  FilterTable table_;
  std::string name_;  // of the table that the line is in
  size_t rules_ = 0;  // that it has
  Place first_rule_;
  bool inside_ = false;
  bool is_filter_ = false;
  bool found_ = false;
};

}  // namespace

FilterTable filter_table(Notes& notes, const std::string& text) {
  if (!is_utf8(text)) {
    notes.problem(Place{notes.file(), 0, ""}, "is no UTF-8 text");
    return {};
  }
  return TableFinder(notes).find(text);
}

}  // namespace qimctl::iptables
