// Commands that change access lists, and say what a change would be.
#include "tools/commands/apply.h"
#include "tools/commands/delete.h"
#include "tools/commands/diff.h"
#include "tools/nodes/node_names.h"
#include "tools/options/commands.h"
#include "tools/options/files.h"
#include "tools/options/values.h"

namespace qimctl {

namespace {

// Closed again before the database is written to.
uint32_t named_node(const std::string& directory, const std::string& name) {
  const Database database(directory, OpenMode::read);
  return find_node(ReadSession(database), name);
}

void add_apply(Commands& commands) {
  const auto options = std::make_shared<ApplyOptions>();
  CLI::App* command =
      commands.add("apply", "Make the database hold what policy files say, all or nothing");
  add_file_options(command, options->input.format, options->input.reading);
  command->add_flag("--prune", options->prune, "Delete the access lists that no file names");
  command->add_flag("--dry-run", options->dry_run, "Say what would be done, and do nothing");
  command->add_flag("--lossy", options->lossy,
                    "Apply although something is approximated or skipped");
  add_group(command, options->group);
  command->add_flag("-v,--verbose", options->verbose, "List what was accepted, too");
  command->add_option("FILE", options->input.files, "Policy files")->required()->type_name("");
  commands.on(command, [&commands, options] {
    options->database = commands.database();
    options->form = commands.form();
    options->input.all_lines = options->verbose || !is_text(options->form);
    return apply_files(*options);
  });
}

void add_diff(Commands& commands) {
  const auto options = std::make_shared<DiffOptions>();
  CLI::App* command =
      commands.add("diff", "Say what differs: in files, another database, a snapshot");
  add_file_options(command, options->input.format, options->input.reading);
  command->add_option("--db", options->databases, "One database, or two to compare")
      ->expected(1)
      ->take_all()
      ->type_name("DIR");
  command
      ->add_option("--from", options->from,
                   "Compare with this snapshot, or with the revision that one holds")
      ->type_name("NAME");
  command->add_option("FILE", options->input.files, "Policy files")->type_name("");
  command->add_flag("--semantic", options->semantic,
                    "Say which packets are decided differently, with an example of each kind");
  commands.open(command, [&commands, options](const std::string& snapshot) {
    if (options->databases.empty()) options->databases.push_back(commands.database());
    options->at = snapshot;
    options->form = commands.form();
    return diff(*options);
  });
}

struct Removed {
  DeleteOptions options;
  std::string name;
  std::string place;
};

// `run` is given what the command was.
template <typename Run>
void remove_with(Commands& commands, CLI::App* command, const std::shared_ptr<Removed>& removed,
                 Run run) {
  command->add_flag("--dry-run", removed->options.dry_run,
                    "Say what would be done, and do nothing");
  commands.on(command, [&commands, removed, run] {
    removed->options.database = commands.database();
    removed->options.form = commands.form();
    return run(*removed);
  });
}

void add_delete(Commands& commands) {
  CLI::App* command = commands.add("delete", "Delete an access list, or a node");
  command->require_subcommand(1);
  const auto removed = std::make_shared<Removed>();
  CLI::App* list = Commands::add(command, "acl", "Delete an access list that is attached nowhere");
  list->add_option("NAME", removed->name, "Its name")->required()->type_name("");
  CLI::App* node = Commands::add(command, "node", "Delete a node that nothing refers to");
  Commands::add_node(node, removed->name);
  for (CLI::App* each : {list, node})
    each->add_flag("--force", removed->options.force, "Delete it although it is in use");
  remove_with(commands, list, removed,
              [](const Removed& given) { return delete_list(given.options, given.name); });
  remove_with(commands, node, removed, [](const Removed& given) {
    return delete_node_command(given.options, named_node(given.options.database, given.name));
  });
}

void add_detach(Commands& commands) {
  CLI::App* command = commands.add("detach", "Detach an access list from an interface");
  command->require_subcommand(1);
  const auto removed = std::make_shared<Removed>();
  CLI::App* list = Commands::add(command, "acl", "Detach an access list from an interface");
  list->add_option("NAME", removed->name, "Its name")->required()->type_name("");
  list->add_option("PLACE", removed->place, "if:INTERFACE/in or if:INTERFACE/out")
      ->required()
      ->type_name("");
  remove_with(commands, list, removed, [](const Removed& given) {
    return detach_list(given.options, given.name, given.place);
  });
}

void add_gc(Commands& commands) {
  const auto removed = std::make_shared<Removed>();
  remove_with(commands,
              commands.add("gc", "Remove nodes of access lists that nothing leads to any more"),
              removed, [](const Removed& given) { return collect_garbage(given.options); });
}

}  // namespace

void add_lists(Commands& commands) {
  add_apply(commands);
  add_diff(commands);
  add_delete(commands);
  add_detach(commands);
  add_gc(commands);
}

}  // namespace qimctl
