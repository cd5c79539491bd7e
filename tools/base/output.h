// Standard output, checked, for what cannot be written is a failure like any other.
#pragma once

#include <stdexcept>
#include <string>

#include "tools/base/complaint.h"

namespace qimctl {

struct OutputError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Throws OutputError when the text can't be written.
void print(const std::string& text);
// Everything printed so far reaches its destination. Throws OutputError.
void flush_output();

}  // namespace qimctl
