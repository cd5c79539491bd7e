// The process: follows the database until it is told to stop.
#pragma once

#include <string>

namespace enforce {

struct Options {
  std::string database;   // "" = as ROV_DB says
  std::string metrics;    // a file, "" = none
  bool dry_run = false;   // print the ruleset
  bool once = false;      // end when the kernel holds the policy
  bool counters = false;  // print what is counted
  bool remove = false;    // take everything out of the kernel
};

enum ExitCode {
  exit_good = 0,
  exit_refused = 1,  // the kernel can't do this policy
  exit_usage = 2,
  exit_failed = 4,  // the database or the kernel
};

// Throws DatabaseError and FilterError.
ExitCode run(const Options& options);

}  // namespace enforce
