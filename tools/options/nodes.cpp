// Commands that ask what is known of one node, and of names of data sets.
#include "policy/base/criteria_codes.h"
#include "policy/base/dsetname.h"
#include "policy/base/names.h"
#include "tools/base/usage.h"
#include "tools/commands/args.h"
#include "tools/commands/criteria.h"
#include "tools/commands/edest.h"
#include "tools/commands/name.h"
#include "tools/commands/pinst.h"
#include "tools/commands/refs.h"
#include "tools/commands/show.h"
#include "tools/nodes/node_names.h"
#include "tools/options/commands.h"
#include "tools/options/values.h"

namespace qimctl {

namespace {

void add_show(Commands& commands) {
  struct Given {
    std::string node;
    bool engine = false;
  };
  const auto given = std::make_shared<Given>();
  CLI::App* command = commands.add("show", "Show a node with all that belongs to it");
  Commands::add_node(command, given->node);
  command->add_flag("--engine", given->engine,
                    "Print it through the database's own show, by the library's tables");
  commands.ask(command, [&commands, given](const Database& database, const ReadSession& session) {
    if (given->engine && !is_text(commands.form())) {
      throw UsageError("--engine prints text alone; leave it out, or -o and --json");
    }
    if (given->engine) return print_shown(database, session, find_node(session, given->node));
    show_node(session, find_node(session, given->node), commands.form());
  });
}

void add_refs(Commands& commands) {
  const auto node = std::make_shared<std::string>();
  CLI::App* command = commands.add("refs", "List the nodes that refer to a node");
  Commands::add_node(command, *node);
  commands.ask_for(command, [&commands, node](const Database&, const ReadSession& session) {
    const bool all = print_referrers(session, find_node(session, *node), commands.form());
    return all ? exit_ok : exit_defects;
  });
}

void add_questions(Commands& commands) {
  struct Question {
    const char* name;
    const char* help;
    void (*answer)(const ReadSession& session, uint32_t id, OutputForm form);
  };
  for (const Question& question :
       {Question{"criteria", "Show a filter's criteria", print_criteria},
        Question{"args", "Show the arguments of an action or default", print_args}}) {
    const auto node = std::make_shared<std::string>();
    CLI::App* command = commands.add(question.name, question.help);
    Commands::add_node(command, *node);
    commands.ask(command, [&commands, node, question](const Database&, const ReadSession& session) {
      question.answer(session, find_node(session, *node), commands.form());
    });
  }
}

void add_edest(Commands& commands) {
  struct Given {
    std::string node;
    std::vector<std::string> dest;
  };
  const auto given = std::make_shared<Given>();
  CLI::App* command =
      commands.add("edest", "List where a policy instance is enforced, or look one destination up");
  Commands::add_node(command, given->node);
  Commands::add_dest(command, given->dest, false);
  commands.ask_for(command, [&commands, given](const Database&, const ReadSession& session) {
    const uint32_t id = find_node(session, given->node);
    if (given->dest.empty()) {
      return print_edests(session, id, commands.form()) ? exit_ok : exit_defects;
    }
    print_edest_at(session, id, *dest_from_words(given->dest), commands.form());
    return exit_ok;
  });
}

void add_pinst(Commands& commands) {
  const auto text = std::make_shared<std::string>();
  CLI::App* command =
      commands.add("pinst", "Find the node of a data set, by its name or its number");
  command->add_option("NAME|NUMBER", *text, "42 hexadecimal digits, or a number from 0")
      ->required()
      ->check(check_name_or_selector)
      ->type_name("");
  commands.ask(command, [&commands, text](const Database&, const ReadSession& session) {
    print_dset(session, *text, commands.form());
  });
}

void add_name_build(Commands& commands, CLI::App* above) {
  struct Given {
    std::vector<std::string> dest;
    uint32_t type = 0;
    std::string dir = "in";
  };
  const auto given = std::make_shared<Given>();
  CLI::App* build = Commands::add(above, "build", "Print the name of a destination");
  Commands::add_dest(build, given->dest, true);
  build->add_option("--type", given->type, "Policy type")
      ->check(check_range(0, UINT32_MAX))
      ->type_name("N");
  build->add_option("--dir", given->dir, "Direction")
      ->check(check_word({"in", "out"}))
      ->capture_default_str()
      ->type_name("DIR");
  commands.on(build, [&commands, given] {
    qim_pinst_fields_t fields{};
    fields.dest = *dest_from_words(given->dest);
    fields.type = given->type;
    fields.dir = given->dir == "in" ? uint8_t{QIM_DIR_IN} : dir_out;
    print_built_name(fields, commands.form());
    return exit_ok;
  });
}

void add_name(Commands& commands) {
  CLI::App* command = commands.add("name", "Build and read data-set names");
  command->require_subcommand(1);
  add_name_build(commands, command);
  const auto text = std::make_shared<std::string>();
  CLI::App* parse = Commands::add(command, "parse", "Say what a name stands for");
  parse->add_option("HEX", *text, "42 hexadecimal digits")
      ->required()
      ->check(check_name)
      ->type_name("");
  commands.on(parse, [&commands, text] {
    print_parsed_name(*dset_from_hex(*text), commands.form());
    return exit_ok;
  });
}

}  // namespace

void add_nodes(Commands& commands) {
  add_show(commands);
  add_refs(commands);
  add_questions(commands);
  add_edest(commands);
  add_pinst(commands);
  add_name(commands);
}

}  // namespace qimctl
