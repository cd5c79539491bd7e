// What groups of commands are registered with.
#include "tools/options/commands.h"

#include "policy/base/dsetname.h"
#include "tools/base/output.h"
#include "tools/base/pager.h"
#include "tools/base/usage.h"
#include "tools/options/help.h"
#include "tools/options/values.h"

namespace qimctl {

Commands::Commands(CLI::App& app) : app_(app) {
  // Commands inherit what is set when they are added.
  use_own_words(app_);
  app_.fallthrough();
  app_.add_option("--db", database_, "Directory of the node database; else $ROV_DB, else ./qim.db")
      ->type_name("DIR");
  app_.add_option_function<std::string>(
          "-o,--output",
          [this](const std::string& name) {
            if (parse_form(name, form_)) return;
            throw UsageError("'" + name + "' is no form of output; there are " + output_forms);
          },
          std::string("Form of the output: ") + output_forms)
      ->type_name("FORM");
  app_.add_flag_callback(
      "--json", [this] { form_ = OutputForm::json; }, "The same as -o json");
  app_.add_option("--at", snapshot_, "Read this snapshot in place of the newest state")
      ->type_name("SNAPSHOT");
  app_.add_flag("--no-pager", no_pager_, "Print long output to the terminal itself");
}

CLI::App* Commands::add(const std::string& name, const std::string& help) const {
  return add(&app_, name, help);
}

CLI::App* Commands::add(CLI::App* above, const std::string& name, const std::string& help) {
  return above->add_subcommand(name, help);
}

void Commands::on(CLI::App* command, std::function<ExitCode()> run) {
  open(command, [run = std::move(run)](const std::string& snapshot) {
    if (snapshot.empty()) return run();
    throw UsageError("--at is for commands that only read the database; leave it out");
  });
}

void Commands::open(CLI::App* command, Opening run) {
  command->callback(
      [this, run = std::move(run)] { action_ = [this, run] { return run(snapshot_); }; });
}

void Commands::ask(CLI::App* command, Query query) {
  ask_for(command,
          [query = std::move(query)](const Database& database, const ReadSession& session) {
            query(database, session);
            return exit_ok;
          });
}

void Commands::ask_for(CLI::App* command, Reading reading) {
  command->callback([this, reading = std::move(reading)] {
    action_ = [this, reading] {
      const Database database(database_, OpenMode::read, snapshot_);
      const ReadSession session(database);
      const Pager pager(!no_pager_);
      const ExitCode code = reading(database, session);
      flush_output();
      return code;
    };
  });
}

void Commands::require_file_form() const {
  if (form_ == OutputForm::jsonl || form_ == OutputForm::yaml)
    throw UsageError("a file that other commands read is printed, which is JSON; leave -o out");
}

void Commands::add_node(CLI::App* command, std::string& node, const char* name) {
  command->add_option(name, node, "A node: its identifier, LIST, LIST/ENTRY or if:NAME[/in|/out]")
      ->required()
      ->check(check_node)
      ->type_name("");
}

void Commands::add_dest(CLI::App* command, std::vector<std::string>& words, bool required) {
  CLI::Option* option = command->add_option("DESTINATION", words, dest_help)->type_name("");
  option->required(required);
  // Checked as a whole: a word alone means nothing.
  command->parse_complete_callback([&words, option] {
    if (option->count() != 0 && !dest_from_words(words)) {
      throw UsageError(std::string("DESTINATION: not understood; give ") + dest_help);
    }
  });
}

}  // namespace qimctl
