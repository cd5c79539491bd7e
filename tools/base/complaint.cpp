// Complaints on standard error.
#include "tools/base/complaint.h"

#include <cstdio>
#include <utility>

#include "policy/base/text.h"

namespace qimctl {

namespace {

OutputForm complaint_form = OutputForm::table;

void set_words(JsonValue& value, const std::string& message) {
  const size_t end = message.rfind("; ");
  value.set("what", message.substr(0, end));
  if (end != message.npos) value.set("fix", message.substr(end + 2));
}

void print_document(const JsonValue& value) {
  fprintf(stderr, "%s\n", value.dump_repaired(-1).c_str());
}

}  // namespace

void complain_as(OutputForm form) {
  complaint_form = form;
}

std::string complaint_text(const std::string& message) {
  if (is_text(complaint_form)) return "qimctl: " + harmless(message) + "\n";
  JsonValue value;
  set_words(value, message);
  return value.dump_repaired(-1) + "\n";
}

void complain(const std::string& message) {
  fputs(complaint_text(message).c_str(), stderr);
}

void complain(const Problem& problem) {
  if (is_text(complaint_form)) return complain(to_string(problem.place) + ": " + problem.message);
  JsonValue value;
  value.set("file", problem.place.file);
  if (problem.place.line != 0) value.set("line", problem.place.line);
  if (!problem.place.path.empty()) value.set("path", problem.place.path);
  set_words(value, problem.message);
  print_document(value);
}

void complain(const std::string& message, const std::string& status) {
  const std::string ending = " (" + status + ")";
  const bool ends = message.ends_with(ending);
  if (is_text(complaint_form) || !ends) return complain(message);
  JsonValue value;
  set_words(value, message.substr(0, message.size() - ending.size()));
  value.set("status", status);
  print_document(value);
}

}  // namespace qimctl
