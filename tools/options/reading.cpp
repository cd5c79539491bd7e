// Commands that show what the database holds, in the large.
#include "policy/base/names.h"
#include "tools/commands/list.h"
#include "tools/commands/tree.h"
#include "tools/commands/watch.h"
#include "tools/nodes/node_names.h"
#include "tools/options/commands.h"
#include "tools/options/values.h"

namespace qimctl {

namespace {

void add_list(Commands& commands) {
  struct Given {
    std::string type;
    bool nodes = false;  // is what is listed anyway
  };
  const auto given = std::make_shared<Given>();
  CLI::App* command = commands.add("list", "List the nodes");
  command->add_option("--type", given->type, "Only nodes of this type, by name or number")
      ->check(check_type)
      ->type_name("TYPE");
  command->add_flag("--nodes", given->nodes, "The nodes, as when it is left out");
  commands.ask_for(command, [&commands, given](const Database&, const ReadSession& session) {
    ListOptions options;
    options.form = commands.form();
    if (!given->type.empty()) options.type = node_type_code(given->type);
    return list_nodes(session, options) ? exit_ok : exit_defects;
  });
}

void add_tree(Commands& commands) {
  struct Given {
    std::string node;
    TreeOptions options;
  };
  const auto given = std::make_shared<Given>();
  CLI::App* command = commands.add("tree", "Show a policy, expanded along its links");
  Commands::add_node(command, given->node);
  command->add_option("--depth", given->options.depth, "Levels below the node")
      ->check(check_range(0, 1000))
      ->capture_default_str()
      ->type_name("N");
  commands.ask(command, [&commands, given](const Database&, const ReadSession& session) {
    given->options.form = commands.form();
    print_tree(session, find_node(session, given->node), given->options);
  });
}

void add_watch(Commands& commands) {
  const auto options = std::make_shared<WatchOptions>();
  CLI::App* command = commands.add("watch", "Print changes as they are committed");
  command->add_option("--from", options->from, "Begin behind this revision; else from now on")
      ->check(check_number)
      ->type_name("REVISION");
  command->add_flag("--raw", options->raw, "Print each change of a node or link");
  command->add_flag("--acl", options->acl, "Print what becomes of access lists, and nothing else")
      ->excludes("--raw");
  const auto type = std::make_shared<std::string>();
  command->add_option("--type", *type, "Print each change of nodes of this type, by name or number")
      ->check(check_type)
      ->excludes("--acl")
      ->type_name("TYPE");
  command->add_option("--count", options->count, "Stop after so many lines")
      ->check(check_number)
      ->type_name("N");
  command->add_option("--timeout", options->seconds, "Stop when none came for so many seconds")
      ->check(check_range(0, 1000000))
      ->type_name("SECONDS");
  commands.on(command, [&commands, options, type] {
    options->form = commands.form();
    if (!type->empty()) options->type = node_type_code(*type);
    watch_changes(Database(commands.database(), OpenMode::read), *options);
    return exit_ok;
  });
}

}  // namespace

void add_reading(Commands& commands) {
  add_list(commands);
  add_tree(commands);
  add_watch(commands);
}

}  // namespace qimctl
