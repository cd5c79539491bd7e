// The command line of qimctl-fleet.
#pragma once

namespace qim::fleet {

// Runs one command: output goes to standard output, complaints to standard error. Throws nothing.
int run(int argc, const char* const* argv);

}  // namespace qim::fleet
