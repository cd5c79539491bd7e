// What the tool ends with.
#pragma once

namespace qimctl {

// What the process ends with; docs/qimctl.md lists them too.
enum ExitCode {
  exit_ok = 0,
  exit_lossy = 1,  // an import would lose something and --lossy was not given: nothing was imported
  exit_differs = 1,       // `diff` found a difference
  exit_usage = 2,         // a wrong command line
  exit_input = 3,         // a file that can't be read or is wrong
  exit_database = 4,      // the database or the policy library failed
  exit_not_found = 5,     // no such node
  exit_output = 6,        // the output can't be written
  exit_defects = 7,       // `check` found defects of the policy, or nodes are undecodable
  exit_refused = 8,       // what was to be deleted is still in use and --force was not given
  exit_interrupted = 130  // by Ctrl-C: nothing was stored
};

}  // namespace qimctl
