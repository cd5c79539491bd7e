// Lists, places, limits and defaults as chains.
#include <gtest/gtest.h>

#include "policy/base/json_text.h"
#include "policy/formats/any/any.h"
#include "tests/policy/nft/nft_support.h"

namespace {

using namespace nft_test;
using qimctl::ActionType;
using qimctl::nft::translate;
using qimctl::nft::Translation;

std::string only_refusal(const Translation& made) {
  if (made.refusals.size() != 1) return std::to_string(made.refusals.size()) + " refusals";
  return made.refusals[0].where + ": " + made.refusals[0].what;
}

TEST(NftRuleset, ListsAreAskedInTheOrderOfStagesAndTheLastDefaultDecides) {
  qimctl::Model model = model_of({list_of({entry_of({})}, "b"), list_of({entry_of({})}, "a")});
  model.lists[1].default_action = ActionType::accept;
  model.attachments[0].stage = 5;
  model.attachments[1].stage = 2;
  const auto made = translate(model);
  const auto rules = rules_of(made.ruleset, "inw.eth0");
  ASSERT_EQ(rules.size(), 3u);
  EXPECT_EQ(rules[0], R"([{"jump":{"target":"lw.a"}}])");
  EXPECT_EQ(rules[1], R"([{"jump":{"target":"lw.b"}}])");
  EXPECT_EQ(rules[2], R"([{"counter":{"packets":0,"bytes":0}},{"drop":null}])");
}

TEST(NftRuleset, EachPlaceHasABaseChain) {
  qimctl::Model model = model_of({list_of({entry_of({})})});
  model.attachments.push_back({"in", "eth0", qimctl::dir_out, 1, {}});
  model.attachments.push_back({"in", "eth1.5", QIM_DIR_IN, 1, {}});
  model.lists.push_back(list_of({entry_of({{0x4711, {}}})}, "attached nowhere"));
  const auto made = translate(model);
  EXPECT_TRUE(made.refusals.empty());
  for (const auto& [name, device, egress] : {std::tuple("in.eth0", "eth0", false),
                                             {"out.eth0", "eth0", true},
                                             {"in.eth1.5", "eth1.5", false}}) {
    const auto* chain = find_chain(made.ruleset, name);
    ASSERT_NE(chain, nullptr) << name;
    EXPECT_EQ(chain->device, device);
    EXPECT_EQ(chain->egress, egress);
  }
  EXPECT_EQ(find_chain(made.ruleset, "lw.attached_20nowhere"), nullptr);
}

TEST(NftRuleset, ActionsAndLogs) {
  qimctl::Entry logged = entry_of({}, ActionType::reject, "a\"\n");
  logged.log = true;
  const auto made = translate(model_of({list_of({entry_of({}, ActionType::drop, "d"), logged})}));
  const auto rules = rules_of(made.ruleset, "lw.in");
  EXPECT_EQ(rules[0], R"([{"counter":{"packets":0,"bytes":0}},{"drop":null}])");
  EXPECT_EQ(rules[1], R"([{"counter":{"packets":0,"bytes":0}},{"log":{"prefix":"qim in/a??: "}},)"
                      R"({"reject":{"type":"icmpx","expr":"admin-prohibited"}}])");
}

TEST(NftRuleset, WhatPacketsThatLeaveCannotHave) {
  qimctl::Model model = model_of({list_of({entry_of({}, ActionType::reject)})}, true);
  EXPECT_EQ(only_refusal(translate(model)), "in/e: reject of packets that leave");
  model.lists[0].entries.clear();
  model.lists[0].default_action = ActionType::reject;
  EXPECT_EQ(only_refusal(translate(model)), "in: reject, by default, of packets that leave");
}

TEST(NftRuleset, PolicersAreLimitsThatComeFirst) {
  qimctl::Entry entry = entry_of({});
  entry.policer = "gold";
  qimctl::Entry dropping = entry_of({}, ActionType::drop, "d");
  dropping.policer = "gold";
  qimctl::Model model = model_of({list_of({entry, dropping})});
  EXPECT_NE(only_refusal(translate(model)).find("2 refusals"), std::string::npos);
  model.policers.push_back({"gold", qimctl::Policer::Unit::bytes, 64000, 8000, 128000, 9000});
  const auto made = translate(model);
  ASSERT_EQ(made.ruleset.limits.size(), 2u);
  EXPECT_TRUE(made.ruleset.limits[0].name.starts_with("c.gold."));
  EXPECT_TRUE(made.ruleset.limits[1].name.starts_with("p.gold."));
  EXPECT_EQ(made.ruleset.limits[1].rate, 128000u);
  const auto rules = rules_of(made.ruleset, "lw.in");
  ASSERT_EQ(rules.size(), 4u) << "two limits, what is within them, and what is dropped anyway";
  EXPECT_EQ(rules[0], "[{\"limit\":\"" + made.ruleset.limits[0].name +
                          R"("},{"counter":{"packets":0,"bytes":0}},{"drop":null}])");
  EXPECT_NE(rules[2].find("accept"), std::string::npos);
  model.policers[0].unit = qimctl::Policer::Unit::packets;
  EXPECT_NE(translate(model).ruleset.limits[0].name, made.ruleset.limits[0].name);
  model.policers[0].committed_burst = uint64_t{1} << 32;
  EXPECT_NE(only_refusal(translate(model)).find("more than the kernel counts"), std::string::npos);
  model.policers[0].committed_burst = 0;
  model.policers[0].committed_rate = 2000000000;
  EXPECT_NE(only_refusal(translate(model)).find("more than the kernel counts"), std::string::npos);
}

