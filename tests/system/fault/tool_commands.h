// The command-line tool's commands.
#ifndef TESTS_SYSTEM_FAULT_TOOL_COMMANDS_H
#define TESTS_SYSTEM_FAULT_TOOL_COMMANDS_H

#include <string>
#include <vector>

namespace fault {

enum class Needs { kDatabase, kCopy, kNoDatabase };

struct Command {
  std::vector<std::string>
      words;    // "@" in front of one: a file of examples/; "@@": a file made for this
  Needs needs;  // kDatabase: it writes nothing
};

// What makes a database that holds examples/edge-all-types.json one for all commands. Makes the files in
// `made` that they take.
std::vector<Command> preparing_commands(const std::string& made);

// Every command, and those that touch the database in different ways.
const std::vector<Command>& all_commands();
const std::vector<Command>& database_commands();
// All, but under an emulator, where each run takes a hundred times as long, only the latter: what the
// others do with a database is the same on every processor.
const std::vector<Command>& tried_commands();

std::string text_of(const Command& command);

// The command line on a database, with the names of its files; what is made for it lies in `made`.
std::vector<std::string> words_of(const Command& command, const std::string& database,
                                  const std::string& made);

}  // namespace fault

#endif
