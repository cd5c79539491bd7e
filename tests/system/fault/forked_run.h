// Work in a forked process, with calls of the C library that fail there.
#ifndef TESTS_SYSTEM_FAULT_FORKED_RUN_H
#define TESTS_SYSTEM_FAULT_FORKED_RUN_H

#include <functional>
#include <string>

#include "tests/system/fault/interpose.h"

namespace fault {

struct Run {
  int code = -1;   // what the work returned
  int signal = 0;  // what ended the process, 0 = nothing did
  interpose::Counts counts = {};
  std::string out;  // standard output
  std::string err;  // standard error
};

// Runs `work` in a process of its own, which is ended by SIGALRM when it takes too long. Nothing is
// counted and nothing fails until it calls disturb().
Run run_forked(const std::function<int()>& work, const interpose::Plan* plan);

// Within such a work: from here to undisturb(), or its end, calls are counted, and fail as the plan
// says if there is one.
void disturb();
void undisturb();

}  // namespace fault

#endif
