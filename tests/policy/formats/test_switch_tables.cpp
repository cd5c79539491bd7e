// The tables of a switch's configuration database: what rules become, and what is refused.
#include "policy/formats/switch_tables/switch_tables.h"

#include <gmock/gmock.h>

#include "policy/formats/any/any.h"
#include "tests/policy/formats/format_support.h"
#include "tests/policy/formats/model_support.h"

namespace {

using namespace qimctl;
using formats_test::entries_of;
using formats_test::findings_of;
using formats_test::problems_of;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

ModelInput read(const std::string& text) {
  return read_switch_tables(text, "config.json");
}

// A database of one table with these rules.
std::string table(const std::string& rules, const std::string& type = "L3",
                  const std::string& more = "") {
  return R"({"ACL_TABLE": {"T": {"type": ")" + type + "\"" + more + R"(}}, "ACL_RULE": {)" + rules +
         "}}";
}

std::string rule(const std::string& fields) {
  return R"("T|r": {"PRIORITY": "1", "PACKET_ACTION": "DROP", )" + fields + "}";
}

std::vector<std::string> matches(const std::string& fields, const std::string& type = "L3") {
  std::vector<std::string> found;
  const ModelInput input = read(table(rule(fields), type));
  for (const Entry& entry : input.model.lists.at(0).entries) found.push_back(criteria_words(entry));
  return found;
}

std::vector<std::string> refused(const std::string& text) {
  return problems_of([&text] { read(text); });
}

TEST(SwitchTables, TheExampleIsCarriedWhole) {
  const std::string text = formats_test::example("leaf.switch.json");
  EXPECT_EQ(guess_format(text), Format::switch_tables);
  const ModelInput input = read(text);
  EXPECT_THAT(input.findings, SizeIs(2));
  ASSERT_THAT(input.model.lists, SizeIs(2));
  EXPECT_THAT(entries_of(input.model.lists[0]),
              ElementsAre("NO_NULL_SCAN: ipv4 tcp flags none: drop",
                          "WEB: ipv4 tcp to 192.0.2.0/24 port 443: accept",
                          "BACKUP: ipv4 tcp from 198.51.100.0/26 to any port 10000-10100: accept "
                          "police BULK",
                          "DEFAULT: eth type ipv4: drop"));
  EXPECT_THAT(entries_of(input.model.lists[1]),
              ElementsAre("PING: ipv6 icmp6 type 128: accept", "DEFAULT: ipv6: drop"));
  EXPECT_EQ(input.model.lists[0].type, acl_type_eth | acl_type_ipv4);
  EXPECT_EQ(input.model.lists[0].default_action, ActionType::accept);
  ASSERT_THAT(input.model.policers, SizeIs(1));
  EXPECT_EQ(input.model.policers[0],
            (Policer{"BULK", Policer::Unit::bytes, 125000000, 1500000, 0, 0}));
  ASSERT_THAT(input.model.attachments, SizeIs(4));
  EXPECT_EQ(input.model.attachments[2].stage, 2u);
}

TEST(SwitchTables, ARealTableIsCarried) {
  const std::string name = "switch/custom_acl_rules.json";
  const std::string text = formats_test::real_data(name);
  if (text.empty()) GTEST_SKIP() << name << " is not there; QIM_DATA_DIR tells its folder";
  EXPECT_EQ(guess_format(text), Format::switch_tables);
  const ModelInput input = read(text);
  EXPECT_THAT(input.emptied, IsEmpty());
  EXPECT_THAT(findings_of(input, Fate::skipped), IsEmpty());
  EXPECT_THAT(findings_of(input, Fate::approximated), SizeIs(5));
  ASSERT_THAT(input.model.lists, SizeIs(1));
  EXPECT_THAT(
      entries_of(input.model.lists[0]),
      ElementsAre(
          "RULE_2: ipv4 protocol 6 to 103.23.2.1: accept",
          "RULE_4: ipv6 protocol 6 to 103:23:2:1::1: accept",
          "RULE_5: tcp from any port 8080: accept", "RULE_5 (2): udp from any port 8080: accept",
          "RULE_6: tcp to any port 8080: accept", "RULE_6 (2): udp to any port 8080: accept",
          "RULE_7: tcp from any port 8081-8090: accept",
          "RULE_7 (2): udp from any port 8081-8090: accept",
          "RULE_8: tcp to any port 8081-8090: accept",
          "RULE_8 (2): udp to any port 8081-8090: accept",
          "RULE_PINHOLE_1: ipv4 to 10.1.0.36: accept", "RULE_PINHOLE_2: ipv4 to 10.1.0.38: accept",
          "RULE_PINHOLE_3: ipv4 to 10.1.0.39: accept", "DEFAULT_DROP_RULE_V4: eth type ipv4: drop",
          "DEFAULT_DROP_RULE_V6: ipv6: drop"));
}