TEST(NftRuleset, PlacesThatTheKernelCannotHave) {
  for (const char* name : {"", "te0/0/1", "sixteen letters!", "eth0:1", "..", "a b"}) {
    qimctl::Model model = model_of({list_of({entry_of({})})});
    model.attachments[0].interface = name;
    EXPECT_NE(only_refusal(translate(model)).find("no interface of such a name"), std::string::npos)
        << name;
  }
  for (const char* name : {"eth*", "a\"b", "\xc3\xa9", "a\\b"}) {
    qimctl::Model model = model_of({list_of({entry_of({})})});
    model.attachments[0].interface = name;
    EXPECT_NE(only_refusal(translate(model)).find("for something else"), std::string::npos) << name;
  }
  qimctl::Model model = model_of({list_of({entry_of({})})});
  model.attachments[0].list = "gone";
  EXPECT_EQ(only_refusal(translate(model)), "if:eth0/in: there is no access list \"gone\"");
}

TEST(NftRuleset, WhatCannotBeToldEndsAList) {
  const auto made = translate(model_of({list_of({
      entry_of({{0x0304, {1}}}, ActionType::accept, "first"),
      entry_of({{0x0300, {}}, {0x0500, {}}}, ActionType::accept, "second"),
      entry_of({{0x0304, {2}}}, ActionType::accept, "third"),
      entry_of({{0x0404, {2}}}, ActionType::accept, "fourth"),
      entry_of({{0x0600, {}}}, ActionType::accept, "fifth"),
      entry_of({}, ActionType::accept, "sixth"),
  })}));
  const auto* chain = find_chain(made.ruleset, "lx.in");
  ASSERT_NE(chain, nullptr);
  std::vector<std::string> labels;
  for (const auto& rule : chain->rules) labels.push_back(rule.tag.substr(34));
  EXPECT_EQ(labels, (std::vector<std::string>{"in/first", "cannot tell: in/second", "in/third",
                                              "in/fourth", "cannot tell: in/fifth"}));
  const auto* outer = find_chain(made.ruleset, "ly.in");
  ASSERT_NE(outer, nullptr);
  ASSERT_EQ(outer->rules.size(), 1u);
  EXPECT_EQ(outer->rules[0].tag.substr(34), "cannot tell: in/first");
}

TEST(NftRuleset, PlacesLookAsDeepAsTheirLists) {
  const auto chains = [](const std::vector<qimctl::Criterion>& criteria) {
    const auto made =
        translate(model_of({list_of({entry_of(criteria)}), list_of({entry_of({})}, "more")}));
    return rules_of(made.ruleset, "ind.eth0").size();
  };
  EXPECT_EQ(chains({{0x0500, {}}}), 0u);
  EXPECT_EQ(chains({{0x0508, {1, 2, 3, 4}}}), 4u);
  EXPECT_EQ(chains({{0x0703, {1}}}), 5u);
}

