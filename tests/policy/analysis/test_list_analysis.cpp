// What is wrong with the entries of access lists.
#include "policy/analysis/list_analysis.h"

#include "tests/policy/trace/trace_support.h"

namespace {

using namespace qimctl;
using trace_test::entry;
using trace_test::list;
using trace_test::model_of;

// "ENTRY fault: OTHER OTHER" of each finding.
std::vector<std::string> findings(const AccessList& of, bool hands_on = true,
                                  const AnalysisLimits& limits = {}) {
  std::vector<std::string> texts;
  for (const EntryFinding& finding : analyse_list(of, hands_on, limits).findings) {
    std::string text = of.entries[finding.entry].name + " " + fault_name(finding.fault) + ":";
    for (const size_t other : finding.others) text += " " + of.entries[other].name;
    if (!finding.same_verdict) text += " (differs)";
    texts.push_back(text + (finding.what.empty() ? "" : " " + finding.what));
  }
  return texts;
}

AccessList list_with(const std::string& entries) {
  return model_of(R"("acl":[)" + list("l", entries) + "]").lists[0];
}

std::string to(const std::string& network) {
  return R"("ipv4":{"destination-ipv4-network":")" + network + R"("})";
}

std::string port(const std::string& ports) {
  return R"("tcp":{"destination-port":{)" + ports + "}}";
}

using Texts = std::vector<std::string>;

TEST(ListAnalysis, AnEntryThatOneCovers) {
  EXPECT_EQ(findings(list_with(entry("a", to("10.0.0.0/8"), "drop") + "," +
                               entry("b", to("10.1.0.0/16"), "accept") + "," +
                               entry("c", to("10.2.0.0/16"), "drop"))),
            (Texts{"b shadowed: a (differs)", "c shadowed: a"}));
}

TEST(ListAnalysis, AnEntryThatSeveralCoverTogether) {
  EXPECT_EQ(findings(list_with(entry("a", port(R"("operator":"lte","port":79)"), "drop") + "," +
                               entry("b", port(R"("operator":"gte","port":81)"), "drop") + "," +
                               entry("c", port(R"("port":80)"), "accept") + "," +
                               entry("d", R"("tcp":{})", "accept"))),
            Texts{"d shadowed: a b c (differs)"});
}

TEST(ListAnalysis, NotThisPortLeavesAGap) {
  EXPECT_EQ(findings(list_with(entry("a", port(R"("operator":"neq","port":80)"), "drop") + "," +
                               entry("b", port(R"("lower-port":80,"upper-port":81)"), "drop") +
                               "," + entry("c", port(R"("operator":"neq","port":80)"), "drop"))),
            Texts{"c shadowed: a"});
}

TEST(ListAnalysis, AnEntryWithoutWhichNothingChanges) {
  const AccessList of =
      list_with(entry("a", to("10.1.0.0/16"), "accept") + "," +
                entry("b", to("10.0.0.0/8"), "accept") + "," + entry("all", "", "drop"));
  EXPECT_EQ(findings(of), Texts{"a redundant: b"});
  EXPECT_EQ(findings(of, false), (Texts{"a redundant: b", "all redundant:"}));
}

TEST(ListAnalysis, EntriesThatContradictEachOther) {
  EXPECT_EQ(
      findings(list_with(
          entry("a", to("10.0.0.0/8"), "drop") + "," + entry("b", port(R"("port":80)"), "accept") +
          "," +
          entry("c", R"("ipv4":{"destination-ipv4-network":"10.0.0.0/9"},)" + port(R"("port":81)"),
                "drop") +
          "," + entry("d", "", "reject"))),
      (Texts{"b conflict: a", "c shadowed: a"}));
}

TEST(ListAnalysis, EntriesThatNoPacketMatches) {
  AccessList of = list_with(entry("ihl", R"("ipv4":{"ihl":30})", "drop") + "," +
                            entry("type", R"("eth":{"ethertype":"arp"},"ipv4":{})", "drop") + "," +
                            entry("number", R"("ipv4":{"protocol":17},"tcp":{})", "drop"));
  EXPECT_EQ(findings(of), (Texts{"ihl impossible: no packet has ipv4.ihl 30",
                                 "type impossible: its matches exclude each other",
                                 "number impossible: its matches exclude each other"}));
}

TEST(ListAnalysis, WhatOnlyAnotherModelTells) {
  AccessList of = list_with(entry("dns", R"("ipv4":{})", "accept") + "," +
                            entry("same", R"("ipv4":{"ttl":1})", "accept") + "," +
                            entry("net", to("10.0.0.0/8"), "drop"));
  of.entries[0].criteria.push_back(to_criterion({"ipv4", "dns", "name", "\"a\""}));
  of.entries[1].criteria.push_back(to_criterion({"ipv4", "dns", "name", "\"a\""}));
  EXPECT_EQ(findings(of), (Texts{"dns undecided: net", "same shadowed: dns", "net conflict: dns"}));
  of.entries[1].criteria.back() = to_criterion({"ipv4", "dns", "name", "\"b\""});
  of.entries[2].forwarding = ActionType::accept;
  EXPECT_EQ(findings(of), Texts{});
}

TEST(ListAnalysis, SaysWhenItGivesUp) {
  const AccessList of = list_with(entry("a", port(R"("port":80)"), "drop") + "," +
                                  entry("b", port(R"("operator":"gte","port":80)"), "accept"));
  EXPECT_EQ(findings(of, true, {0, 0}), Texts{"b gave_up:"});
  AccessList same = of;
  same.entries[1].forwarding = ActionType::drop;
  EXPECT_EQ(findings(same, true, {0, 0}), (Texts{"a gave_up:", "b gave_up:"}));
}

TEST(ListAnalysis, KnowsWhereListsAreAsked) {
  const Model model = model_of(
      R"("acl":[)" + list("a", "") + "," + list("b", "") + "," + list("c", "") +
      R"(],"attachment-points":{"interface":[{"interface-id":"eth0","ingress":{"acl-sets":)"
      R"({"acl-set":[{"name":"a"},{"name":"b"}]}}}]})");
  EXPECT_TRUE(hands_on(model, model.lists[0]));
  EXPECT_FALSE(hands_on(model, model.lists[1]));
  EXPECT_FALSE(hands_on(model, model.lists[2]));
  EXPECT_TRUE(is_attached(model, model.lists[1]));
  EXPECT_FALSE(is_attached(model, model.lists[2]));
}

}  // namespace
