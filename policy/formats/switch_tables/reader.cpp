// The tables of access lists, rules, types and policers.
#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <utility>

#include "policy/base/json_text.h"
#include "policy/base/names.h"
#include "policy/formats/parts/attachments.h"
#include "policy/formats/parts/list_builder.h"
#include "policy/formats/switch_tables/rule.h"
#include "policy/formats/switch_tables/switch_tables.h"

namespace qimctl {

namespace switch_tables {

namespace {

using formats::in_quotes;
using formats::ListBuilder;

constexpr std::string_view policers_table = "POLICER";

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return text;
}

// A list with its rules.
struct Table {
  std::string name;
  Value value;  // of the list, or else of its first rule
  bool is_here = false;
  Family family = Family::unknown;
  std::vector<std::pair<std::string, Value>> rules;
};

class Reader {
 public:
  explicit Reader(const std::string& file) : notes_(file) {}

  ModelInput read(JsonView document);

 private:
  std::vector<std::pair<std::string, Value>> rows(JsonView document, std::string_view table);
  void read_policer(const std::string& name, const Value& value);
  void read_policer_field(Policer& policer, const std::string& name, const Value& field);
  void read_table(const std::string& name, const Value& value);
  void add_rule(const std::string& key, const Value& value);
  void read_type(const std::string& name, const Value& value);
  void read_rules(const Table& table);
  void attach(const Table& table);
  bool is_name(const std::string& name, const Value& at);