TEST(SwitchTables, ARealTypeIsLeftOut) {
  const std::string name = "switch/custom_acl_table.json";
  const std::string text = formats_test::real_data(name);
  if (text.empty()) GTEST_SKIP() << name << " is not there; QIM_DATA_DIR tells its folder";
  EXPECT_EQ(guess_format(text), Format::switch_tables);
  const ModelInput input = read(text);
  EXPECT_THAT(input.model.lists, IsEmpty());
  EXPECT_THAT(findings_of(input, Fate::skipped), SizeIs(1));
}

TEST(SwitchTables, TypesAreWhatTheirListsSay) {
  const std::string types = R"("ACL_TABLE_TYPE": {"MINE": {"MATCHES": ["SRC_IP"]}})";
  const ModelInput used = read(R"({"ACL_TABLE": {"T": {"type": "MINE"}, "U": {}}, )" + types + "}");
  EXPECT_THAT(used.model.lists, SizeIs(2));
  EXPECT_THAT(findings_of(used, Fate::skipped), IsEmpty());
  EXPECT_THAT(findings_of(used, Fate::accepted),
              testing::Contains(HasSubstr("the type \"MINE\" says nothing that its lists do not")));
  const ModelInput unused = read(
      R"({"ACL_TABLE": {"T": {"type": "L3"}}, "ACL_RULE": {"MINE|r": {"PRIORITY": "1",
        "PACKET_ACTION": "DROP"}}, )" +
      types + "}");
  EXPECT_THAT(unused.model.lists, SizeIs(2));
  EXPECT_THAT(findings_of(unused, Fate::skipped),
              ElementsAre(HasSubstr("no list of the file is of the type \"MINE\"")));
  EXPECT_EQ(guess_format("{" + types + "}"), Format::switch_tables);
  EXPECT_THAT(read("{" + types + "}").model.lists, IsEmpty());
}

TEST(SwitchTables, ReadsEveryMatch) {
  EXPECT_THAT(
      matches(R"("SRC_IP": "10.1.2.3/8", "DSCP": "46/0x3f", "ICMP_TYPE": 3, "ICMP_CODE": "4")"),
      ElementsAre("ipv4 icmp from 10.0.0.0/8 dscp 46 type 3 code 4"));
  EXPECT_THAT(
      matches(R"("SRC_IPV6": "2001:db8::1", "IP_PROTOCOL": "0x11", "L4_SRC_PORT": "53")", "X"),
      ElementsAre("ipv6 udp from 2001:db8::1 port 53"));
  EXPECT_THAT(matches(R"("ICMPV6_TYPE": "1", "ICMPV6_CODE": "2")", "X"),
              ElementsAre("ipv6 icmp6 type 1 code 2"));
  EXPECT_THAT(matches(R"("DSCP": "1")", "L3V6"), ElementsAre("ipv6 dscp 1"));
  EXPECT_THAT(matches(R"("DSCP": "1", "IP_PROTOCOL": "47")", "X"),
              ElementsAre("ipv4 protocol 47 dscp 1", "ipv6 protocol 47 dscp 1"));
  EXPECT_THAT(matches(R"("ETHER_TYPE": "34525", "IP_PROTOCOL": "1")", "X"),
              ElementsAre("eth type ipv6 ipv6 protocol 1"));
  EXPECT_THAT(matches(R"("ETHER_TYPE": "2048", "DSCP": "2")", "X"), SizeIs(1));
  EXPECT_THAT(matches(R"("SRC_MAC": "00:00:5e:00:53:01", "DST_MAC": "00:00:5e:00:53:02")"),
              ElementsAre("eth from 00:00:5e:00:53:01 to 00:00:5e:00:53:02"));
  EXPECT_THAT(
      matches(R"("IN_PORTS": "Ethernet0,Ethernet4", "OUT_PORTS": ["Ethernet8"])"),
      ElementsAre("entering Ethernet0 leaving Ethernet8", "entering Ethernet4 leaving Ethernet8"));
  EXPECT_THAT(matches(R"("IP_TYPE": "ANY")"), ElementsAre("any"));
  EXPECT_THAT(matches(R"("IP_TYPE": "IP")"), ElementsAre("ipv4", "ipv6"));
  EXPECT_THAT(matches(R"("IP_TYPE": "IPV4")", "X"), ElementsAre("ipv4"));
  EXPECT_THAT(matches(R"("IP_TYPE": "IPV4ANY")", "X"), ElementsAre("ipv4"));
  EXPECT_THAT(matches(R"("IP_TYPE": "IPV6")", "X"), ElementsAre("ipv6"));
  EXPECT_THAT(matches(R"("IP_TYPE": "ARP")"), ElementsAre("eth type arp"));
  EXPECT_THAT(matches(R"("TCP_FLAGS": "0x12")"), SizeIs(4));
  EXPECT_THAT(matches(R"("TCP_FLAGS": "0x02/0x17")"), SizeIs(16));
  EXPECT_THAT(matches(R"("IP_PROTOCOL": "6", "L4_SRC_PORT_RANGE": "1-2")"),
              ElementsAre("ipv4 tcp from any port 1-2"));
}

