// Rulesets for tests.
#include "tests/policy/nft/nft_support.h"

#include <utility>

namespace nft_test {

using qimctl::nft::Chain;
using qimctl::nft::Ruleset;

qimctl::AccessList list_of(std::vector<qimctl::Entry> entries, const std::string& name) {
  qimctl::AccessList list;
  list.name = name;
  list.entries = std::move(entries);
  return list;
}

qimctl::Entry entry_of(std::vector<qimctl::Criterion> criteria, qimctl::ActionType forwarding,
                       const std::string& name) {
  qimctl::Entry entry;
  entry.name = name;
  entry.criteria = std::move(criteria);
  entry.forwarding = forwarding;
  return entry;
}

qimctl::Model model_of(std::vector<qimctl::AccessList> lists, bool egress) {
  qimctl::Model model;
  uint32_t stage = 0;
  for (const qimctl::AccessList& list : lists)
    model.attachments.push_back(
        {list.name, "eth0", egress ? qimctl::dir_out : uint8_t{QIM_DIR_IN}, ++stage, {}});
  model.lists = std::move(lists);
  return model;
}

const Chain* find_chain(const Ruleset& ruleset, const std::string& name) {
  for (const Chain& chain : ruleset.chains)
    if (chain.name == name) return &chain;
  return nullptr;
}

std::vector<std::string> rules_of(const Ruleset& ruleset, const std::string& chain) {
  std::vector<std::string> rules;
  const Chain* found = find_chain(ruleset, chain);
  if (found == nullptr) return rules;
  for (const qimctl::nft::Rule& rule : found->rules) rules.push_back(rule.expressions);
  return rules;
}

std::string matches_of(const std::vector<qimctl::Criterion>& criteria, const std::string& kind) {
  const auto made = qimctl::nft::translate(model_of({list_of({entry_of(criteria)})}));
  EXPECT_TRUE(made.refusals.empty());
  const std::vector<std::string> rules = rules_of(made.ruleset, kind + ".in");
  if (rules.empty()) return "";
  const std::string& rule = rules.front();
  return rule.substr(1, rule.find(R"({"counter")") - 1);
}

std::string refusal_of(const std::vector<qimctl::Criterion>& criteria, bool egress) {
  const auto made = qimctl::nft::translate(model_of({list_of({entry_of(criteria)})}, egress));
  return made.refusals.empty() ? "" : made.refusals[0].where + ": " + made.refusals[0].what;
}

qimctl::nft::KernelTable table_of(const Ruleset& ruleset) {
  qimctl::nft::KernelTable table;
  table.is_there = true;
  uint64_t handle = 0;
  for (const qimctl::nft::Limit& limit : ruleset.limits) table.limits.push_back(limit.name);
  for (const Chain& chain : ruleset.chains) {
    qimctl::nft::KernelChain there;
    there.name = chain.name;
    there.is_base = !chain.device.empty();
    there.egress = chain.egress;
    for (const qimctl::nft::Rule& rule : chain.rules)
      there.rules.push_back({++handle, rule.tag, true, 0, 0});
    table.chains.push_back(std::move(there));
  }
  return table;
}

}  // namespace nft_test