qimctl::AccessList long_list(size_t count, bool with_ports) {
  qimctl::AccessList list = list_of({});
  for (size_t i = 0; i < count; i++) {
    const auto high = static_cast<uint8_t>(i >> 8);
    const auto low = static_cast<uint8_t>(i & 0xff);
    qimctl::Entry entry =
        entry_of({{0x030b, {10, high, low, 0, 24}}}, ActionType::accept, "e" + std::to_string(i));
    if (with_ports) entry.criteria.push_back({0x0603, {5, high, low, 255, 255}});
    list.entries.push_back(entry);
  }
  return list;
}

size_t pieces_of(const qimctl::nft::Ruleset& ruleset, const std::string& kind) {
  size_t pieces = 0;
  for (const auto& chain : ruleset.chains)
    pieces += chain.name.starts_with(kind + ".in_-") ? 1u : 0u;
  return pieces;
}

TEST(NftRuleset, LongListsAreInPiecesBehindSets) {
  const auto made = translate(model_of({long_list(1000, true)})).ruleset;
  EXPECT_GT(pieces_of(made, "lw"), 5u);
  EXPECT_EQ(pieces_of(made, "lb"), 0u);
  std::string guard;
  for (const std::string& rule : rules_of(made, "lw.in"))
    if (rule.find("jump") != std::string::npos) guard = rule;
  EXPECT_NE(guard.find(R"("right":"ip")"), std::string::npos);
  // Neighbours become one.
  EXPECT_NE(guard.find(R"("offset":96,"len":32}},"right":{"set":[{"range":[)"), std::string::npos)
      << guard;
  EXPECT_NE(guard.find(R"("offset":16,"len":16}},"right":{"set":[{"range":[)"), std::string::npos)
      << guard;
  EXPECT_GT(pieces_of(translate(model_of({long_list(1000, false)})).ruleset, "lb"), 5u);
  EXPECT_EQ(pieces_of(translate(model_of({long_list(100, true)})).ruleset, "lw"), 0u)
      << "it is short";
}

TEST(NftRuleset, PiecesWithNothingInCommonAreNone) {
  qimctl::AccessList list = long_list(1000, true);
  for (size_t i = 0; i < list.entries.size(); i += 10) list.entries[i].criteria = {{0x0500, {}}};
  EXPECT_LT(pieces_of(translate(model_of({list})).ruleset, "lw"), 3u);
}

TEST(NftRuleset, AnEntryThatComesChangesItsPieceOnly) {
  const qimctl::AccessList list = long_list(1000, true);
  qimctl::AccessList longer = list;
  longer.entries.insert(
      longer.entries.begin() + 500,
      entry_of({{0x030b, {10, 9, 9, 0, 24}}, {0x0603, {5, 0, 1, 0, 2}}}, ActionType::drop, "new"));
  const auto todo =
      changes(table_of(translate(model_of({list})).ruleset), translate(model_of({longer})).ruleset);
  EXPECT_LE(todo.added, 2u) << "itself, and the set in front of its piece";
  EXPECT_LE(todo.deleted, 1u);
}

TEST(NftRuleset, TheWholeIsSoundJson) {
  qimctl::Model model = model_of({list_of({entry_of({{0x050a, {5, 0, 22, 0, 25}}})})});
  const auto text = write_model(model, qimctl::Format::nft, {});
  EXPECT_TRUE(text.findings.empty());
  const qimctl::JsonDocument document = qimctl::parse_json(text.text(), "test");
  EXPECT_GT(document.view().find("nftables").size(), 20u);
  EXPECT_TRUE(write_model(model, qimctl::Format::nft, {"other"}).text().find("lw.in") ==
              std::string::npos);
  EXPECT_FALSE(write_model(model, qimctl::Format::nft, {"in"}).text().find("lw.in") ==
               std::string::npos);
  model.lists[0].entries[0].criteria = {{0x4711, {1}}};
  const auto refused = write_model(model, qimctl::Format::nft, {});
  EXPECT_EQ(refused.text(), "");
  ASSERT_EQ(refused.findings.size(), 1u);
  EXPECT_EQ(refused.findings[0].place.file, "in/e");
}

}  // namespace
