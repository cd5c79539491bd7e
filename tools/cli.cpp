#include "tools/cli.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <sstream>

#include "policy/base/names.h"
#include "policy/base/text.h"
#include "rov.h"
#include "tools/base/exit_code.h"
#include "tools/base/output.h"
#include "tools/commands/import.h"
#include "tools/commands/list.h"
#include "tools/commands/maintenance.h"
#include "tools/commands/show.h"
#include "tools/commands/tree.h"
#include "tools/commands/verbs.h"

namespace qimctl {

namespace {

void complain(const std::string& message) {
  fprintf(stderr, "qimctl: %s\n", printable(message).c_str());
}

// More would only push the first ones off the screen.
constexpr size_t most_problems = 50;

void complain(const InputError& error) {
  const std::vector<Problem>& problems = error.problems();
  for (size_t i = 0; i < problems.size() && i < most_problems; i++) {
    complain(to_string(problems[i].place) + ": " + problems[i].message);
  }
  if (problems.size() > most_problems) {
    complain("and " + counted(problems.size() - most_problems, "more problem"));
  }
}

std::string check_type(const std::string& text) {
  if (node_type_code(text)) return "";
  return "'" + text + "' is no node type; known are " + node_type_list();
}

uint32_t node_of(const std::string& text) {
  return static_cast<uint32_t>(*parse_number(text));
}

// What was asked for is not there.
bool is_absent(uint32_t status) {
  return status == ROV_ERR_NO_ITEM || status == QIM_ERR_NO_EDEST;
}

// The parsed command line, and what each command does with it.
class Commands {
 public:
  Commands() {
    app_.require_subcommand(0, 1);  // run() asks for it, so that a misspelt one is named
    app_.fallthrough();
    app_.set_help_all_flag("--help-all", "Show help of all commands");
    app_.add_option("--db", database_,
                    "Directory of the node database; else $ROV_DB, else ./qim.db")
        ->type_name("DIR");
    add_import();
    add_list();
    add_show();
    add_tree();
    verbs_.add();
  }

  int run(int argc, const char* const* argv) {
    try {
      app_.parse(argc, argv);
      if (app_.get_subcommands().empty()) throw CLI::RequiredError("A subcommand");
    } catch (const CLI::ParseError& error) {
      return explain(error);
    }
    const int code = action_();
    flush_output();
    return code;
  }

 private:
  // Help is output, anything else a complaint.
  int explain(const CLI::ParseError& error) const {
    std::ostringstream help;
    const bool is_help = app_.exit(error, help, std::cerr) == 0;
    print(help.str());
    flush_output();
    return is_help ? exit_ok : exit_usage;
  }

  void add_import() {
    CLI::App* command = app_.add_subcommand("import", "Import policy files, all or nothing");
    const std::map<std::string, Format> formats{{"native", Format::native},
                                                {"rfc8519", Format::rfc8519}};
    command->add_option("--format", import_.format, "Format of the files; guessed when not given")
        ->transform(CLI::CheckedTransformer(formats).description("{native,rfc8519}"))
        ->type_name("FORMAT");
    command->add_flag("--lossy", import_.lossy,
                      "Import although something is approximated or skipped");
    command->add_flag("--replace", import_.replace, "Replace nodes that are there already");
    command->add_flag("-v,--verbose", import_.verbose, "List what was accepted, too");
    command->add_flag("--json", import_.json, "Report as JSON");
    command->add_option("FILE", import_.files, "Policy files")->required()->type_name("");
    command->callback([this] { action_ = [this] { return run_import(); }; });
  }

  void add_list() {
    CLI::App* command = app_.add_subcommand("list", "List the nodes");
    command->add_option("--type", type_, "Only nodes of this type, by name or number")
        ->check(check_type)
        ->type_name("TYPE");
    command->add_flag("--json", json_, "Print JSON");
    command->callback([this] { action_ = [this] { return run_list(); }; });
  }

  void add_show() {
    CLI::App* command = app_.add_subcommand("show", "Show a node with all that belongs to it");
    add_node(command);
    command
        ->add_flag("--engine", engine_,
                   "Print it through the database's own show, by the library's tables")
        ->excludes("--json");
    command->callback([this] { action_ = [this] { return run_show(); }; });
  }

  void add_tree() {
    CLI::App* command = app_.add_subcommand("tree", "Show a policy, expanded along its links");
    add_node(command);
    command->add_option("--depth", tree_.depth, "Levels below the node")
        ->check(CLI::Range(uint32_t{0}, uint32_t{1000}))
        ->capture_default_str()
        ->type_name("N");
    command->callback([this] { action_ = [this] { return run_tree(); }; });
  }

  void add_node(CLI::App* command) {
    command->add_option("NODE", node_, "Node identifier, decimal or 0x...")
        ->required()
        ->check(check_node)
        ->type_name("");
    command->add_flag("--json", json_, "Print JSON");
  }

  int run_import() {
    import_.database = database_;
    if (import_files(import_)) return exit_ok;
    complain(
        "nothing was imported, for not everything above can be carried as it is; "
        "repeat with --lossy to accept that");
    return exit_lossy;
  }

  int run_list() {
    ListOptions options;
    options.json = json_;
    if (!type_.empty()) options.type = node_type_code(type_);
    const Database database(database_, OpenMode::read);
    list_nodes(ReadSession(database), options);
    return exit_ok;
  }

  int run_show() {
    const Database database(database_, OpenMode::read);
    const ReadSession session(database);
    if (engine_) {
      print_shown(database, session, node_of(node_));
    } else {
      show_node(session, node_of(node_), json_);
    }
    return exit_ok;
  }

  int run_tree() {
    tree_.json = json_;
    const Database database(database_, OpenMode::read);
    print_tree(ReadSession(database), node_of(node_), tree_);
    return exit_ok;
  }

  CLI::App app_{"Reads and writes the packet policy in a node database.", "qimctl"};
  std::string database_;
  ImportOptions import_;
  std::string type_;
  std::string node_;
  TreeOptions tree_;
  bool json_ = false;
  bool engine_ = false;
  std::function<int()> action_;
  Verbs verbs_{app_, database_, action_};
  Maintenance maintenance_{app_, database_, action_};
};

}  // namespace

int run(int argc, const char* const* argv) {
  try {
    return Commands().run(argc, argv);
  } catch (const InputError& error) {
    complain(error);
    return exit_input;
  } catch (const DatabaseError& error) {
    complain(error.what());
    return is_absent(error.status()) ? exit_not_found : exit_database;
  } catch (const OutputError& error) {
    complain(error.what());
    return exit_output;
  } catch (const std::bad_alloc&) {
    complain("out of memory; free some and try again");
    return exit_database;
  } catch (const std::exception& error) {
    complain(std::string("internal error: ") + error.what());
    return exit_database;
  }
}

}  // namespace qimctl
