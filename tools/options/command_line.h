// The command line: which commands there are, what they are given, and what each does.
#pragma once

#include <functional>

namespace qimctl {

// Reads a command line. Returns what the command that it names does and ends with; of one that asks
// for help, or is wrong, only what is still to end with, for the rest is said. What is returned may
// throw what commands throw.
std::function<int()> read_command_line(int argc, const char* const* argv);

}  // namespace qimctl
