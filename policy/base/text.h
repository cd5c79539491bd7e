// Output as text: aligned columns, and JSON laid out for reading.
#pragma once

#include <nlohmann/json.hpp>
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

// The members of an object, one on each line with their values aligned, objects inside indented
// under their name, arrays one element on each line. Numbers above 9999 show in hexadecimal too.
std::string layout(const nlohmann::ordered_json& object, size_t indent);

// A scalar, or an object in one line: "node 0x00300001 val 7".
std::string inline_text(const nlohmann::ordered_json& value, const char* separator = " ");

// `text` with every control character, backslash and byte that is not UTF-8 escaped as \xNN, so
// that stored bytes can't drive a terminal.
std::string printable(const std::string& text);

// Characters of UTF-8 text, for alignment.
size_t width_of(const std::string& text);

}  // namespace qimctl