TEST(SwitchTables, WhatOthersDecideIsCarriedWhole) {
  for (const char* fields : {R"("VLAN_ID": "5")", R"("TCP_FLAGS": "0x02/0x02")",
                             R"("IP_TYPE": "NON_IP")", R"("DSCP": "1/0x07")", R"("L4_PORT": "1")",
                             R"("IP_PROTOCOL": "132", "L4_SRC_PORT": "1")"}) {
    const ModelInput input = read(table(rule(fields)));
    EXPECT_THAT(findings_of(input, Fate::accepted).front(), HasSubstr("is carried whole"))
        << fields;
    EXPECT_EQ(input.model.lists[0].entries.at(0).criteria[0].type, criterion_opaque);
  }
  EXPECT_THAT(matches(R"("VLAN_ID": "5")"),
              ElementsAre("acl-rule VLAN_ID \"5\" (only that model decides)"));
}

TEST(SwitchTables, RulesWithOtherActionsAreLeftOut) {
  const ModelInput input = read(table(R"(
    "T|a": {"PRIORITY": 9, "PACKET_ACTION": "REDIRECT:Ethernet0"},
    "T|b": {"PRIORITY": 8, "MIRROR_ACTION": "m"})"));
  EXPECT_THAT(findings_of(input, Fate::skipped),
              ElementsAre(HasSubstr("entry \"a\" left out"),
                          AllOf(HasSubstr("3: /ACL_RULE/T|b/MIRROR_ACTION: "),
                                HasSubstr("\"MIRROR_ACTION\" \"m\""))));
  ASSERT_THAT(input.emptied, SizeIs(1));
  EXPECT_EQ(input.emptied[0].entries, 2u);
  const ModelInput named = read(table(rule('"' + std::string(65536, 'X') + "\": \"1\"")));
  EXPECT_THAT(findings_of(named, Fate::skipped), ElementsAre(HasSubstr("longer than 65535")));
}

TEST(SwitchTables, AlternativesThatNoPacketMeetsAreNoEntries) {
  EXPECT_THAT(matches(R"("IN_PORTS": "")"), IsEmpty());
  EXPECT_THAT(matches(R"("TCP_FLAGS": "0x01/0x3f", "IP_PROTOCOL": "17", "L4_SRC_PORT": "1")"),
              IsEmpty());
  std::string ports = "e0";
  for (int i = 1; i < 1100; i++) ports += ",e" + std::to_string(i);
  const ModelInput input = read(table(rule("\"IN_PORTS\": \"" + ports + "\"")));
  EXPECT_THAT(findings_of(input, Fate::skipped), ElementsAre(HasSubstr("so many alternatives")));
}

TEST(SwitchTables, ListsAreAttachedToPorts) {
  const ModelInput input =
      read(table("", "CUSTOM", R"(, "stage": "EGRESS", "ports@": "e0,e1", "services": ["SSH"])"));
  ASSERT_THAT(input.model.attachments, SizeIs(2));
  EXPECT_EQ(attachment_text(input.model.attachments[1]), "if:e1/out");
  EXPECT_THAT(findings_of(input, Fate::skipped), ElementsAre(HasSubstr("\"services\"")));
  EXPECT_EQ(input.model.lists[0].type, acl_type_unknown);
  EXPECT_THAT(read(R"({"ACL_TABLE": {"T": {}}})").model.lists, SizeIs(1));
}

TEST(SwitchTables, PolicersAreThoseThatRulesName) {
  const auto policed = [](const std::string& policer, const std::string& name) {
    return R"({"POLICER": {"p": {)" + policer +
           R"(}, "q": {}}, "ACL_RULE": {"T|r": {"PRIORITY": "1",
      "PACKET_ACTION": "FORWARD", "POLICER_ACTION": ")" +
           name + R"("}}})";
  };
  const ModelInput input = read(policed(
      R"("meter_type": "packets", "pir": "18446744073709551615", "pbs": 2, "color": "aware",
         "color_source": "blind", "GREEN_PACKET_ACTION": "forward", "YELLOW_PACKET_ACTION": "drop",
         "RED_PACKET_ACTION": "forward", "new": "x")",
      "[POLICER|p]"));
  ASSERT_THAT(input.model.policers, SizeIs(1));
  EXPECT_EQ(input.model.policers[0], (Policer{"p", Policer::Unit::packets, 0, 0, UINT64_MAX, 2}));
  EXPECT_THAT(findings_of(input, Fate::approximated), SizeIs(5));
  EXPECT_THAT(refused(policed("", "POLICER|x")),
              ElementsAre(HasSubstr("there is no policer \"x\"; define it")));
  EXPECT_THAT(refused(policed(R"("CIR": "many")", "p")),
              ElementsAre("1: /POLICER/p/CIR: \"many\" is not a whole number"));
  EXPECT_THAT(refused(policed(R"("METER_TYPE": "bits")", "p")),
              ElementsAre(HasSubstr("\"bits\" is neither bytes nor packets")));
  EXPECT_THAT(refused(R"({"ACL_RULE": {}, "POLICER": {"": {}}})"),
              ElementsAre(HasSubstr("can't have its name, for it is empty")));
}

