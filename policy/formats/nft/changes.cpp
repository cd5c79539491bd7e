// The fewest commands from what the kernel has to what it should have.
//
// All take effect together, in the order in which they stand: rules are deleted first, so that nothing
// jumps to a chain or uses a limit that goes; chains and limits come before what uses them.
#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "policy/formats/nft/commands.h"
#include "policy/formats/nft/kernel_table.h"

namespace qimctl::nft {

namespace {

using Tags = std::unordered_map<std::string_view, size_t>;

// Of the rules that are in both, as many as stand in the same order: by index of the wanted ones, the
// index of the one that is there, or `none`.
constexpr size_t none = SIZE_MAX;
std::vector<size_t> kept_rules(const KernelChain& there, const Chain& wanted) {
  Tags places;
  for (size_t i = 0; i < there.rules.size(); i++) places.emplace(there.rules[i].tag, i);
  std::vector<size_t> found(wanted.rules.size(), none);
  std::vector<size_t> ends;  // the wanted rule in which the best sequence of each length ends
  std::vector<size_t> before(wanted.rules.size(), none);
  for (size_t i = 0; i < wanted.rules.size(); i++) {
    const auto place = places.find(wanted.rules[i].tag);
    if (place == places.end()) continue;
    found[i] = place->second;
    const auto end =
        std::lower_bound(ends.begin(), ends.end(), found[i],
                         [&found](size_t rule, size_t value) { return found[rule] < value; });
    if (end != ends.begin()) before[i] = *(end - 1);
    if (end == ends.end()) {
      ends.push_back(i);
    } else {
      *end = i;
    }
  }
  std::vector<size_t> kept(wanted.rules.size(), none);
  for (size_t i = ends.empty() ? none : ends.back(); i != none; i = before[i]) kept[i] = found[i];
  return kept;
}

class Comparison {
 public:
  Comparison(const KernelTable& there, const Ruleset& wanted) : there_(there), wanted_(wanted) {}

  Changes run() {
    if (!there_.is_there) commands_.add_table();
    match_chains();
    for (const KernelChain& chain : there_.chains) delete_rules(chain);
    for (const KernelChain& chain : there_.chains)
      if (!wanted_chains_.contains(chain.name)) commands_.delete_chain(chain.name);
    compare_limits();
    for (const Chain& chain : wanted_.chains)
      if (!kept_.contains(chain.name)) commands_.add_chain(chain);
    for (const Chain& chain : wanted_.chains) add_rules(chain);
    if (commands_.count() != 0) result_.commands = commands_.take();
    return std::move(result_);
  }

 private:
  // The name of a base chain tells its device.
  static bool is_same(const KernelChain& there, const Chain& wanted) {
    return there.is_base == !wanted.device.empty() && there.egress == wanted.egress;
  }

  void match_chains() {
    for (const KernelChain& chain : there_.chains) there_chains_[chain.name] = &chain;
    for (const Chain& chain : wanted_.chains) {
      const auto there = there_chains_.find(chain.name);
      if (there == there_chains_.end() || !is_same(*there->second, chain)) continue;
      wanted_chains_.insert(chain.name);
      kept_[chain.name] = kept_rules(*there->second, chain);
    }
  }

  void delete_rules(const KernelChain& chain) {
    std::unordered_set<size_t> stay;
    const auto kept = kept_.find(chain.name);
    if (kept != kept_.end()) stay.insert(kept->second.begin(), kept->second.end());
    for (size_t i = 0; i < chain.rules.size(); i++) {
      if (stay.contains(i)) continue;
      commands_.delete_rule(chain.name, chain.rules[i].handle);
      result_.deleted++;
    }
  }

  void compare_limits() {
    std::unordered_set<std::string_view> there(there_.limits.begin(), there_.limits.end());
    std::unordered_set<std::string_view> wanted;
    for (const Limit& limit : wanted_.limits) wanted.insert(limit.name);
    for (const std::string& limit : there_.limits)
      if (!wanted.contains(limit)) commands_.delete_limit(limit);
    for (const Limit& limit : wanted_.limits)
      if (!there.contains(limit.name)) commands_.add_limit(limit);
  }

  // Each stands in front of the next one that stays.
  void add_rules(const Chain& chain) {
    const auto kept = kept_.find(chain.name);
    size_t begin = 0;  // of those that come
    for (size_t i = 0; kept != kept_.end() && i < chain.rules.size(); i++) {
      if (kept->second[i] == none) continue;
      const uint64_t next = there_chains_.at(chain.name)->rules[kept->second[i]].handle;
      for (; begin < i; begin++, result_.added++)
        commands_.insert_rule(chain.name, chain.rules[begin], next);
      begin = i + 1;
    }
    for (; begin < chain.rules.size(); begin++, result_.added++)
      commands_.append_rule(chain.name, chain.rules[begin]);
  }

  const KernelTable& there_;
  const Ruleset& wanted_;
  Changes result_;
  Commands commands_;
  std::unordered_map<std::string_view, const KernelChain*> there_chains_;
  std::unordered_set<std::string_view> wanted_chains_;  // that are there and stay
  std::unordered_map<std::string_view, std::vector<size_t>> kept_;
};

}  // namespace

Changes changes(const KernelTable& there, const Ruleset& wanted) {
  return Comparison(there, wanted).run();
}

}  // namespace qimctl::nft
