// What a command answers with when there may be several.
#include "tools/base/rows.h"

#include <utility>

#include "policy/base/json_yaml.h"
#include "policy/base/names.h"
#include "tools/base/output.h"
#include "tools/base/table.h"
#include "tools/base/terminal.h"

namespace qimctl {

namespace {

std::string element_text(const JsonValue& value, OutputForm form, bool first) {
  switch (form) {
    case OutputForm::yaml:
      return to_yaml_element(value);
    case OutputForm::jsonl:
      return value.dump_repaired(-1) + "\n";
    default:
      return (first ? "[\n" : ",\n") + value.dump_repaired(-1);
  }
}

}  // namespace

Rows::Rows(OutputForm form, std::vector<Column> columns)
    : form_(form), columns_(std::move(columns)) {}

void Rows::add(std::vector<std::string> cells) {
  count_++;
  cells_.push_back(std::move(cells));
}

void Rows::add(const JsonValue& value) {
  print(element_text(value, form_, count_ == 0));
  count_++;
}

void Rows::finish(const std::string& noun) {
  finish();
  if (is_text()) print(counted(count_, noun) + "\n");
}

void Rows::finish() {
  if (form_ == OutputForm::json) print(count_ == 0 ? "[]\n" : "\n]\n");
  if (form_ == OutputForm::yaml && count_ == 0) print("[]\n");
  if (!is_text() || count_ == 0) return;
  const auto shown = [this](std::vector<std::string> row) {
    std::vector<std::string> kept;
    for (size_t i = 0; i < columns_.size(); i++) {
      if (!columns_[i].wide || form_ == OutputForm::wide) kept.push_back(std::move(row[i]));
    }
    return kept;
  };
  std::vector<std::string> head;
  for (const Column& column : columns_) head.push_back(styled(Style::head, column.head));
  TextTable table(shown(std::move(head)));
  for (auto& row : cells_) table.add(shown(std::move(row)));
  print(table.text(form_ == OutputForm::wide ? 0 : terminal().width));
}

}  // namespace qimctl
