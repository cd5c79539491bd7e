// The command line: which commands there are, and what they are given. Nobody else sees the option
// parser.
#include "tools/command_line.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <sstream>

#include "policy/base/criteria_codes.h"
#include "policy/base/dsetname.h"
#include "policy/base/names.h"
#include "tools/base/exit_code.h"
#include "tools/base/output.h"
#include "tools/commands/args.h"
#include "tools/commands/check.h"
#include "tools/commands/compact.h"
#include "tools/commands/criteria.h"
#include "tools/commands/dump.h"
#include "tools/commands/edest.h"
#include "tools/commands/import.h"
#include "tools/commands/list.h"
#include "tools/commands/name.h"
#include "tools/commands/pinst.h"
#include "tools/commands/priv.h"
#include "tools/commands/refs.h"
#include "tools/commands/restore.h"
#include "tools/commands/show.h"
#include "tools/commands/tree.h"
#include "tools/commands/watch.h"

namespace qimctl {

namespace {

constexpr const char* dest_help =
    "interface INDEX [vrf N] [vlan N] [vdc N], service ID [srv_def N] [srv_vdc N], or "
    "generic [vdc N] [v8 N] [v16a N] [v16b N] [v32a N] [v32b N]";

// Checks of arguments: each returns what is to be said of a wrong one, "" of a right one.
std::string check_type(const std::string& text) {
  if (node_type_code(text)) return "";
  return "'" + text + "' is no node type; known are " + node_type_list();
}

std::string check_node(const std::string& text) {
  const std::optional<uint64_t> id = parse_number(text);
  if (id && *id != 0 && *id <= UINT32_MAX) return "";
  return "'" + text +
         "' is no node identifier; give a number from 1 to 4294967295, decimal or 0x...";
}

std::string check_name(const std::string& text) {
  return dset_from_hex(text) ? ""
                             : "'" + text + "' is no data-set name: give 42 hexadecimal digits";
}

// The command-line library takes -1 for the largest number.
std::string check_number(const std::string& text) {
  return parse_number(text) ? "" : "'" + text + "' is no number; give one, decimal or 0x...";
}

std::string check_name_or_selector(const std::string& text) {
  const std::optional<uint64_t> number = parse_number(text);
  if ((number && *number <= UINT32_MAX) || dset_from_hex(text)) return "";
  return "'" + text + "' is neither a data set's number nor a name of 42 hexadecimal digits";
}

class CommandLine {
 public:
  CommandLine() {
    // Commands inherit what is set when they are added: these four take --db in front of them only.
    add_maintenance();
    app_.require_subcommand(0, 1);  // read() asks for it, so that a misspelt one is named
    app_.fallthrough();
    app_.set_help_all_flag("--help-all", "Show help of all commands");
    app_.add_option("--db", database_,
                    "Directory of the node database; else $ROV_DB, else ./qim.db")
        ->type_name("DIR");
    add_import();
    add_list();
    add_show();
    add_tree();
    add_node_questions();
    add_edest();
    add_pinst();
    add_name();
    add_priv();
    add_watch();
  }
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  // The command, which lives as long as this object does; nothing when all is said.
  std::function<int()> read(int argc, const char* const* argv) {
    try {
      app_.parse(argc, argv);
      if (app_.get_subcommands().empty()) throw CLI::RequiredError("A subcommand");
      return action_;
    } catch (const CLI::ParseError& error) {
      const int code = explain(error);
      return [code] { return code; };
    }
  }

 private:
  using Query = std::function<void(const Database&, const ReadSession&)>;

  // Help is output, anything else a complaint.
  int explain(const CLI::ParseError& error) const {
    std::ostringstream help;
    const bool is_help = app_.exit(error, help, std::cerr) == 0;
    print(help.str());
    return is_help ? exit_ok : exit_usage;
  }

