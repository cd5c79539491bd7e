// The lines of a saved rule set, and their words.
#pragma once

#include <string>
#include <vector>

#include "policy/formats/parts/notes.h"

namespace qimctl::iptables {

using formats::Notes;

struct Line {
  Place place;
  std::string text;
  std::vector<std::string> words;  // without their quotes
};

// What stands in the filter table, and before it a comment that says who wrote it. Reports a text
// without such a table, or with several, and one that ends in the middle of it; what other tables
// hold is left out.
struct FilterTable {
  std::vector<Line> lines;
  bool is_ipv6 = false;
};
FilterTable filter_table(Notes& notes, const std::string& text);

}  // namespace qimctl::iptables