TEST(SwitchTables, RefusesTablesThatAreWrong) {
  EXPECT_THAT(refused("[]"), ElementsAre(HasSubstr("has neither a table \"ACL_TABLE\"")));
  EXPECT_THAT(refused(R"({"ACL_TABLE": []})"),
              ElementsAre("1: /ACL_TABLE: must be an object, not an array"));
  EXPECT_THAT(refused(R"({"ACL_TABLE": {"T": 1}})"),
              ElementsAre(HasSubstr("/ACL_TABLE/T: must be an object")));
  EXPECT_THAT(refused(R"({"ACL_TABLE": {"": {}}})"), ElementsAre(HasSubstr("can't have its name")));
  EXPECT_THAT(refused(R"({"ACL_RULE": {"r": {}}})"),
              ElementsAre("1: /ACL_RULE/r: the key \"r\" is not TABLE|RULE"));
  EXPECT_THAT(refused(R"({"ACL_RULE": {"T|": {}}})"), SizeIs(1));
  EXPECT_THAT(refused(R"({"ACL_RULE": {"|r": {}}})"), SizeIs(1));
  EXPECT_THAT(refused(table("", "L3", R"(, "stage": "middle")")),
              ElementsAre(HasSubstr("\"middle\" is neither ingress nor egress")));
  EXPECT_THAT(refused(table("", "L3", R"(, "ports": [""])")),
              ElementsAre(HasSubstr("can't name an interface")));
  EXPECT_THAT(refused(table("", "L3", R"(, "ports": ["e", "e"])")),
              ElementsAre(HasSubstr("is attached twice to if:e/in")));
}

TEST(SwitchTables, RefusesRulesThatAreWrong) {
  EXPECT_THAT(refused(table(R"("T|r": {})")), ElementsAre(HasSubstr("needs a \"PRIORITY\""),
                                                          HasSubstr("needs a \"PACKET_ACTION\"")));
  EXPECT_THAT(refused(table(R"("T|r": {"PRIORITY": "x", "PACKET_ACTION": "DROP"})")),
              ElementsAre("1: /ACL_RULE/T|r/PRIORITY: \"x\" is not a whole number"));
  for (const char* fields :
       {R"("SRC_IP": "::1")", R"("DST_IPV6": "1.2.3.4")", R"("SRC_MAC": "1")",
        R"("IP_PROTOCOL": "256")", R"("NEXT_HEADER": "x")", R"("DSCP": "64")",
        R"("ETHER_TYPE": "65536")", R"("ICMP_TYPE": "-1")", R"("L4_SRC_PORT": "65536")",
        R"("L4_DST_PORT_RANGE": "2-1")", R"("TCP_FLAGS": "256")", R"("TCP_FLAGS": "1/x")",
        R"("IN_PORTS": "a,,b")"})
    EXPECT_THAT(refused(table(rule(fields))), ElementsAre(HasSubstr(" is not "))) << fields;
  EXPECT_THAT(refused(table(rule(R"("SRC_IP": "1.2.3.4", "DST_IPV6": "::1")"))),
              testing::Contains(HasSubstr("excludes what else the rule matches on")));
}

}  // namespace
