// Lists and attachments as chains.
#include "policy/formats/nft/ruleset.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "policy/base/text.h"
#include "policy/formats/nft/chunks.h"
#include "policy/formats/nft/conditions.h"
#include "policy/formats/nft/expressions.h"
#include "policy/formats/nft/names.h"
#include "policy/formats/nft/sorting.h"
#include "policy/trace/evaluate.h"

namespace qimctl::nft {

namespace {

// What a name may have that stands in front of a message in the kernel's log.
constexpr size_t longest_prefix = 120;
constexpr uint64_t nanoseconds = 1000000000;

// An interface and direction with its lists.
struct PlaceLists {
  std::string interface;
  bool egress = false;
  Lists lists;
};

struct ListUse {
  bool ingress = false;
  bool egress = false;
};

// The chains of a list, by kind of packets; "" = none, for nothing in it can match these.
using ListChains = std::array<std::string, std::size(kinds)>;

class Translator {
 public:
  explicit Translator(const Model& model) : model_(model) {}

  Translation run() {
    std::vector<PlaceLists> places = find_places();
    for (const PlaceLists& place : places) {
      for (const AccessList* list : place.lists) {
        ListUse& use = uses_[list->name];
        (place.egress ? use.egress : use.ingress) = true;
      }
    }
    for (const AccessList& list : model_.lists)
      if (uses_.contains(list.name)) add_list(list);
    for (const PlaceLists& place : places) add_place(place);
    return std::move(result_);
  }

 private:
  std::vector<PlaceLists> find_places() {
    std::vector<PlaceLists> places;
    std::set<std::pair<std::string, bool>> seen;
    for (const Attachment& attachment : model_.attachments) {
      const bool egress = attachment.dir != QIM_DIR_IN;
      if (find_list(model_, attachment.list) == nullptr) {
        refuse(attachment_text(attachment), "there is no access list " + quoted(attachment.list));
        continue;
      }
      if (!seen.insert({attachment.interface, egress}).second) continue;
      const InterfaceName name = interface_name(attachment.interface);
      if (name != InterfaceName::possible) {
        refuse(attachment_text(attachment),
               name == InterfaceName::impossible
                   ? "the kernel has no interface of such a name"
                   : "the packet filter could take such a name for something else");
        continue;
      }
      places.push_back(
          {attachment.interface, egress, lists_at(model_, attachment.interface, attachment.dir)});
    }
    return places;
  }

  void refuse(const std::string& where, const std::string& what) {
    result_.refusals.push_back({where, what});
  }

  void add_chain(Chain chain) {
    if (!names_.insert(chain.name).second)
      refuse(chain.name, "two access lists, or interfaces, come to this one chain");
    result_.ruleset.chains.push_back(std::move(chain));
  }

  void add_list(const AccessList& list) {
    const ListUse use = uses_[list.name];
    std::vector<EntryConditions> conditions;
    conditions.reserve(list.entries.size());
    for (const Entry& entry : list.entries) {
      conditions.emplace_back(entry, use.ingress, use.egress);
      const std::string where = list.name + '/' + entry.name;
      if (!conditions.back().obstacle().empty()) refuse(where, conditions.back().obstacle());
      if (entry.forwarding == ActionType::reject && use.egress)
        refuse(where, "reject of packets that leave");
      if (!entry.policer.empty()) add_policer(where, entry.policer);
    }
    for (const EntryConditions& each : conditions)
      depths_[list.name].add({each.wants_tcp_options(), each.icmp_bytes()});
    ListChains& chains = chains_[list.name];
    for (const Kind kind : kinds) chains[index(kind)] = add_list_chain(list, conditions, kind);
  }

  static size_t index(Kind kind) { return static_cast<size_t>(kind); }

  std::string add_list_chain(const AccessList& list, const std::vector<EntryConditions>& conditions,
                             Kind kind) {
    std::vector<EntryRules> all;
    std::set<std::string> closed;  // the headers of which nothing more can be said
    for (size_t i = 0; i < conditions.size(); i++) {
      Asked asked = conditions[i].ask(kind);
      if (asked.answer == Answer::no) continue;
      const Entry& entry = list.entries[i];
      if (asked.answer == Answer::yes) {
        EntryRules made{entry_key(list.name, entry.name), {}, conditions[i].spans()};
        add_rules(made.rules, list, entry, asked.matches);
        all.push_back(std::move(made));
        continue;
      }
      const std::string header = kind == Kind::unsure_l3 ? "" : conditions[i].network_text();
      if (!closed.insert(header).second) continue;
      all.push_back({"", {}, {}});
      add_barrier(all.back().rules, list, entry, header);
      if (closed.contains("")) break;
    }
    if (all.empty()) return "";
    std::string name = std::string("l") + kind_letters[index(kind)] + '.' + plain(list.name);
    std::vector<Chain> chains;
    add_in_pieces(chains, name, std::move(all));
    for (Chain& chain : chains) add_chain(std::move(chain));
    return name;
  }

