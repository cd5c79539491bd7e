// Output in aligned columns.
#pragma once

#include <string>
#include <vector>

namespace qimctl {

// Rows of cells, aligned in columns that are two blanks apart. The last column is not padded.
class TextTable {
 public:
  explicit TextTable(std::vector<std::string> head);
  void add(std::vector<std::string> row);
  std::string text() const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace qimctl
