// The chains of the filter table as access lists.
#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "policy/base/names.h"
#include "policy/formats/iptables/iptables.h"
#include "policy/formats/iptables/rule.h"
#include "policy/formats/parts/attachments.h"
#include "policy/formats/parts/list_builder.h"

namespace qimctl {

namespace iptables {

namespace {

using formats::Choice;
using formats::in_quotes;
using formats::ListBuilder;

// Chains that jump to each other twice grow beyond all bounds.
constexpr size_t most_rules = 100000;

struct Chain {
  std::string name;
  std::optional<ActionType> policy;  // of a built-in one
  Place place;
  std::vector<Rule> rules;
};

std::optional<ActionType> action_of(const std::string& target) {
  if (target == "ACCEPT") return ActionType::accept;
  if (target == "DROP") return ActionType::drop;
  if (target == "REJECT") return ActionType::reject;
  return {};
}

bool is_logging(const Rule& rule) {
  return rule.target == "LOG" || rule.target == "NFLOG";
}

bool same_matches(const Rule& a, const Rule& b) {
  return std::equal(a.matches.begin(), a.matches.end(), b.matches.begin(), b.matches.end(),
                    [](const Choice& one, const Choice& other) {
                      return std::equal(
                          one.begin(), one.end(), other.begin(), other.end(),
                          [](const std::vector<Criterion>& x, const std::vector<Criterion>& y) {
                            return x[0].type == y[0].type && x[0].args == y[0].args;
                          });
                    });
}

class Reader {
 public:
  Reader(const std::string& file, const ReadOptions& options) : notes_(file), options_(options) {}

  ModelInput read(const std::string& text);

 private:
  void read_line(Line line);
  void read_chain(const Line& line);
  void read_list(const Chain& chain);
  void add_rules(const Chain& chain, const std::vector<Choice>& matches);
  // False when the rules behind it are never reached.
  bool add_rule(const Chain& chain, size_t number, std::vector<Choice> matches);
  void add_entry(const Chain& chain, const Rule& rule, std::vector<Choice> matches,
                 ActionType action);
  bool add_return(const Chain& chain, const Rule& rule, std::vector<Choice> matches);
  void add_jump(const Rule& rule, const std::vector<Choice>& matches);
  void add_log(const Chain& chain, size_t number);
  std::string jump_obstacle(const Rule& rule);
  void skip(const Rule& rule, const std::string& what);
  void attach(const Chain& chain, const std::vector<std::string>& interfaces, uint8_t dir);
  void attach_all();
  std::vector<std::string> interfaces_named(const Chain& chain, uint32_t type) const;
  std::string list_name(const Chain& chain) const {
    return is_ipv6_ ? chain.name + "-v6" : chain.name;
  }
  // A rule of a chain that several jump to is told of once.
  void tell(const Rule& rule, Fate fate, const std::string& what) {
    if (told_.insert(&rule).second) notes_.finding(fate, rule.place, what);
  }

  Notes notes_;
  const ReadOptions& options_;
  formats::Interfaces interfaces_;
  formats::Attacher attacher_;
  ModelInput input_;
  std::vector<Chain> chains_;
  std::map<std::string, size_t> numbers_;  // of chains by name
  bool is_ipv6_ = false;

