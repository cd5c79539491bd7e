// `qimctl explain`, and what it knows.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <set>

#include "policy/base/criteria.h"
#include "policy/explain/topics.h"
#include "tests/tools/support.h"
#include "tools/cli.h"

namespace {

using nlohmann::json;
using qimctl::find_topics;
using qimctl::similar_topics;
using qimctl::Topic;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tools_test::Outcome;
using tools_test::run_qimctl;

std::vector<std::string> kinds_of(const std::string& word) {
  std::vector<std::string> kinds;
  for (const Topic& topic : find_topics(word))
    kinds.push_back(topic.names.front() + ", " + topic.kind);
  return kinds;
}

std::string fact(const std::string& word, const std::string& what) {
  const Topic topic = find_topics(word).at(0);
  for (const auto& [name, text] : topic.facts)
    if (name == what) return text;
  return "";
}

TEST(Explain, knows_each_kind_by_its_name) {
  EXPECT_THAT(kinds_of("filter"), ElementsAre("Filter, node type 1"));
  EXPECT_THAT(kinds_of("node.group"), ElementsAre("node.group, field"));
  EXPECT_THAT(kinds_of("LN_281"), ElementsAre("ln_281, link 0x0281"));
  EXPECT_THAT(kinds_of("ipv4.flags"), ElementsAre("ipv4.flags, criterion 0x0307"));
  EXPECT_THAT(kinds_of("reject"), ElementsAre("reject, action 3"));
  EXPECT_THAT(kinds_of("log-syslog"), ElementsAre("log-syslog, action 0x101"));
  EXPECT_THAT(kinds_of("Next"), ElementsAre("Next, branch 4"));
  EXPECT_THAT(kinds_of("QIM_ERR_NODE_TYPE"), ElementsAre("QIM_ERR_NODE_TYPE, status 0x41160002"));
}

TEST(Explain, knows_numbers_and_what_else_they_are) {
  EXPECT_THAT(kinds_of("0x41170006"), ElementsAre("ROV_ERR_NO_ITEM, status 0x41170006"));
  EXPECT_THAT(kinds_of("0x8082"), ElementsAre("0x8082, link 0x8082"));
  EXPECT_THAT(kinds_of("2"), ElementsAre("Action, node type 2", "False, branch 2",
                                         "entry.opaque, criterion 0x0002", "drop, action 2"));
}

TEST(Explain, knows_fields_without_their_record) {
  EXPECT_THAT(kinds_of("flags"),
              ElementsAre("node.flags, field", "filter.flags, field",
                          "ipv4.flags, criterion 0x0307", "tcp.flags, criterion 0x0505"));
}

TEST(Explain, says_ranges_and_who_uses_it) {
  EXPECT_EQ(fact("ipv4.ihl", "range"), "5 to 60");
  EXPECT_EQ(fact("tcp.options", "range"), "1 to 40 bytes");
  EXPECT_EQ(fact("filter.match", "range"), "1 True, 2 False, 3 Nomatch, 4 Next");
  EXPECT_EQ(fact("action.args", "range"), "up to 4294967295 bytes");
  EXPECT_EQ(fact("action_bw.rate", "range"), "0 to 18446744073709551615");
  EXPECT_EQ(fact("action_bw.rate", "who uses it"), "Police");
  EXPECT_EQ(fact("filter.crit", "holds"), "records of criterion");
  EXPECT_EQ(fact("police.comt_bw", "holds"), "a record of action_bw");
  EXPECT_EQ(fact("ln_141", "who uses it"), "Action, Haction, Police");
  EXPECT_EQ(fact("ln_302", "carries"), "a node, and node2, val and tag");
  EXPECT_EQ(fact("Dset", "data-set name"), "it must have one");
  EXPECT_THAT(fact("Def", "reached by"), HasSubstr("ln_282"));
  EXPECT_EQ(fact("QIM_ERR_NO_MEM", "who uses it"), "the policy library");
}

TEST(Explain, says_what_everything_means_and_how_criteria_are_laid_out) {
  for (const auto& make :
       {qimctl::criterion_topics, qimctl::action_topics, qimctl::status_topics}) {
    for (const Topic& topic : make()) {
      EXPECT_EQ(topic.facts.at(0).first, "meaning") << topic.names.at(0);
      EXPECT_NE(topic.facts.at(0).second, "") << topic.names.at(0);
    }
  }
  for (const qimctl::CriterionKind& kind : qimctl::criterion_kinds())
    EXPECT_NE(fact(std::string(kind.name), "arguments"), "") << kind.name;
}

TEST(Explain, names_nothing_twice) {
  std::set<std::pair<std::string, std::string>> seen;
  for (const auto& make : {qimctl::node_topics, qimctl::criterion_topics, qimctl::action_topics,
                           qimctl::status_topics}) {
    for (const Topic& topic : make())
      EXPECT_TRUE(seen.emplace(topic.names.at(0), topic.kind).second) << topic.names.at(0);
  }
}

TEST(Explain, finds_what_a_misspelt_word_may_mean) {
  EXPECT_THAT(similar_topics("fliter"), ElementsAre("Filter"));
  EXPECT_THAT(similar_topics("ln_28"), testing::Contains("ln_281"));
  EXPECT_THAT(similar_topics("ln_28"), testing::SizeIs(3));
  EXPECT_THAT(similar_topics("entirely other"), IsEmpty());
  EXPECT_THAT(similar_topics(std::string(65, 'a')), IsEmpty());
}

TEST(Explain, prints_what_it_knows) {
  const Outcome outcome = run_qimctl({"explain", "0x41160002"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out,
            "QIM_ERR_NODE_TYPE  status 0x41160002\n"
            "  meaning      the node is of another type, or of none that is known\n"
            "  who uses it  the policy library\n");
  EXPECT_THAT(run_qimctl({"explain", "2"}).out, HasSubstr("\n\nFalse  branch 2\n"));
  EXPECT_EQ(json::parse(run_qimctl({"explain", "reject", "--json"}).out)[0]["kind"], "action 3");
}

TEST(Explain, says_what_was_not_understood) {
  const Outcome near = run_qimctl({"explain", "ipv4.flag"});
  EXPECT_EQ(near.code, qimctl::exit_not_found);
  EXPECT_EQ(near.out, "");
  EXPECT_THAT(near.err, HasSubstr("'ipv4.flag' is nothing that is known here; did you mean "
                                  "ipv4.flags?"));
  EXPECT_THAT(run_qimctl({"explain", "ln_28"}).err, HasSubstr(" or "));
  EXPECT_THAT(run_qimctl({"explain", "entirely other"}).err, HasSubstr("; give a node type"));
}

}  // namespace