  void add_maintenance() {
    CLI::App* check = app_.add_subcommand(
        "check", "Verify the database's file and look for defects of the policy");
    add_json(check);
    on(check, [this] {
      const Database database(database_, OpenMode::read);
      return check_database(database, json_) ? exit_ok : exit_defects;
    });
    CLI::App* dump = app_.add_subcommand("dump", "Print the whole database in the native format");
    ask(dump, [](const Database&, const ReadSession& session) { dump_database(session); });
    CLI::App* restore = app_.add_subcommand("restore", "Make a database from a dump");
    restore->add_option("FILE", text_, "What 'dump' printed")->required()->type_name("");
    on(restore, [this] {
      const RestoreCounts counts = restore_database(database_, text_);
      print("restored " + counted(counts.nodes, "node") + " and " + counted(counts.links, "link") +
            "\n");
      return exit_ok;
    });
    CLI::App* compact =
        app_.add_subcommand("compact", "Make the database's file as small as it can be");
    on(compact, [this] {
      compact_database(database_);
      return exit_ok;
    });
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
    on(command, [this] {
      import_.database = database_;
      return import_files(import_) ? exit_ok : exit_lossy;
    });
  }

  void add_list() {
    CLI::App* command = app_.add_subcommand("list", "List the nodes");
    command->add_option("--type", text_, "Only nodes of this type, by name or number")
        ->check(check_type)
        ->type_name("TYPE");
    add_json(command);
    ask(command, [this](const Database&, const ReadSession& session) {
      ListOptions options;
      options.json = json_;
      if (!text_.empty()) options.type = node_type_code(text_);
      list_nodes(session, options);
    });
  }

  void add_show() {
    CLI::App* command = app_.add_subcommand("show", "Show a node with all that belongs to it");
    add_node(command, "NODE");
    add_json(command);
    command
        ->add_flag("--engine", engine_,
                   "Print it through the database's own show, by the library's tables")
        ->excludes("--json");
    ask(command, [this](const Database& database, const ReadSession& session) {
      if (engine_) return print_shown(database, session, node());
      show_node(session, node(), json_);
    });
  }

  void add_tree() {
    CLI::App* command = app_.add_subcommand("tree", "Show a policy, expanded along its links");
    add_node(command, "NODE");
    add_json(command);
    command->add_option("--depth", tree_.depth, "Levels below the node")
        ->check(CLI::Range(uint32_t{0}, uint32_t{1000}))
        ->capture_default_str()
        ->type_name("N");
    ask(command, [this](const Database&, const ReadSession& session) {
      tree_.json = json_;
      print_tree(session, node(), tree_);
    });
  }

  void add_node_questions() {
    struct Question {
      const char* name;
      const char* help;
      void (*answer)(const ReadSession& session, uint32_t id, bool json);
    };
    for (const Question& question :
         {Question{"refs", "List the nodes that refer to a node", print_referrers},
          Question{"criteria", "Show a filter's criteria", print_criteria},
          Question{"args", "Show the arguments of an action or default", print_args}}) {
      CLI::App* command = app_.add_subcommand(question.name, question.help);
      add_node(command, "NODE");
      add_json(command);
      ask(command, [this, question](const Database&, const ReadSession& session) {
        question.answer(session, node(), json_);
      });
    }
  }

  void add_edest() {
    CLI::App* command = app_.add_subcommand(
        "edest", "List where a policy instance is enforced, or look one destination up");
    add_node(command, "PINST");
    add_json(command);
    add_dest(command, false);
    ask(command, [this](const Database&, const ReadSession& session) {
      if (dest_.empty()) return print_edests(session, node(), json_);
      print_edest_at(session, node(), *dest_from_words(dest_), json_);
    });
  }

  void add_pinst() {
    CLI::App* command =
        app_.add_subcommand("pinst", "Find the node of a data set, by its name or its number");
    command->add_option("NAME|SELECTOR", text_, "42 hexadecimal digits, or a number from 0")
        ->required()
        ->check(check_name_or_selector)
        ->type_name("");
    add_json(command);
    ask(command,
        [this](const Database&, const ReadSession& session) { print_dset(session, text_, json_); });
  }

  void add_name() {
    CLI::App* command = app_.add_subcommand("name", "Build and read data-set names");
    command->require_subcommand(1);
    CLI::App* build = command->add_subcommand("build", "Print the name of a destination");
    add_dest(build, true);
    build->add_option("--type", type_, "Policy type")->type_name("N");
    build->add_option("--dir", dir_, "Direction")
        ->check(CLI::IsMember({"in", "out"}))
        ->capture_default_str()
        ->type_name("DIR");
    add_json(build);
    on(build, [this] {
      qim_pinst_fields_t fields{};
      fields.dest = *dest_from_words(dest_);
      fields.type = type_;
      fields.dir = dir_ == "in" ? uint8_t{QIM_DIR_IN} : dir_out;
      print_built_name(fields, json_);
      return exit_ok;
    });
    CLI::App* parse = command->add_subcommand("parse", "Say what a name stands for");
    parse->add_option("HEX", text_, "42 hexadecimal digits")
        ->required()
        ->check(check_name)
        ->type_name("");
    add_json(parse);
    on(parse, [this] {
      print_parsed_name(*dset_from_hex(text_), json_);
      return exit_ok;
    });
  }

