// Running another program.
#pragma once

#include <string>
#include <vector>

namespace qimctl {

struct ProgramResult {
  bool found = false;  // is there such a program?
  bool good = false;   // it ended with 0
  std::string output;
};

// Runs a program, looked for as PATH says, with `input` as its standard input; no shell sees any of
// it. Throws OutputError when the system refuses.
ProgramResult run_program(const std::vector<std::string>& command, const std::string& input);

}  // namespace qimctl
