#include "tools/commands/verbs.h"

#include <cstring>
#include <nlohmann/json.hpp>

#include "policy/base/dsetname.h"
#include "policy/base/names.h"
#include "tools/base/exit_code.h"
#include "tools/base/output.h"

namespace qimctl {

namespace {

constexpr const char* dest_help =
    "interface INDEX [vrf N] [vlan N] [vdc N], service ID [srv_def N] [srv_vdc N], or "
    "generic [vdc N] [v8 N] [v16a N] [v16b N] [v32a N] [v32b N]";

// A data-set name as 42 hexadecimal digits.
std::optional<qim_dsetname_t> name_from_hex(const std::string& text) {
  const std::optional<std::vector<uint8_t>> bytes = bytes_from_hex(text);
  qim_dsetname_t name;
  if (!bytes || bytes->size() != sizeof name) return std::nullopt;
  memcpy(&name, bytes->data(), sizeof name);
  return name;
}

std::string check_name(const std::string& text) {
  return name_from_hex(text) ? ""
                             : "'" + text + "' is no data-set name: give 42 hexadecimal digits";
}

// The command-line library takes -1 for the largest number.
std::string check_number(const std::string& text) {
  return parse_number(text) ? "" : "'" + text + "' is no number; give one, decimal or 0x...";
}

std::string check_name_or_selector(const std::string& text) {
  const std::optional<uint64_t> number = parse_number(text);
  if ((number && *number <= UINT32_MAX) || name_from_hex(text)) return "";
  return "'" + text + "' is neither a data set's number nor a name of 42 hexadecimal digits";
}

void print_parsed(const qim_dsetname_t& name, bool json) {
  qim_dsetname_t copy = name;
  qim_pinst_fields_t fields{};
  qim_pinst_from_dsetname(&fields, &copy);
  print(json ? dset_to_json(name).dump(2) + "\n" : dset_text(fields) + "\n");
}

}  // namespace

std::string check_node(const std::string& text) {
  const std::optional<uint64_t> id = parse_number(text);
  if (id && *id != 0 && *id <= UINT32_MAX) return "";
  return "'" + text +
         "' is no node identifier; give a number from 1 to 4294967295, decimal or 0x...";
}

Verbs::Verbs(CLI::App& app, const std::string& database, std::function<int()>& action)
    : app_(app), database_(database), action_(action) {}

void Verbs::add() {
  add_node_query(
      "refs", "List the nodes that refer to a node",
      [this](const ReadSession& session, uint32_t id) { print_referrers(session, id, json_); });
  add_node_query(
      "criteria", "Show a filter's criteria",
      [this](const ReadSession& session, uint32_t id) { print_criteria(session, id, json_); });
  add_node_query(
      "args", "Show the arguments of an action or default",
      [this](const ReadSession& session, uint32_t id) { print_args(session, id, json_); });
  add_edest();
  add_pinst();
  add_name();
  add_priv();
  add_watch();
}

void Verbs::add_node_query(const char* name, const char* help, Query query) {
  CLI::App* command = app_.add_subcommand(name, help);
  add_node_option(command, "NODE");
  add_json_option(command);
  command->callback([this, query] {
    action_ = [this, query] {
      return ask([&](const Database&, const ReadSession& session) { query(session, node()); });
    };
  });
}

void Verbs::add_edest() {
  CLI::App* command = app_.add_subcommand(
      "edest", "List where a policy instance is enforced, or look one destination up");
  add_node_option(command, "PINST");
  add_json_option(command);
  add_dest_option(command, false);
  command->callback([this] {
    action_ = [this] {
      if (dest_.empty()) {
        return ask([this](const Database&, const ReadSession& session) {
          print_edests(session, node(), json_);
        });
      }
      const qim_policy_dest_t at = dest();
      return ask([this, &at](const Database&, const ReadSession& session) {
        print_edest_at(session, node(), at, json_);
      });
    };
  });
}

void Verbs::add_pinst() {
  CLI::App* command =
      app_.add_subcommand("pinst", "Find the node of a data set, by its name or its number");
  command->add_option("NAME|SELECTOR", name_, "42 hexadecimal digits, or a number from 0")
      ->required()
      ->check(check_name_or_selector)
      ->type_name("");
  add_json_option(command);
  command->callback([this] {
    action_ = [this] {
      return ask([this](const Database&, const ReadSession& session) {
        // A name has more digits than any selector.
        const std::optional<qim_dsetname_t> name = name_from_hex(name_);
        if (name) {
          print_dset_named(session, *name, json_);
        } else {
          print_dset_at(session, static_cast<uint32_t>(*parse_number(name_)), json_);
        }
      });
    };
  });
}

void Verbs::add_name() {
  CLI::App* command = app_.add_subcommand("name", "Build and read data-set names");
  command->require_subcommand(1);
  CLI::App* build = command->add_subcommand("build", "Print the name of a destination");
  add_dest_option(build, true);
  build->add_option("--type", type_, "Policy type")->type_name("N");
  build->add_option("--dir", dir_, "Direction")
      ->check(CLI::IsMember({"in", "out"}))
      ->capture_default_str()
      ->type_name("DIR");
  add_json_option(build);
  build->callback([this] {
    action_ = [this] {
      qim_pinst_fields_t fields{};
      fields.dest = dest();
      fields.type = type_;
      fields.dir = dir_ == "in" ? uint8_t{QIM_DIR_IN} : uint8_t{2};
      qim_dsetname_t name{};
      qim_pinst_to_dsetname(&fields, &name);
      const std::string digits = hex_bytes(&name, sizeof name);
      print(json_ ? nlohmann::json(digits).dump() + "\n" : digits + "\n");
      return int{exit_ok};
    };
  });
  CLI::App* parse = command->add_subcommand("parse", "Say what a name stands for");
  parse->add_option("HEX", name_, "42 hexadecimal digits")
      ->required()
      ->check(check_name)
      ->type_name("");
  add_json_option(parse);
  parse->callback([this] {
    action_ = [this] {
      print_parsed(*name_from_hex(name_), json_);
      return int{exit_ok};
    };
  });
}

void Verbs::add_priv() {
  CLI::App* command = app_.add_subcommand("priv", "This tool's private data on a node");
  command->require_subcommand(1);
  CLI::App* get = command->add_subcommand("get", "Show them");
  add_node_option(get, "NODE");
  add_json_option(get);
  get->callback([this] {
    action_ = [this] {
      return ask([this](const Database&, const ReadSession& session) {
        print_private(session, node(), json_);
      });
    };
  });
  CLI::App* set = command->add_subcommand("set", "Replace them; no data takes them away");
  add_node_option(set, "NODE");
  set->add_flag("--text", text_, "DATA is text, not hexadecimal digits");
  set->add_option("DATA", data_, "The data, as hexadecimal digits")->type_name("");
  set->callback([this] {
    action_ = [this] {
      std::optional<std::vector<uint8_t>> bytes = bytes_from_hex(data_);
      if (text_) bytes.emplace(data_.begin(), data_.end());
      if (!bytes) {
        fprintf(stderr, "qimctl: '%s' are no hexadecimal digits; for text give --text\n",
                data_.c_str());
        return int{exit_usage};
      }
      return ask([this, &bytes](const Database&, const ReadSession& session) {
        set_private(session, node(), *bytes);
      });
    };
  });
}

void Verbs::add_watch() {
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
  command->callback([this] {
    action_ = [this] {
      const Database database(database_, OpenMode::read);
      watch_changes(database, watch_);
      return int{exit_ok};
    };
  });
}

void Verbs::add_node_option(CLI::App* command, const char* name) {
  command->add_option(name, node_, "Node identifier, decimal or 0x...")
      ->required()
      ->check(check_node)
      ->type_name("");
}

void Verbs::add_json_option(CLI::App* command) {
  command->add_flag("--json", json_, "Print JSON");
}

void Verbs::add_dest_option(CLI::App* command, bool required) {
  CLI::Option* option = command->add_option("DESTINATION", dest_, dest_help)->type_name("");
  option->required(required);
  // Checked as a whole: a word alone means nothing.
  command->parse_complete_callback([this, option] {
    if (option->count() != 0 && !dest_from_words(dest_)) {
      throw CLI::ValidationError("DESTINATION", std::string("not understood; give ") + dest_help);
    }
  });
}

int Verbs::ask(const std::function<void(const Database&, const ReadSession&)>& question) {
  const Database database(database_, OpenMode::read);
  const ReadSession session(database);
  question(database, session);
  return exit_ok;
}

uint32_t Verbs::node() const {
  return static_cast<uint32_t>(*parse_number(node_));
}

qim_policy_dest_t Verbs::dest() const {
  return *dest_from_words(dest_);
}

}  // namespace qimctl
