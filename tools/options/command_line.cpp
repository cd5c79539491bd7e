// The command line: reads it, by the commands that the groups register.
#include "tools/options/command_line.h"

#include "policy/base/json.h"
#include "tools/base/output.h"
#include "tools/base/usage.h"
#include "tools/commands/version.h"
#include "tools/options/commands.h"
#include "tools/options/usage.h"

namespace qimctl {

namespace {

// What is wrong with a command line is complained of in the form that it asks for.
OutputForm wanted_form(int argc, const char* const* argv) {
  OutputForm form = OutputForm::table;
  for (int i = 1; i < argc; i++) {
    const std::string word = argv[i];
    if (word == "--json") form = OutputForm::json;
    const bool apart = word == "-o" || word == "--output";
    if (apart && i + 1 < argc) parse_form(argv[i + 1], form);
    if (word.starts_with("--output=")) parse_form(word.substr(word.find('=') + 1), form);
    if (word.starts_with("-o")) parse_form(word.substr(2), form);
  }
  return form;
}

class CommandLine {
 public:
  CommandLine() {
    app_.require_subcommand(0, 1);  // read() asks for it, so that a misspelt one is named
    app_.set_help_all_flag("--help-all", "Show help of all commands");
    app_.add_flag("--version", version_, "Print the versions of the tool and of what it uses");
    app_.footer("Every command takes --db, -o, --json, --at and --no-pager: see 'qimctl help'.");
    for (const auto add : {add_changing, add_lists, add_exporting, add_reading, add_viewing,
                           add_tracing, add_nodes, add_maintenance}) {
      add(commands_);
    }
    add_help();
    app_.footer("");
  }
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  // The command, which lives as long as this object does; nothing when all is said.
  std::function<int()> read(int argc, const char* const* argv) {
    try {
      app_.parse(argc, argv);
      if (version_) return print_versions();
      if (app_.get_subcommands().empty()) throw CLI::RequiredError("A subcommand");
      return commands_.action();
    } catch (const CLI::CallForHelp&) {
      print(help_of(named_command(app_)));
    } catch (const CLI::CallForAllHelp&) {
      print(app_.help("", CLI::AppFormatMode::All));
    } catch (const CLI::ParseError& error) {
      throw UsageError(usage_text(app_, error));
    }
    return [] { return exit_ok; };
  }

 private:
  std::function<int()> print_versions() const {
    return [this] {
      print_version(commands_.form());
      return exit_ok;
    };
  }

  void add_help() {
    const auto words = std::make_shared<std::vector<std::string>>();
    CLI::App* command = commands_.add("help", "Show help, of all or of one command");
    command->add_option("COMMAND", *words, "A command")->type_name("");
    commands_.on(command, [this, words] {
      print_help(*words);
      return exit_ok;
    });
  }

  void print_help(const std::vector<std::string>& words) const {
    const std::string text = help_text(app_, words);
    if (is_text(commands_.form())) return print(text);
    JsonValue value;
    value.set("help", text);
    print_value(value, commands_.form());
  }

  CLI::App app_{"Reads and writes the packet policy in a node database.", "qimctl"};
  Commands commands_{app_};
  bool version_ = false;
};

}  // namespace

std::function<int()> read_command_line(int argc, const char* const* argv) {
  complain_as(wanted_form(argc, argv));
  const auto line = std::make_shared<CommandLine>();
  return [line, action = line->read(argc, argv)] { return action(); };
}

}  // namespace qimctl
