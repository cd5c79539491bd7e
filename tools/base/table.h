// Output in aligned columns.
#pragma once

#include <string>
#include <vector>

namespace qimctl {

// Rows of cells, which may be styled, aligned in columns that are two blanks apart. The last column
// is not padded.
class TextTable {
 public:
  explicit TextTable(std::vector<std::string> head);
  void add(std::vector<std::string> row);
  // Lines of at most `width` columns: longer ones are cut. 0 = of any width.
  std::string text(size_t width = 0) const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

// Rows of cells in columns that were made wide enough for all of them before the first is printed: of
// more rows than one likes to hold, which are gone through twice.
class TableColumns {
 public:
  explicit TableColumns(const std::vector<std::string>& head) { fit(head); }
  void fit(const std::vector<std::string>& row);
  // A line, with its end, of a row that was fitted in. `width` as in TextTable.
  std::string line(const std::vector<std::string>& row, size_t width) const;

 private:
  std::vector<size_t> widths_;
};

}  // namespace qimctl
