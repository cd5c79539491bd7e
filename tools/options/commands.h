// What groups of commands are registered with: the option parser, what all commands share, and the
// options that many of them have.
//
// A source that includes this sees the parser, which costs a compiler seconds. It says which options
// a command takes and calls what stands in tools/commands/ with plain values; it decides nothing.
//
//   void add_greeting(Commands& commands) {
//     const auto options = std::make_shared<GreetOptions>();
//     CLI::App* command = commands.add("greet", "Greet a node");
//     commands.add_node(command, options->node);
//     command->add_flag("--loud", options->loud, "Shout");
//     commands.ask(command, [&commands, options](const Database&, const ReadSession& session) {
//       greet(session, *options, commands.form());
//     });
//   }
//
// What a command is given lives in what its action holds, as `options` does above.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "policy/store/database.h"
#include "tools/base/exit_code.h"
#include "tools/base/form.h"

namespace qimctl {

class Commands {
 public:
  using Query = std::function<void(const Database&, const ReadSession&)>;

  // Gives `app` what stands before and behind every command: --db, -o, --json, --at, --no-pager.
  explicit Commands(CLI::App& app);
  Commands(const Commands&) = delete;
  Commands& operator=(const Commands&) = delete;

  // A command, or one below another: "priv" "get".
  CLI::App* add(const std::string& name, const std::string& help) const;
  static CLI::App* add(CLI::App* above, const std::string& name, const std::string& help);

  // What a command does that has no use for --at.
  void on(CLI::App* command, std::function<ExitCode()> run);
  // The same of one that opens what it reads by itself. It is given the snapshot, "" without --at.
  using Opening = std::function<ExitCode(const std::string& snapshot)>;
  void open(CLI::App* command, Opening run);
  // The same of one that reads the database: its newest state, or with --at a snapshot. On a
  // terminal its output goes through a pager.
  void ask(CLI::App* command, Query query);
  // The same of one that does not always succeed.
  using Reading = std::function<ExitCode(const Database&, const ReadSession&)>;
  void ask_for(CLI::App* command, Reading reading);

  // What was given, good as soon as a command runs.
  const std::string& database() const { return database_; }  // as in database_directory
  OutputForm form() const { return form_; }

  // Of a command that prints a file, which is JSON already: throws UsageError for another form.
  void require_file_form() const;

  // A node, as an argument that must be there.
  static void add_node(CLI::App* command, std::string& node, const char* name = "NODE");
  // Words that name a destination, checked as a whole.
  static void add_dest(CLI::App* command, std::vector<std::string>& words, bool required);

  // What the command that was named does; nothing when none was.
  const std::function<int()>& action() const { return action_; }

 private:
  CLI::App& app_;
  std::function<int()> action_;
  std::string database_;
  std::string snapshot_;
  OutputForm form_ = OutputForm::table;
  bool no_pager_ = false;
};

// The groups, in the order in which help lists them.
void add_changing(Commands& commands);     // what changes policies
void add_exporting(Commands& commands);    // what writes policy files
void add_lists(Commands& commands);        // what changes access lists
void add_reading(Commands& commands);      // what is there, in the large
void add_viewing(Commands& commands);      // what is there, as people think of it
void add_tracing(Commands& commands);      // what is decided
void add_nodes(Commands& commands);        // what is known of one node
void add_maintenance(Commands& commands);  // the database as a whole

}  // namespace qimctl
