// Aligned columns.
#include "tools/base/table.h"

#include <algorithm>
#include <utility>

namespace qimctl {

namespace {

constexpr const char* gap = "  ";

// Characters of UTF-8 text.
size_t width_of(const std::string& text) {
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xc0u) != 0x80u;
  }));
}

}  // namespace

TextTable::TextTable(std::vector<std::string> head) {
  add(std::move(head));
}

void TextTable::add(std::vector<std::string> row) {
  rows_.push_back(std::move(row));
}

std::string TextTable::text() const {
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
    text += line + "\n";
  }
  return text;
}

}  // namespace qimctl