  Notes notes_;
  formats::Interfaces interfaces_;
  formats::Attacher attacher_;
  ModelInput input_;
  std::vector<Table> tables_;
  std::map<std::string, Policer> policers_;
  std::set<std::string> policer_names_;
};

ModelInput Reader::read(JsonView document) {
  const bool is_known = document.find(switch_lists_table) || document.find(switch_rules_table) ||
                        document.find(switch_types_table);
  if (!is_known)
    throw InputError({notes_.file(), 1, ""},
                     "has neither a table " + in_quotes(switch_lists_table) + " nor " +
                         in_quotes(switch_rules_table) + " nor " + in_quotes(switch_types_table));
  for (const auto& [name, value] : rows(document, policers_table)) read_policer(name, value);
  for (const auto& [name, value] : rows(document, switch_lists_table)) read_table(name, value);
  for (const auto& [key, value] : rows(document, switch_rules_table)) add_rule(key, value);
  for (const auto& [name, value] : rows(document, switch_types_table)) read_type(name, value);
  for (const Table& table : tables_) read_rules(table);
  if (notes_.has_problems()) throw InputError(notes_.take_problems());
  std::set<std::string> used;
  for (const AccessList& list : input_.model.lists)
    for (const Entry& entry : list.entries) used.insert(entry.policer);
  for (const auto& [name, policer] : policers_)
    if (used.contains(name)) input_.model.policers.push_back(policer);
  input_.findings = std::move(notes_.findings());
  return std::move(input_);
}

// None, with a problem reported, when it is no table of objects.
std::vector<std::pair<std::string, Value>> Reader::rows(JsonView document, std::string_view table) {
  std::vector<std::pair<std::string, Value>> rows;
  const JsonView found = document.find(table);
  if (!found) return rows;
  if (!found.is_object()) {
    notes_.problem(Value{found}, std::string("must be an object, not ") + found.kind());
    return rows;
  }
  for (const auto& [name, row] : found.members()) {
    if (row.is_object()) {
      rows.emplace_back(name, Value{row});
    } else {
      notes_.problem(Value{row}, std::string("must be an object, not ") + row.kind());
    }
  }
  return rows;
}

bool Reader::is_name(const std::string& name, const Value& at) {
  const std::string obstacle = formats::name_obstacle(name, formats::longest_name);
  if (!obstacle.empty()) notes_.problem(at, "can't have its name, for " + obstacle);
  return obstacle.empty();
}

void Reader::read_policer(const std::string& name, const Value& value) {
  if (!is_name(name, value)) return;
  Policer policer;
  policer.name = name;
  for (const auto& [field, json] : value.json.members())
    read_policer_field(policer, lower(std::string(field)), {json});
  policer_names_.insert(name);
  policers_.emplace(name, std::move(policer));
}

void Reader::read_policer_field(Policer& policer, const std::string& name, const Value& field) {
  const std::string text = lower(text_of(field));
  uint64_t* number = name == "cir"   ? &policer.committed_rate
                     : name == "cbs" ? &policer.committed_burst
                     : name == "pir" ? &policer.peak_rate
                     : name == "pbs" ? &policer.peak_burst
                                     : nullptr;
  if (number != nullptr) {
    const auto value = parse_number(text);
    if (!value) return notes_.problem(field, in_quotes(text_of(field)) + " is not a whole number");
    *number = *value;
  } else if (name == "meter_type") {
    if (text != "bytes" && text != "packets")
      return notes_.problem(field, in_quotes(text_of(field)) + " is neither bytes nor packets");
    policer.unit = text == "bytes" ? Policer::Unit::bytes : Policer::Unit::packets;
  } else {
    const bool plain =
        name == "mode" || ((name == "color" || name == "color_source") && text == "blind") ||
        (name == "red_packet_action" && text == "drop") ||
        ((name == "green_packet_action" || name == "yellow_packet_action") && text == "forward");
    if (!plain)
      notes_.finding(Fate::approximated, field,
                     "the policer " + in_quotes(policer.name) + " is carried without " +
                         in_quotes(name) + " " + in_quotes(text_of(field)));
  }
}

void Reader::read_table(const std::string& name, const Value& value) {
  if (!is_name(name, value)) return;
  const JsonView type_field = value.json.find("type");
  const std::string type = type_field ? text_of({type_field}) : "";
  Table table{name, value, true, Family::unknown, {}};
  if (type == "L3") table.family = Family::ipv4;
  if (type == "L3V6") table.family = Family::ipv6;
  for (const auto& [field, json] : value.json.members()) {
    constexpr std::array<std::string_view, 5> known{"type", "stage", "ports", "ports@",
                                                    "policy_desc"};
    if (std::find(known.begin(), known.end(), field) == known.end())
      notes_.finding(Fate::skipped, Value{json},
                     in_quotes(field) + " is not known here and is left out");
  }
  tables_.push_back(std::move(table));
}

void Reader::add_rule(const std::string& key, const Value& value) {
  const size_t bar = key.find('|');
  if (bar == std::string::npos)
    return notes_.problem(value, "the key " + in_quotes(key) + " is not TABLE|RULE");
  const std::string name = key.substr(0, bar);
  const std::string rule = key.substr(bar + 1);
  if (!is_name(rule, value)) return;
  auto table = std::find_if(tables_.begin(), tables_.end(),
                            [&name](const Table& one) { return one.name == name; });
  if (table == tables_.end()) {
    if (!is_name(name, value)) return;
    notes_.finding(Fate::approximated, value,
                   "the table " + in_quotes(name) +
                       " of this rule is not in the file: a list without a type, attached nowhere");
    tables_.push_back({name, value, false, Family::unknown, {}});
    table = tables_.end() - 1;
  }
  table->rules.emplace_back(rule, value);
}

// What rules of a list may match on and do, they say themselves: a type decides no packet.
void Reader::read_type(const std::string& name, const Value& value) {
  const bool is_used = std::any_of(tables_.begin(), tables_.end(), [&name](const Table& table) {
    const JsonView type = table.value.json.find("type");
    return table.is_here && type && text_of({type}) == name;
  });
  if (is_used) {
    notes_.finding(Fate::accepted, value,
                   "the type " + in_quotes(name) + " says nothing that its lists do not");
  } else {
    notes_.finding(Fate::skipped, value,
                   "no list of the file is of the type " + in_quotes(name) + ": it is left out");
  }
}

// The highest priority first. What no rule matches is forwarded.
void Reader::read_rules(const Table& table) {
  std::vector<RuleReading> rules;
  for (const auto& [name, value] : table.rules) {
    rules.push_back(read_rule(notes_, interfaces_, value, table.family, policer_names_));
    rules.back().entry.name = name;
  }
  std::stable_sort(rules.begin(), rules.end(), [](const RuleReading& a, const RuleReading& b) {
    return a.priority > b.priority;
  });
  ListBuilder builder(
      notes_, {table.name, acl_type_unknown, {}, ActionType::accept, notes_.place(table.value)});
  for (RuleReading& rule : rules) builder.add(rule.entry, rule.choices, std::move(rule.obstacles));
  AccessList& list = builder.list();
  uint32_t bits = formats::headers_of(list.entries);
  if (table.family == Family::ipv4) bits |= acl_type_ipv4;
  if (table.family == Family::ipv6) bits |= acl_type_ipv6;
  list.type = formats::type_with(bits);
  builder.finish(input_);
  if (table.is_here) attach(table);
}

void Reader::attach(const Table& table) {
  uint8_t dir = QIM_DIR_IN;
  if (const JsonView stage = table.value.json.find("stage")) {
    const std::string text = lower(text_of({stage}));
    if (text == "egress") {
      dir = dir_out;
    } else if (text != "ingress") {
      notes_.problem(Value{stage}, in_quotes(text_of({stage})) + " is neither ingress nor egress");
    }
  }
  for (const char* name : {"ports", "ports@"}) {
    const Value ports{table.value.json.find(name)};
    if (!ports) continue;
    for (const std::string& port : list_of(notes_, ports)) {
      const std::string bad = formats::name_obstacle(port, std::string::npos);
      if (!bad.empty()) {
        notes_.problem(ports, "can't name an interface, for " + bad);
        continue;
      }
      interfaces_.index(notes_, port, ports);
      attacher_.attach(notes_, input_.model, {table.name, port, dir, 1, notes_.place(ports)});
    }
  }
}

}  // namespace

}  // namespace switch_tables

ModelInput read_switch_tables(const std::string& text, const std::string& file) {
  const JsonDocument document = parse_json(text, file);
  return switch_tables::Reader(file).read(document.view());
}

}  // namespace qimctl
