// What groups of commands are registered with.
#include "tools/options/commands.h"

#include "policy/base/dsetname.h"
#include "tools/options/values.h"

namespace qimctl {

Commands::Commands(CLI::App& app) : app_(app) {
  // Commands inherit what is set when they are added.
  app_.fallthrough();
  app_.add_option("--db", database_, "Directory of the node database; else $ROV_DB, else ./qim.db")
      ->type_name("DIR");
  app_.add_flag("--json", json_, "Print JSON");
}

CLI::App* Commands::add(const std::string& name, const std::string& help) const {
  return add(&app_, name, help);
}

CLI::App* Commands::add(CLI::App* above, const std::string& name, const std::string& help) {
  return above->add_subcommand(name, help);
}

void Commands::on(CLI::App* command, std::function<ExitCode()> run) {
  command->callback([this, run = std::move(run)] { action_ = run; });
}

void Commands::ask(CLI::App* command, Query query) {
  on(command, [this, query = std::move(query)] {
    const Database database(database_, OpenMode::read);
    query(database, ReadSession(database));
    return exit_ok;
  });
}

void Commands::add_node(CLI::App* command, std::string& node, const char* name) {
  command->add_option(name, node, "Node identifier, decimal or 0x...")
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
      throw CLI::ValidationError("DESTINATION", std::string("not understood; give ") + dest_help);
    }
  });
}

}  // namespace qimctl
