// Commands that show policies as people think of them, and explain them.
#include "tools/commands/acl.h"
#include "tools/commands/explain.h"
#include "tools/commands/graph.h"
#include "tools/commands/snapshot.h"
#include "tools/commands/status.h"
#include "tools/options/commands.h"
#include "tools/options/values.h"

namespace qimctl {

namespace {

struct AclOptions {
  std::string name;
  bool counters = false;
};

void add_acl(Commands& commands) {
  const auto options = std::make_shared<AclOptions>();
  CLI::App* command = commands.add("acl", "List the access lists, or the entries of one");
  CLI::Option* name =
      command->add_option("NAME", options->name, "The list's name; all lists when not given")
          ->type_name("");
  command->add_flag("--counters", options->counters, "What the kernel has counted of each entry")
      ->needs(name);
  commands.ask(command, [&commands, options](const Database&, const ReadSession& session) {
    if (options->name.empty()) return print_lists(session, commands.form());
    if (!options->counters) return print_list(session, options->name, commands.form());
    const EntryCounters counters = read_counters();
    print_list(session, options->name, commands.form(), &counters);
  });
}

void add_status(Commands& commands) {
  CLI::App* command = commands.add("status", "Show what the database holds and who uses it");
  commands.open(command, [&commands](const std::string& snapshot) {
    print_status(Database(commands.database(), OpenMode::read, snapshot), snapshot,
                 commands.form());
    return exit_ok;
  });
}

void add_explain(Commands& commands) {
  const auto word = std::make_shared<std::string>();
  CLI::App* command =
      commands.add("explain", "Say what a word or number that is printed or taken stands for");
  command->add_option("WORD", *word, "A name or a number")->required()->type_name("");
  commands.on(command, [&commands, word] {
    return explain_word(*word, commands.form()) ? exit_ok : exit_not_found;
  });
}

void add_graph(Commands& commands) {
  const auto options = std::make_shared<GraphOptions>();
  CLI::App* command = commands.add("graph", "Draw the policy, by Graphviz");
  command->add_option("NAME", options->what, "A list, or if:INTERFACE[/in|out]; else everything")
      ->type_name("");
  const auto format = std::make_shared<std::string>("svg");
  command->add_option("--format", *format, "The picture, or what Graphviz makes it of: svg, dot")
      ->check(check_word({"svg", "dot"}))
      ->capture_default_str()
      ->type_name("FORMAT");
  commands.ask(command, [&commands, options, format](const Database&, const ReadSession& session) {
    options->dot = *format == "dot";
    options->form = commands.form();
    print_graph(session, *options);
  });
}

void add_name(CLI::App* command, const std::shared_ptr<std::string>& name) {
  command->add_option("NAME", *name, "The snapshot's name")->required()->type_name("");
}

void add_snapshot(Commands& commands) {
  const auto name = std::make_shared<std::string>();
  CLI::App* command = commands.add("snapshot", "Keep states of the database under a name");
  command->require_subcommand(1);
  CLI::App* make = Commands::add(command, "make", "Keep the newest state");
  add_name(make, name);
  commands.on(make, [&commands, name] {
    make_snapshot_named(Database(commands.database(), OpenMode::change), *name, commands.form());
    return exit_ok;
  });
  CLI::App* list = Commands::add(command, "list", "List what is kept");
  commands.on(list, [&commands] {
    return list_snapshots(commands.database(), commands.form()) ? exit_ok : exit_database;
  });
  CLI::App* remove = Commands::add(command, "remove", "Keep a state no longer");
  add_name(remove, name);
  commands.on(remove, [&commands, name] {
    remove_snapshot_named(Database(commands.database(), OpenMode::change), *name, commands.form());
    return exit_ok;
  });
}

void add_rollback(Commands& commands) {
  const auto options = std::make_shared<RollbackOptions>();
  CLI::App* command =
      commands.add("rollback", "Make the database hold again what a snapshot holds");
  command->add_option("NAME", options->snapshot, "The snapshot's name")->required()->type_name("");
  command->add_flag("-n,--dry-run", options->dry_run, "Only say what would change");
  commands.on(command, [&commands, options] {
    options->form = commands.form();
    roll_back_to(Database(commands.database(), OpenMode::change), *options);
    return exit_ok;
  });
}

}  // namespace

void add_viewing(Commands& commands) {
  add_acl(commands);
  add_status(commands);
  add_graph(commands);
  add_explain(commands);
  add_snapshot(commands);
  add_rollback(commands);
}

}  // namespace qimctl
