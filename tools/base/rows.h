// What a command answers with when there may be several: a table for people, documents for programs.
//
//   Rows rows(form, {{"NAME"}, {"TYPE"}, {"PLACE", true}});
//   for (const Thing& thing : things) {
//     if (rows.is_text()) {
//       rows.add({printable(thing.name), thing.type, printable(thing.place)});
//     } else {
//       rows.add(thing_to_json(thing));
//     }
//   }
//   rows.finish("thing");  // "2 things" below the table
#pragma once

#include <string>
#include <vector>

#include "tools/base/form.h"

namespace qimctl {

struct Column {
  const char* head;
  bool wide = false;  // only where the form is wide
};

class Rows {
 public:
  Rows(OutputForm form, std::vector<Column> columns);

  bool is_text() const { return qimctl::is_text(form_); }
  // A row of a table: a cell for each column, wide or not, safe to print (printable), styled or not.
  void add(std::vector<std::string> cells);
  // A row as a document, printed at once: there may be more than one likes to hold.
  void add(const JsonValue& value);
  // Prints what is still to be printed, and below a table how many rows there are: "2 things". An
  // empty table has no head. Both throw OutputError.
  void finish(const std::string& noun);
  // The same without that line; without rows nothing.
  void finish();

  size_t count() const { return count_; }

 private:
  OutputForm form_;
  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> cells_;
  size_t count_ = 0;
};

}  // namespace qimctl