  // Of the list that is read.
  ListBuilder* builder_ = nullptr;
  std::vector<const Chain*> path_;  // of the chains that are jumped through
  bool log_next_ = false;
  size_t rules_ = 0;  // with those that are jumped to, each time
  std::set<const Rule*> told_;
  std::set<std::string> jumped_to_;
};

ModelInput Reader::read(const std::string& text) {
  FilterTable table = filter_table(notes_, text);
  is_ipv6_ = table.is_ipv6 || std::any_of(table.lines.begin(), table.lines.end(), speaks_ipv6);
  for (Line& line : table.lines) read_line(std::move(line));
  if (!notes_.has_problems())
    for (const Chain& chain : chains_)
      if (chain.policy) read_list(chain);
  if (!notes_.has_problems()) attach_all();
  for (const Chain& chain : chains_)
    if (!chain.policy && !jumped_to_.contains(chain.name))
      notes_.finding(Fate::accepted, chain.place,
                     "the chain " + in_quotes(chain.name) + " decides nothing: none jumps to it");
  if (notes_.has_problems()) throw InputError(notes_.take_problems());
  input_.findings = std::move(notes_.findings());
  return std::move(input_);
}

void Reader::read_line(Line line) {
  if (line.words[0].starts_with(':')) return read_chain(line);
  if (line.words[0].starts_with('[') && line.words.size() > 1) {  // counters
    line.words.erase(line.words.begin());
    line.text.erase(0, line.text.find("-A") == std::string::npos ? 0 : line.text.find("-A"));
  }
  if (line.words[0] != "-A" || line.words.size() < 2)
    return notes_.problem(line.place, "is neither \":CHAIN POLICY\" nor \"-A CHAIN ...\"");
  const auto chain = numbers_.find(line.words[1]);
  if (chain == numbers_.end())
    return notes_.problem(line.place,
                          "there is no chain " + in_quotes(line.words[1]) + " in this table");
  chains_[chain->second].rules.push_back(read_rule(notes_, interfaces_, line, is_ipv6_));
}

void Reader::read_chain(const Line& line) {
  const std::string name = line.words[0].substr(1);
  const std::string obstacle = formats::name_obstacle(name, formats::longest_name - 3);
  if (!obstacle.empty()) return notes_.problem(line.place, "can't be a chain, for " + obstacle);
  const std::string policy = line.words.size() > 1 ? line.words[1] : "";
  const bool known = policy == "-" || policy == "ACCEPT" || policy == "DROP";
  if (!known)
    return notes_.problem(line.place, in_quotes(policy) +
                                          " is no policy; use ACCEPT or DROP, or "
                                          "- for a chain that is no built-in one");
  if (!numbers_.emplace(name, chains_.size()).second)
    return notes_.problem(line.place, "the chain " + in_quotes(name) + " comes twice");
  chains_.push_back({name, action_of(policy), line.place, {}});
}

void Reader::read_list(const Chain& chain) {
  ListBuilder builder(
      notes_,
      {list_name(chain), is_ipv6_ ? acl_type_ipv6 : acl_type_ipv4, {}, *chain.policy, chain.place});
  builder_ = &builder;
  add_rules(chain, {});
  builder.finish(input_);
}

void Reader::add_rules(const Chain& chain, const std::vector<Choice>& matches) {
  path_.push_back(&chain);
  log_next_ = false;
  for (size_t i = 0; i < chain.rules.size(); i++) {
    std::vector<Choice> both = matches;
    both.insert(both.end(), chain.rules[i].matches.begin(), chain.rules[i].matches.end());
    if (!add_rule(chain, i, std::move(both))) break;
  }
  path_.pop_back();
}

bool Reader::add_rule(const Chain& chain, size_t number, std::vector<Choice> matches) {
  const Rule& rule = chain.rules[number];
  if (++rules_ > most_rules) {
    if (rules_ == most_rules + 1)
      notes_.problem(rule.place, "the chains come to more than " + std::to_string(most_rules) +
                                     " rules; jump to fewer of them");
    return false;
  }
  if (const auto action = action_of(rule.target)) {
    add_entry(chain, rule, std::move(matches), *action);
  } else if (rule.target == "RETURN") {
    return add_return(chain, rule, std::move(matches));
  } else if (rule.target.empty()) {
    tell(rule, Fate::accepted, "the rule only counts packets and is no entry");
  } else if (is_logging(rule)) {
    add_log(chain, number);
  } else if (numbers_.contains(rule.target)) {
    add_jump(rule, matches);
  } else {
    skip(rule, "the target " + in_quotes(rule.target));
  }
  return true;
}

void Reader::skip(const Rule& rule, const std::string& what) {
  Entry entry;
  entry.name = rule.name;
  entry.place = rule.place;
  if (told_.insert(&rule).second) builder_->add(entry, {}, {{rule.place, what}});
}

void Reader::add_entry(const Chain& chain, const Rule& rule, std::vector<Choice> matches,
                       ActionType action) {
  Entry entry;
  entry.name = path_.size() > 1 ? chain.name + ": " + rule.name : rule.name;
  entry.place = rule.place;
  entry.forwarding = action;
  entry.log = std::exchange(log_next_, false);
  matches.push_back({{{is_ipv6_ ? formats::ipv6_codes.header : formats::ipv4_codes.header, {}}}});
  const bool resets = std::any_of(
      rule.options.begin(), rule.options.end(),
      [](const std::string& option) { return option.find("tcp-reset") != std::string::npos; });
  if (resets)
    tell(rule, Fate::approximated,
         "rejects with an ICMP error, as every entry here that rejects, and not by TCP");
  builder_->add(entry, matches, {});
}

// From a built-in chain to its policy, from others to the chain that jumped there.
bool Reader::add_return(const Chain& chain, const Rule& rule, std::vector<Choice> matches) {
  if (chain.policy) add_entry(chain, rule, std::move(matches), *chain.policy);
  return !rule.matches.empty();
}

void Reader::add_log(const Chain& chain, size_t number) {
  const Rule& rule = chain.rules[number];
  log_next_ = number + 1 < chain.rules.size() && action_of(chain.rules[number + 1].target) &&
              same_matches(rule, chain.rules[number + 1]);
  if (!log_next_)
    return tell(rule, Fate::skipped,
                "logging left out: entries log what they decide, and the next rule does not decide "
                "the same packets");
  if (!rule.options.empty())
    tell(rule, Fate::approximated,
         "the next rule logs, without " + in_quotes(rule.options.front()));
}

std::string Reader::jump_obstacle(const Rule& rule) {
  const Chain& chain = chains_[numbers_.at(rule.target)];
  if (rule.is_goto) return "a goto";
  for (const Rule& inner : chain.rules)
    if (inner.target == "RETURN" && !inner.matches.empty())
      return "a jump to " + in_quotes(chain.name) + ", which some packets return from (" +
             to_string(inner.place) + ")";
  return "";
}

void Reader::add_jump(const Rule& rule, const std::vector<Choice>& matches) {
  const Chain& chain = chains_[numbers_.at(rule.target)];
  jumped_to_.insert(chain.name);
  if (chain.policy)
    return notes_.problem(rule.place, "jumps to the built-in chain " + in_quotes(chain.name));
  if (std::find(path_.begin(), path_.end(), &chain) != path_.end())
    return notes_.problem(rule.place, "jumps in a circle, to " + in_quotes(chain.name));
  const std::string obstacle = jump_obstacle(rule);
  if (!obstacle.empty()) return skip(rule, obstacle);
  add_rules(chain, matches);
}

std::vector<std::string> Reader::interfaces_named(const Chain& chain, uint32_t type) const {
  std::vector<std::string> names;
  for (const Rule& rule : chain.rules) {
    for (const Choice& choice : rule.matches) {
      const Criterion& criterion = choice.empty() ? Criterion() : choice[0][0];
      if (criterion.type != type) continue;
      const std::string name(criterion.args.begin() + 4, criterion.args.end());
      const bool known = std::find(names.begin(), names.end(), name) != names.end();
      if (!known && name != "lo") names.push_back(name);
    }
  }
  return names;
}

void Reader::attach(const Chain& chain, const std::vector<std::string>& interfaces, uint8_t dir) {
  for (const std::string& interface : interfaces) {
    interfaces_.index(notes_, interface, chain.place);
    attacher_.attach(notes_, input_.model, {list_name(chain), interface, dir, 1, chain.place});
  }
}

// A built-in chain is about what comes to this host or leaves it by any interface, a list about what
// passes the interface that it is attached to.
void Reader::attach_all() {
  const auto forward = numbers_.find("FORWARD");
  const bool passes =
      forward != numbers_.end() && (chains_[forward->second].policy != ActionType::drop ||
                                    !chains_[forward->second].rules.empty());
  for (const Chain& chain : chains_) {
    const bool idle = chain.rules.empty() && chain.policy == ActionType::accept;
    if (!chain.policy || idle) continue;
    const std::string list = "the list " + in_quotes(list_name(chain));
    if (chain.name != "INPUT" && chain.name != "OUTPUT") {
      if (!chain.rules.empty())
        notes_.finding(Fate::skipped, chain.place,
                       list +
                           " is attached nowhere: it is about packets from one interface to "
                           "another");
      continue;
    }
    const bool in = chain.name == "INPUT";
    if (!options_.interface.empty()) {
      attach(chain, {options_.interface}, in ? uint8_t{QIM_DIR_IN} : dir_out);
      if (passes)
        notes_.finding(Fate::approximated, chain.place,
                       list + " is asked at " + options_.interface +
                           " about packets that only pass through this host, too");
      continue;
    }
    const std::vector<std::string> named = interfaces_named(
        chain, in ? formats::code_ingress_interface : formats::code_egress_interface);
    attach(chain, named, in ? uint8_t{QIM_DIR_IN} : dir_out);
    if (named.empty()) {
      notes_.finding(Fate::skipped, chain.place,
                     list +
                         " is attached nowhere, for it is about every interface; --interface "
                         "says where");
    } else {
      notes_.finding(Fate::approximated, chain.place,
                     list + " is about every interface, and attached to " +
                         counted(named.size(), "interface") + " that its rules name");
    }
  }
}

}  // namespace

}  // namespace iptables

bool has_filter_table(const std::string& text) {
  constexpr std::string_view line = "\n*filter";
  if (text.starts_with(line.substr(1))) return true;
  // Stars are rare, ends of lines are not.
  for (size_t at = text.find('*', 1); at != std::string::npos; at = text.find('*', at + 1))
    if (text.compare(at - 1, line.size(), line) == 0) return true;
  return false;
}

ModelInput read_iptables(const std::string& text, const std::string& file,
                         const ReadOptions& options) {
  return iptables::Reader(file, options).read(text);
}

}  // namespace qimctl
