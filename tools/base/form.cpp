// The forms in which a command prints what it answers.
#include "tools/base/form.h"

#include "policy/base/json_yaml.h"
#include "tools/base/output.h"

namespace qimctl {

bool parse_form(const std::string& name, OutputForm& form) {
  const std::pair<const char*, OutputForm> known[] = {{"table", OutputForm::table},
                                                      {"wide", OutputForm::wide},
                                                      {"json", OutputForm::json},
                                                      {"jsonl", OutputForm::jsonl},
                                                      {"yaml", OutputForm::yaml}};
  for (const auto& [text, value] : known) {
    if (name != text) continue;
    form = value;
    return true;
  }
  return false;
}

std::string to_text(const JsonValue& value, OutputForm form) {
  if (form == OutputForm::yaml) return to_yaml(value);
  return value.dump_repaired(form == OutputForm::jsonl ? -1 : 2) + "\n";
}

void print_value(const JsonValue& value, OutputForm form) {
  print(to_text(value, form));
}

}  // namespace qimctl