  static void add_rule(std::vector<Rule>& rules, const std::string& key, const std::string& label,
                       const std::vector<std::string>& all) {
    const std::string text = expressions(all);
    rules.push_back({rule_tag(key, text, label), text});
  }

  // What can't be told is dropped.
  static void add_barrier(std::vector<Rule>& rules, const AccessList& list, const Entry& entry,
                          const std::string& header) {
    std::vector<std::string> all;
    if (!header.empty()) all.push_back(equal(meta("protocol"), '"' + header + '"'));
    all.push_back(counter());
    all.push_back(verdict("drop"));
    add_rule(rules, hash_text(mix(hash_seed, "cannot tell" + header)),
             "cannot tell: " + list.name + '/' + entry.name, all);
  }

  static std::string forwarding(ActionType type) {
    if (type == ActionType::accept) return verdict("accept");
    return type == ActionType::drop ? verdict("drop") : reject();
  }

  void add_rules(std::vector<Rule>& rules, const AccessList& list, const Entry& entry,
                 const std::vector<std::string>& matches) {
    const std::string label = list.name + '/' + entry.name;
    const std::string key = entry_key(list.name, entry.name);
    std::vector<std::string> logged;
    if (entry.log) logged.push_back(log("qim " + ascii(label, longest_prefix) + ": "));
    if (!entry.policer.empty() && entry.forwarding == ActionType::accept) {
      for (const std::string& limit : limits_[entry.policer]) {
        std::vector<std::string> all = matches;
        all.push_back(over_limit(limit));
        all.push_back(counter());
        all.insert(all.end(), logged.begin(), logged.end());
        all.push_back(verdict("drop"));
        add_rule(rules, key, "over the limit: " + label, all);
      }
    }
    std::vector<std::string> all = matches;
    all.push_back(counter());
    all.insert(all.end(), logged.begin(), logged.end());
    all.push_back(forwarding(entry.forwarding));
    add_rule(rules, key, label, all);
  }

  void add_policer(const std::string& where, const std::string& name) {
    const Policer* policer = find_policer(model_, name);
    if (policer == nullptr) return refuse(where, "there is no policer " + quoted(name));
    if (limits_.contains(name)) return;
    std::vector<std::string>& limits = limits_[name];
    add_limit(limits, where, *policer, "c.", policer->committed_rate, policer->committed_burst);
    add_limit(limits, where, *policer, "p.", policer->peak_rate, policer->peak_burst);
  }

  void add_limit(std::vector<std::string>& limits, const std::string& where, const Policer& policer,
                 const char* prefix, uint64_t rate, uint64_t burst) {
    if (rate == 0) return;
    const bool bytes = policer.unit == Policer::Unit::bytes;
    const uint64_t largest = bytes ? UINT64_MAX / nanoseconds - UINT32_MAX : nanoseconds;
    if (rate > largest || burst > UINT32_MAX)
      return refuse(where, "the policer " + quoted(policer.name) +
                               ": such a rate or burst is more than the kernel counts");
    Limit limit;
    const std::string what =
        std::to_string(rate) + ' ' + std::to_string(burst) + (bytes ? "b" : "");
    limit.name = prefix + plain(policer.name) + '.' + hash_text(mix(hash_seed, what));
    limit.rate = rate;
    limit.burst = burst;
    limit.bytes = bytes;
    limits.push_back(limit.name);
    result_.ruleset.limits.push_back(std::move(limit));
  }

  void add_place(const PlaceLists& place) {
    const std::string direction = place.egress ? "out" : "in";
    const std::string name = direction + '.' + plain(place.interface);
    const AccessList& last = *place.lists.back();
    if (last.default_action == ActionType::reject && place.egress)
      refuse(last.name, "reject, by default, of packets that leave");
    Targets targets;
    for (const Kind kind : kinds) {
      Chain chain;
      chain.name = direction + kind_letters[index(kind)] + '.' + plain(place.interface);
      for (const AccessList* list : place.lists) {
        const std::string& to = chains_[list->name][index(kind)];
        if (to.empty()) continue;
        add_rule(chain.rules, entry_key("", list->name), "asks " + list->name, {jump(to)});
      }
      add_rule(chain.rules, entry_key(last.name, ""), "default of " + last.name,
               {counter(), forwarding(last.default_action)});
      targets.of[index(kind)] = chain.name;
      add_chain(std::move(chain));
    }
    Depth depth;
    for (const AccessList* list : place.lists) depth.add(depths_[list->name]);
    std::vector<Chain> sorting;
    add_sorting(sorting, place.interface, place.egress, name, targets, depth);
    for (Chain& chain : sorting) add_chain(std::move(chain));
  }

  const Model& model_;
  Translation result_;
  std::set<std::string> names_;
  std::map<std::string, ListUse> uses_;
  std::map<std::string, ListChains> chains_;
  std::map<std::string, Depth> depths_;
  std::map<std::string, std::vector<std::string>> limits_;
};

}  // namespace

Translation translate(const Model& model) {
  return Translator(model).run();
}

}  // namespace qimctl::nft
