// The command line of qimctl.
#pragma once

#include "tools/base/exit_code.h"

namespace qimctl {

// Runs one command: output goes to standard output, complaints to standard error. Throws nothing.
int run(int argc, const char* const* argv);

}  // namespace qimctl
