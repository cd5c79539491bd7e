// The command line: reads it, by the commands that the groups register.
#include "tools/options/command_line.h"

#include <iostream>
#include <sstream>

#include "tools/base/output.h"
#include "tools/options/commands.h"

namespace qimctl {

namespace {

class CommandLine {
 public:
  CommandLine() {
    app_.require_subcommand(0, 1);  // read() asks for it, so that a misspelt one is named
    app_.set_help_all_flag("--help-all", "Show help of all commands");
    for (const auto add :
         {add_changing, add_exporting, add_reading, add_viewing, add_nodes, add_maintenance})
      add(commands_);
  }
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  // The command, which lives as long as this object does; nothing when all is said.
  std::function<int()> read(int argc, const char* const* argv) {
    try {
      app_.parse(argc, argv);
      if (app_.get_subcommands().empty()) throw CLI::RequiredError("A subcommand");
      return commands_.action();
    } catch (const CLI::ParseError& error) {
      const int code = explain(error);
      return [code] { return code; };
    }
  }

 private:
  // Help is output, anything else a complaint.
  int explain(const CLI::ParseError& error) const {
    std::ostringstream help;
    const bool is_help = app_.exit(error, help, std::cerr) == 0;
    print(help.str());
    return is_help ? exit_ok : exit_usage;
  }

  CLI::App app_{"Reads and writes the packet policy in a node database.", "qimctl"};
  Commands commands_{app_};
};

}  // namespace

std::function<int()> read_command_line(int argc, const char* const* argv) {
  const auto line = std::make_shared<CommandLine>();
  return [line, action = line->read(argc, argv)] { return action(); };
}

}  // namespace qimctl
