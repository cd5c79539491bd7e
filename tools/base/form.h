// The forms in which a command prints what it answers.
#pragma once

#include <string>

#include "policy/base/json.h"

namespace qimctl {

enum class OutputForm {
  table,  // for people: cut to the terminal's width
  wide,   // the same with everything, never cut
  json,   // one document, laid out
  jsonl,  // a document a line: of several things each one
  yaml
};

// "table, wide, json, jsonl, yaml"
inline constexpr const char* output_forms = "table, wide, json, jsonl, yaml";
// False when there is no such form.
bool parse_form(const std::string& name, OutputForm& form);
// For people, not for programs?
constexpr bool is_text(OutputForm form) {
  return form == OutputForm::table || form == OutputForm::wide;
}

// A value as a document of its own, with a line's end; `form` is none for people.
std::string to_text(const JsonValue& value, OutputForm form);
// Prints it. Throws OutputError.
void print_value(const JsonValue& value, OutputForm form);

}  // namespace qimctl