  void add_priv() {
    CLI::App* command = app_.add_subcommand("priv", "This tool's private data on a node");
    command->require_subcommand(1);
    CLI::App* get = command->add_subcommand("get", "Show them");
    add_node(get, "NODE");
    add_json(get);
    ask(get, [this](const Database&, const ReadSession& session) {
      print_private(session, node(), json_);
    });
    CLI::App* set = command->add_subcommand("set", "Replace them; no data takes them away");
    add_node(set, "NODE");
    set->add_flag("--text", is_text_, "DATA is text, not hexadecimal digits");
    set->add_option("DATA", text_, "The data, as hexadecimal digits")->type_name("");
    on(set, [this] { return run_priv_set(); });
  }

  ExitCode run_priv_set() const {
    std::optional<std::vector<uint8_t>> bytes = bytes_from_hex(text_);
    if (is_text_) bytes.emplace(text_.begin(), text_.end());
    if (!bytes) {
      fprintf(stderr, "qimctl: '%s' are no hexadecimal digits; for text give --text\n",
              text_.c_str());
      return exit_usage;
    }
    const Database database(database_, OpenMode::read);
    set_private(ReadSession(database), node(), *bytes);
    return exit_ok;
  }

  void add_watch() {
    CLI::App* command = app_.add_subcommand("watch", "Print changes as they are committed");
    command->add_option("--from", watch_.from, "Begin behind this revision; else from now on")
        ->check(check_number)
        ->type_name("REVISION");
    command->add_option("--count", watch_.count, "Stop after so many messages")
        ->check(check_number)
        ->type_name("N");
    command->add_option("--timeout", watch_.seconds, "Stop when none came for so many seconds")
        ->check(CLI::Range(uint32_t{0}, uint32_t{1000000}))
        ->type_name("SECONDS");
    command->add_flag("--json", watch_.json, "Print JSON, one object a line");
    on(command, [this] {
      watch_changes(Database(database_, OpenMode::read), watch_);
      return exit_ok;
    });
  }

  void add_node(CLI::App* command, const char* name) {
    command->add_option(name, node_, "Node identifier, decimal or 0x...")
        ->required()
        ->check(check_node)
        ->type_name("");
  }

  void add_json(CLI::App* command) { command->add_flag("--json", json_, "Print JSON"); }

  void add_dest(CLI::App* command, bool required) {
    CLI::Option* option = command->add_option("DESTINATION", dest_, dest_help)->type_name("");
    option->required(required);
    // Checked as a whole: a word alone means nothing.
    command->parse_complete_callback([this, option] {
      if (option->count() != 0 && !dest_from_words(dest_)) {
        throw CLI::ValidationError("DESTINATION", std::string("not understood; give ") + dest_help);
      }
    });
  }

  // What the command does.
  void on(CLI::App* command, std::function<ExitCode()> run) {
    command->callback([this, run = std::move(run)] { action_ = run; });
  }

  // A command that asks about the newest state of the database.
  void ask(CLI::App* command, Query query) {
    on(command, [this, query = std::move(query)] {
      const Database database(database_, OpenMode::read);
      query(database, ReadSession(database));
      return exit_ok;
    });
  }

  uint32_t node() const { return static_cast<uint32_t>(*parse_number(node_)); }

  CLI::App app_{"Reads and writes the packet policy in a node database.", "qimctl"};
  std::function<int()> action_;

  // What commands are given.
  std::string database_;
  std::string node_;
  std::string text_;
  std::vector<std::string> dest_;
  std::string dir_ = "in";
  uint32_t type_ = 0;
  bool json_ = false;
  bool engine_ = false;
  bool is_text_ = false;
  ImportOptions import_;
  TreeOptions tree_;
  WatchOptions watch_;
};

}  // namespace

std::function<int()> read_command_line(int argc, const char* const* argv) {
  const auto line = std::make_shared<CommandLine>();
  return [line, action = line->read(argc, argv)] { return action(); };
}

}  // namespace qimctl
