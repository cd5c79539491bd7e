// Complaints on standard error: lines for people, or documents for programs.
#pragma once

#include <string>

#include "policy/base/policy.h"
#include "tools/base/form.h"

namespace qimctl {

// In which form complaints are made from now on. Those for programs are JSON, one a line, with
// `what` and, where they are known, `fix`, `file`, `line` and `path`, and `status`.
void complain_as(OutputForm form);

// What complain() prints of a message, with the line's end.
std::string complaint_text(const std::string& message);

// Says what went wrong. What stands behind the last semicolon of a message is what to do about it.
void complain(const std::string& message);
// The same of a place in the input.
void complain(const Problem& problem);
// The same of a failure of the database: `status` is its name and number as the message ends with
// them, in brackets.
void complain(const std::string& message, const std::string& status);

}  // namespace qimctl
