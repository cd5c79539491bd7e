// Aligned columns.
#include "tools/base/table.h"

#include <algorithm>
#include <utility>

#include "tools/base/terminal.h"

namespace qimctl {

namespace {

constexpr const char* gap = "  ";

}  // namespace

TextTable::TextTable(std::vector<std::string> head) {
  add(std::move(head));
}

void TextTable::add(std::vector<std::string> row) {
  rows_.push_back(std::move(row));
}

std::string TextTable::text(size_t width) const {
  std::vector<size_t> widths(rows_.front().size());
  for (const auto& row : rows_) {
    for (size_t i = 0; i < row.size(); i++) widths[i] = std::max(widths[i], width_of(row[i]));
  }
  std::string text;
  for (const auto& row : rows_) {
    std::string line;
    for (size_t i = 0; i < row.size(); i++) {
      line += (i == 0 ? "" : gap) + row[i];
      if (i + 1 < row.size()) line.append(widths[i] - width_of(row[i]), ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += cut(line, width) + "\n";
  }
  return text;
}

}  // namespace qimctl
