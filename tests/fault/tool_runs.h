// The command-line tool's commands, run in forked processes whose calls can be made to fail.
#ifndef TESTS_FAULT_TOOL_RUNS_H
#define TESTS_FAULT_TOOL_RUNS_H

#include <functional>
#include <string>
#include <vector>

#include "tests/fault/forked_run.h"
#include "tests/platform/database_fixture.h"

namespace fault {

enum class Needs { kDatabase, kCopy, kNoDatabase };

struct Command {
  std::vector<std::string>
      words;    // "@" in front of one: a file of examples/; "@@": a file made for this
  Needs needs;  // kDatabase: it writes nothing
};

// Every command, and those that touch the database in different ways.
const std::vector<Command>& all_commands();
const std::vector<Command>& database_commands();

std::string text_of(const Command& command);

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
  std::string file_of(const std::string& word) const;
  std::vector<std::string> words_of(const Command& command) const;

  testing_rov::TemporaryDirectory directory_;
  std::string examples_;
  std::string database_;
  std::string copy_;
  std::string used_;
};

}  // namespace fault

#endif
