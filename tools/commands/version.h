// `qimctl --version`: what this is, and what it works with.
#pragma once

#include "tools/base/form.h"

namespace qimctl {

const char* tool_version();

// The versions of the tool, of the libraries' interface, and of the databases' format.
void print_version(OutputForm form);

}  // namespace qimctl
