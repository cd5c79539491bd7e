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

}  // namespace qimctl
