// The kernel's packet filter, through libnftables.
#pragma once

#include <string>

#include "processes/enforce/kernel_reader.h"

namespace enforce {

// All commands, in JSON, take effect together, or none. Throws FilterError.
//
// A process of its own speaks to the library, which ends its process where it meets what it can't
// decode.
void run_commands(const std::string& commands);

}  // namespace enforce
