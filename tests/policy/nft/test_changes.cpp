// From what the kernel has to what it should have.
#include <gtest/gtest.h>

#include "policy/formats/nft/names.h"
#include "tests/policy/nft/nft_support.h"

namespace {

using namespace nft_test;
using qimctl::ActionType;
using qimctl::nft::Changes;
using qimctl::nft::changes;
using qimctl::nft::KernelTable;
using qimctl::nft::Ruleset;

size_t count(const std::string& text, const std::string& what) {
  size_t found = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) found++;
  return found;
}

Ruleset ruleset_of(const std::vector<std::string>& names) {
  std::vector<qimctl::Entry> entries;
  for (const std::string& name : names) {
    const ActionType type = name.back() == '!' ? ActionType::drop : ActionType::accept;
    entries.push_back(entry_of({{0x0500, {}}}, type,
                               name.back() == '!' ? name.substr(0, name.size() - 1) : name));
  }
  return qimctl::nft::translate(model_of({list_of(entries)})).ruleset;
}

// Does to a table what commands say, as far as rules of a chain go, and gives their labels.
std::vector<std::string> applied(const KernelTable& table, const std::string& commands) {
  std::vector<std::pair<uint64_t, std::string>> rules;
  for (const auto& chain : table.chains)
    if (chain.name == "lw.in")
      for (const auto& rule : chain.rules) rules.emplace_back(rule.handle, rule.tag);
  std::istringstream lines(commands);
  for (std::string line; std::getline(lines, line);) {
    if (line.find("\"chain\":\"lw.in\"") == std::string::npos) continue;
    const size_t at = line.find("\"handle\":");
    const uint64_t handle = at == std::string::npos ? 0 : std::stoull(line.substr(at + 9));
    auto place = std::find_if(rules.begin(), rules.end(),
                              [&](const auto& rule) { return rule.first == handle; });
    if (line.find("{\"delete\"") != std::string::npos) {
      rules.erase(place);
      continue;
    }
    const size_t tag = line.find("\"comment\":\"") + 11;
    const std::pair<uint64_t, std::string> made{0, line.substr(tag, line.find('"', tag) - tag)};
    // The library takes a handle with "insert" alone.
    EXPECT_EQ(line.find("{\"insert\"") != std::string::npos, handle != 0);
    rules.insert(handle != 0 ? place : rules.end(), made);
  }
  std::vector<std::string> labels;
  for (const auto& [handle, tag] : rules) labels.push_back(tag);
  return labels;
}

std::vector<std::string> wanted(const Ruleset& ruleset) {
  std::vector<std::string> tags;
  for (const auto& rule : find_chain(ruleset, "lw.in")->rules) tags.push_back(rule.tag);
  return tags;
}

TEST(NftChanges, OfNothingToEverything) {
  const Ruleset ruleset = ruleset_of({"a", "b"});
  const Changes todo = changes({}, ruleset);
  EXPECT_EQ(count(todo.commands, "{\"add\":{\"table\""), 1u);
  EXPECT_EQ(count(todo.commands, "{\"add\":{\"chain\""), ruleset.chains.size());
  EXPECT_EQ(count(todo.commands, "{\"add\":{\"rule\""), todo.added);
  EXPECT_EQ(todo.deleted, 0u);
}

TEST(NftChanges, OfTheSameAreNone) {
  const Ruleset ruleset = ruleset_of({"a", "b"});
  EXPECT_EQ(changes(table_of(ruleset), ruleset).commands, "");
}

TEST(NftChanges, OfEverythingToNothing) {
  const Ruleset ruleset = ruleset_of({"a"});
  const Changes todo = changes(table_of(ruleset), {});
  EXPECT_EQ(count(todo.commands, "{\"delete\":{\"chain\""), ruleset.chains.size());
  EXPECT_LT(todo.commands.rfind("{\"delete\":{\"rule\""),
            todo.commands.find("{\"delete\":{\"chain\""));
}

TEST(NftChanges, TouchOnlyWhatDiffers) {
  const KernelTable table = table_of(ruleset_of({"a", "b", "c", "d"}));
  const Changes todo = changes(table, ruleset_of({"a", "b!", "c", "d"}));
  EXPECT_EQ(todo.added, 1u);
  EXPECT_EQ(todo.deleted, 1u);
}

TEST(NftChanges, KeepTheOrder) {
  const std::vector<std::vector<std::string>> all = {{},
                                                     {"a"},
                                                     {"b", "a"},
                                                     {"a", "x", "y", "b", "c", "d"},
                                                     {"x", "y", "a", "b", "c", "d"},
                                                     {"a", "b", "c", "d", "x", "y"},
                                                     {"d", "c", "b", "a"},
                                                     {"c", "d", "a", "b"},
                                                     {"a!", "x", "c", "b", "y!"}};
  for (const auto& from : all) {
    for (const auto& to : all) {
      if (from.empty() || to.empty()) continue;
      const KernelTable table = table_of(ruleset_of(from));
      const Ruleset ruleset = ruleset_of(to);
      EXPECT_EQ(applied(table, changes(table, ruleset).commands), wanted(ruleset));
    }
  }
}

TEST(NftChanges, ReplaceChainsOfAnotherKindAndWhatIsNotOurs) {
  const Ruleset ruleset = ruleset_of({"a"});
  KernelTable table = table_of(ruleset);
  table.chains.back().is_base = false;
  table.chains.front().rules.push_back({77, "", false, 0, 0});
  table.limits.push_back("stale");
  const Changes todo = changes(table, ruleset);
  EXPECT_EQ(count(todo.commands, "{\"delete\":{\"chain\""), 1u);
  EXPECT_EQ(count(todo.commands, "{\"add\":{\"chain\""), 1u);
  EXPECT_EQ(count(todo.commands, "\"handle\":77"), 1u);
  EXPECT_EQ(count(todo.commands, "{\"delete\":{\"limit\""), 1u);
}

TEST(NftChanges, AddLimits) {
  qimctl::Entry entry = entry_of({});
  entry.policer = "gold";
  qimctl::Model model = model_of({list_of({entry})});
  model.policers.push_back({"gold", qimctl::Policer::Unit::packets, 10, 0, 0, 0});
  const Ruleset before = qimctl::nft::translate(model).ruleset;
  model.policers[0].unit = qimctl::Policer::Unit::bytes;
  const Ruleset after = qimctl::nft::translate(model).ruleset;
  const Changes todo = changes(table_of(before), after);
  EXPECT_EQ(count(todo.commands, "{\"add\":{\"limit\""), 1u);
  EXPECT_EQ(count(todo.commands, "{\"delete\":{\"limit\""), 1u);
  EXPECT_EQ(count(todo.commands, "\"rate_unit\":\"bytes\""), 1u);
}

TEST(NftCounts, OfAnEntryAreThoseOfAllItsRules) {
  KernelTable table = table_of(ruleset_of({"a", "b"}));
  for (auto& chain : table.chains)
    for (auto& rule : chain.rules) {
      rule.counts = chain.name.starts_with("l");
      rule.packets = 2;
      rule.bytes = 100;
    }
  table.chains.front().rules.push_back(table.chains.front().rules.front());
  const auto counts = qimctl::nft::counts_of(table);
  EXPECT_EQ(counts.at(qimctl::nft::entry_key("in", "a")).packets, 4u);
  EXPECT_EQ(counts.at(qimctl::nft::entry_key("in", "b")).bytes, 100u);
  EXPECT_FALSE(counts.contains(qimctl::nft::entry_key("in", "")));
}

}  // namespace
