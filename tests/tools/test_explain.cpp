// `qimctl explain`, and what it knows.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "policy/analysis/list_analysis.h"
#include "policy/base/criteria.h"
#include "policy/explain/topics.h"
#include "policy/trace/vocabulary.h"
#include "schema/rows.h"
#include "tests/tools/support.h"
#include "tools/cli.h"
#include "tools/nodes/defects.h"
#include "tools/nodes/node_names.h"
#include "tools/nodes/tree_walk.h"

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
  EXPECT_THAT(kinds_of("False"), ElementsAre("False, branch 2"));
  EXPECT_THAT(kinds_of("stage"), ElementsAre("stage, word of access lists"));
  EXPECT_THAT(kinds_of("vlan"), ElementsAre("vlan, word of packets", "vlan, Ethernet type 0x8100"));
  EXPECT_THAT(kinds_of("syn"), ElementsAre("syn, TCP flag 0x02"));
  EXPECT_THAT(kinds_of("echo-request"), ElementsAre("echo-request, ICMP type"));
  EXPECT_THAT(kinds_of("QIM_ERR_NODE_TYPE"), ElementsAre("QIM_ERR_NODE_TYPE, status 0x41160002"));
}

TEST(Explain, knows_numbers_and_what_else_they_are) {
  EXPECT_THAT(kinds_of("0x41170006"), ElementsAre("ROV_ERR_NO_ITEM, status 0x41170006"));
  EXPECT_THAT(kinds_of("0x8082"), ElementsAre("0x8082, link 0x8082"));
  EXPECT_THAT(kinds_of("2"), ElementsAre("Action, node type 2", "False, branch 2",
                                         "entry.opaque, criterion 0x0002", "drop, action 2"));
}

TEST(Explain, knows_fields_without_their_record) {
  EXPECT_THAT(
      kinds_of("flags"),
      ElementsAre("node.flags, field", "filter.flags, field", "ipv4.flags, criterion 0x0307",
                  "tcp.flags, criterion 0x0505", "flags, word of packets"));
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
  EXPECT_EQ(fact("stage", "range"), "1 to 65535");
  EXPECT_EQ(fact("ttl", "range"), "0 to 255");
  EXPECT_EQ(fact("hop-limit", "meaning"),
            "the field ttl of the header ipv4 or ipv6, with its value behind it");
  EXPECT_EQ(fact("id", "meaning"),
            "the field identification of the header ipv4, with its value behind it");
  EXPECT_EQ(fact("flow", "meaning"),
            "the field flow-label of the header ipv6, with its value behind it");
  EXPECT_EQ(fact("seq", "meaning"),
            "the field sequence-number of the header tcp, with its value behind it");
  EXPECT_EQ(fact("too-big", "range"), "icmp6 type 2");
  EXPECT_EQ(fact("redirect", "range"), "icmp type 5, icmp6 type 137");
  EXPECT_EQ(fact("neq", "meaning"), "the port is any but N; printed as !=N");
  EXPECT_EQ(fact("QIM_ERR_NO_MEM", "who uses it"), "the policy library");
}

TEST(Explain, says_what_everything_means_and_how_criteria_are_laid_out) {
  for (const auto& make : {qimctl::criterion_topics, qimctl::action_topics, qimctl::packet_topics,
                           qimctl::word_topics, qimctl::status_topics}) {
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
                           qimctl::packet_topics, qimctl::word_topics, qimctl::status_topics}) {
    for (const Topic& topic : make())
      EXPECT_TRUE(seen.emplace(topic.names.at(0), topic.kind).second) << topic.names.at(0);
  }
}

void expect_known(const std::string& word) {
  EXPECT_THAT(find_topics(word), testing::Not(IsEmpty())) << word;
}

