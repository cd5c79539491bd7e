// The command-line tool's commands, run in forked processes whose calls can be made to fail.
#ifndef TESTS_SYSTEM_FAULT_TOOL_RUNS_H
#define TESTS_SYSTEM_FAULT_TOOL_RUNS_H

#include <functional>
#include <string>

#include "tests/database/database_fixture.h"
#include "tests/system/fault/forked_run.h"
#include "tests/system/fault/tool_commands.h"

namespace fault {

// A database with the examples, and a place for copies of it.
class ToolRuns {
 public:
  ToolRuns();

  // Runs a command on a database in the state that it needs.
  Run run(const Command& command, const interpose::Plan* plan);
  // Runs one on what the last run left.
  Run run_again(const Command& command, const interpose::Plan* plan);
  // Runs one whose process does something else first.
  Run run_after(const std::function<void()>& first, const Command& command);
  // What the database of the last run holds, as text. "" when there is none.
  std::string contents();

 private:
  void prepare(Needs needs);

  testing_rov::TemporaryDirectory directory_;
  std::string database_;
  std::string copy_;
  std::string used_;
};

}  // namespace fault

#endif
