// JSON written value by value, for documents that may be large: nothing is kept but the text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qimctl {

// The text, which must be UTF-8, as a JSON string with as few escapes as can be.
void append_json_string(std::string& to, std::string_view text);
std::string json_string(std::string_view text);

// A document with a level of indentation for each open object or array, and one member or element a
// line. Empty ones take no line of their own.
class JsonPrinter {
 public:
  // A value: the document itself, an element of the open array, or what member() has named.
  JsonPrinter& object() { return open('{'); }
  JsonPrinter& array() { return open('['); }
  JsonPrinter& close();
  JsonPrinter& text(std::string_view value);
  JsonPrinter& number(uint64_t value);
  JsonPrinter& json(std::string_view value);  // in one line

  JsonPrinter& member(std::string_view name);

  // A printer for elements of an array that is to be `levels` levels further in than what is open
  // here: for what is written before that which stands in front of it.
  JsonPrinter part(size_t levels) const;
  // The elements that such a printer has written, as those of the array that was just opened.
  JsonPrinter& elements(JsonPrinter&& part);
  bool is_empty() const { return text_.empty() && before_.empty(); }

  // With the end of the last line.
  std::string take();
  // The same in pieces, as it is kept: one text would be copied whenever it outgrew its place.
  std::vector<std::string> take_pieces();

 private:
  JsonPrinter& open(char bracket);
  // What stands in front of the value or member that is now written.
  std::string_view begin();

  std::vector<std::string> before_;  // the pieces before this one
  std::string text_;
  std::string closing_;             // the brackets that are open
  std::string line_start_ = ",\n";  // what stands between two members or elements
  bool empty_ = true;               // is there nothing yet in the innermost one?
  bool named_ = false;              // has member() said what the next value is?
};

}  // namespace qimctl