// All that PACKET takes, and that entries are printed with.
TEST(Explain, knows_the_words_of_packets) {
  for (const qimctl::NumberWord& word : qimctl::number_words()) {
    expect_known(std::string(word.name));
    if (!word.alias.empty()) expect_known(std::string(word.alias));
  }
  for (const qimctl::IcmpName& name : qimctl::icmp_names()) expect_known(std::string(name.name));
  for (const qimctl::EthertypeName& name : qimctl::ethertype_names())
    expect_known(std::string(name.name));
  for (const qimctl::Encoding flags : {qimctl::Encoding::tcp_flags, qimctl::Encoding::ipv4_flags})
    for (const qimctl::FlagName& flag : qimctl::flag_names(flags))
      expect_known(std::string(flag.name));
  for (const qimctl::OperatorName& name : qimctl::port_operators())
    expect_known(std::string(name.name));
  for (const qimctl::CriterionKind& kind : qimctl::criterion_kinds()) {
    expect_known(std::string(kind.name));
    expect_known(std::string(kind.field().empty() ? kind.name : kind.field()));
  }
  for (const char* word : {"eth",      "no-eth",
                           "no-ip",    "no-transport",
                           "from",     "to",
                           ">",        "port",
                           "any",      "entering",
                           "leaving",  "flags",
                           "ip-flags", "df",
                           "none",     "fragment",
                           "type",     "ethertype",
                           "options",  "rest-of-header",
                           "frame",    "only that model decides"})
    expect_known(word);
}

TEST(Explain, knows_what_is_found_and_what_links_are_for) {
  for (uint32_t i = 0; i <= static_cast<uint32_t>(qimctl::Defect::unreadable); i++)
    expect_known(qimctl::defect_name(static_cast<qimctl::Defect>(i)));
  for (uint32_t i = 0; i <= static_cast<uint32_t>(qimctl::EntryFault::gave_up); i++)
    expect_known(qimctl::fault_name(static_cast<qimctl::EntryFault>(i)));
  for (uint32_t i = 1; i <= static_cast<uint32_t>(qimctl::TreeMark::deep); i++)
    expect_known(qimctl::tree_mark_name(static_cast<qimctl::TreeMark>(i)));
  for (const qim::schema::Record* record : qim::schema::records)
    for (const qim::schema::Row& row : *record)
      if (row.slot != qim::schema::Slot::none) expect_known(qimctl::link_words(row.link));
  for (const int link : {int{QIM_LN_FILTER_TRUE}, int{QIM_LN_GROUP_NAME}, int{QIM_LN_EDEST_NAME},
                         int{QIM_LN_POLICE_NAME}})
    expect_known(qimctl::link_words(static_cast<uint16_t>(link)));
}

// The words that values of answers in JSON are limited to.
void expect_enumerations_known(const json& schema) {
  if (schema.is_object() && schema.contains("enum"))
    for (const json& value : schema["enum"]) expect_known(value.get<std::string>());
  if (!schema.is_structured()) return;
  for (const json& member : schema) expect_enumerations_known(member);
}

TEST(Explain, knows_what_answers_say) {
  for (const char* name : {"acl", "apply", "check", "diff", "list", "trace", "watch"}) {
    const auto file = tools_test::source_dir() / "docs" / "schemas" / (std::string(name) + ".json");
    expect_enumerations_known(json::parse(tools_test::read_text(file)));
  }
}

std::string lowered(std::string text) {
  for (char& c : text) c = static_cast<char>(tolower(c));
  return text;
}

// Column heads, and what stands in front of the lines of `status`.
TEST(Explain, knows_heads) {
  const tools_test::TempDir dir;
  const std::string db = dir / "db";
  const auto example = tools_test::source_dir() / "examples" / "edge-router.rfc8519.json";
  ASSERT_EQ(run_qimctl({"--db", db, "apply", example}).code, 0);
  const auto heads = [&db](std::vector<std::string> command, size_t line) {
    command.insert(command.begin(), {"--db", db});
    std::istringstream out(run_qimctl(command).out);
    std::string head;
    for (size_t i = 0; i <= line; i++) getline(out, head);
    std::istringstream words(head);
    while (words >> head)
      if (head != "NO") expect_known(lowered(head));
  };
  heads({"acl"}, 0);
  heads({"acl", "management-in"}, 1);
  heads({"list", "--type", "Def"}, 0);
  heads({"trace", "if:mgmt0/in", "arp"}, 2);
  std::istringstream status(run_qimctl({"--db", db, "status"}).out);
  for (std::string line; getline(status, line);) expect_known(line.substr(0, line.find("  ")));
}

TEST(Explain, finds_what_a_misspelt_word_may_mean) {
  EXPECT_THAT(similar_topics("fliter"), ElementsAre("Filter", "writer"));
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
  EXPECT_THAT(run_qimctl({"explain", "entirely other"}).err, HasSubstr("; give a word"));
}

}  // namespace
