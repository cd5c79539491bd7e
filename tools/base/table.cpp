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
  TableColumns columns(rows_.front());
  for (const auto& row : rows_) columns.fit(row);
  std::string text;
  for (const auto& row : rows_) text += columns.line(row, width);
  return text;
}

void TableColumns::fit(const std::vector<std::string>& row) {
  widths_.resize(row.size());
  for (size_t i = 0; i < row.size(); i++) widths_[i] = std::max(widths_[i], width_of(row[i]));
}

std::string TableColumns::line(const std::vector<std::string>& row, size_t width) const {
  std::string line;
  for (size_t i = 0; i < row.size(); i++) {
    if (i != 0) line += gap;
    line += row[i];
    if (i + 1 < row.size()) line.append(widths_[i] - width_of(row[i]), ' ');
  }
  line.erase(line.find_last_not_of(' ') + 1);
  if (width != 0) line = cut(line, width);
  line += '\n';
  return line;
}

}  // namespace qimctl
