// Access lists of the OpenConfig model: what they become, and what is refused.
#include "policy/formats/openconfig/openconfig.h"

#include <gmock/gmock.h>

#include <cstdlib>

#include "policy/formats/any/any.h"
#include "policy/formats/rfc8519/rfc8519.h"
#include "tests/policy/formats/format_support.h"
#include "tests/policy/formats/model_support.h"
#include "tests/support/pace.h"

namespace {

using namespace qimctl;
using formats_test::entries_of;
using formats_test::findings_of;
using formats_test::problems_of;
using formats_test::words_of;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

ModelInput read(const std::string& text) {
  return read_openconfig(text, "in.json");
}

std::string list_text(const std::string& type, const std::string& entries) {
  return R"([{"name": "l", "type": ")" + type + R"(", "acl-entries": {"acl-entry": [)" + entries +
         "]}}]";
}

// An entry that accepts, with these members besides.
std::string entry_text(const std::string& members, int sequence = 10) {
  return R"({"sequence-id": )" + std::to_string(sequence) +
         R"(, "actions": {"config": {"forwarding-action": "ACCEPT"}}, )" + members + "}";
}

ModelInput read_entry(const std::string& type, const std::string& members) {
  return read(list_text(type, entry_text(members)));
}

std::vector<std::string> words(const std::string& type, const std::string& members) {
  return entries_of(read_entry(type, members).model.lists.at(0));
}

// Written, read and written again: what is told of losses is all that differs.
void expect_read_again(const Model& model) {
  const ModelText written = write_openconfig(model);
  const Model again = read(written.text()).model;
  if (written.findings.empty()) {
    ASSERT_EQ(words_of(again), words_of(model)) << written.text();
  }
  const ModelText twice = write_openconfig(again);
  EXPECT_THAT(twice.findings, IsEmpty());
  ASSERT_EQ(words_of(read(twice.text()).model), words_of(again)) << written.text();
  EXPECT_EQ(write_openconfig(read(twice.text()).model).text(), twice.text());
}

TEST(OpenConfig, TheExampleIsCarriedWholeAndReadAgain) {
  const ModelInput input = read(formats_test::example("campus.openconfig.json"));
  EXPECT_THAT(findings_of(input, Fate::accepted), SizeIs(3));
  EXPECT_THAT(input.findings, SizeIs(3));
  EXPECT_THAT(entries_of(input.model.lists.at(1)),
              ElementsAre("10: ipv6 tcp from 2001:db8:20::/64 port 1024-65535: accept",
                          "20: ipv6 ttl 1: drop"));
  EXPECT_THAT(entries_of(input.model.lists.at(2)),
              ElementsAre("1: eth from 00:00:5e:00:53:00/ff:ff:ff:ff:ff:00 type ipv4: accept"));
  EXPECT_EQ(input.model.attachments.at(2).interface, "vlan30");
  EXPECT_EQ(input.model.attachments.at(2).dir, dir_out);
  EXPECT_EQ(input.model.attachments.at(1).stage, 2u);
  const ModelText written = write_openconfig(input.model);
  EXPECT_THAT(written.findings, IsEmpty());
  EXPECT_EQ(words_of(read(written.text()).model), words_of(input.model));
}

TEST(OpenConfig, GeneratedModelsAreReadAgain) {
  const bool slow = pace::emulated() || pace::kSanitized || getenv("QIM_COUNTED") != nullptr;
  const uint32_t count = slow ? 30 : 200;
  for (uint32_t number = 0; number < count; number++) {
    expect_read_again(formats_test::generated_model(number));
    if (HasFatalFailure()) return;
  }
  expect_read_again(read_rfc8519(formats_test::example("edge-router.rfc8519.json"), "e").model);
}

TEST(OpenConfig, ListsOfGeneratorsAreCarried) {
  for (const char* name :
       {"openconfig/aerleon_everything.json", "openconfig/aerleon_multi_dport.json",
        "openconfig/aerleon_tcp_established.json"}) {
    const std::string text = formats_test::real_data(name);
    if (text.empty()) GTEST_SKIP() << name << " is not there; QIM_DATA_DIR tells its folder";
    EXPECT_EQ(guess_format(text), Format::openconfig);
    const ModelInput input = read(text);
    EXPECT_THAT(findings_of(input, Fate::skipped), IsEmpty());
    EXPECT_THAT(findings_of(input, Fate::approximated), IsEmpty());
    EXPECT_THAT(input.emptied, IsEmpty());
    EXPECT_THAT(write_openconfig(input.model).findings, IsEmpty());
    expect_read_again(input.model);
  }
}

TEST(OpenConfig, EntriesAreCalledByWhatDescribesThemAlone) {
  const auto entry = [](int sequence, const std::string& description) {
    return entry_text(R"("config": {"description": )" + description + "}", sequence);
  };
  std::string entries;
  for (const auto& [sequence, description] :
       std::initializer_list<std::pair<int, std::string>>{{30, "\"last\""},
                                                          {10, "\"same\""},
                                                          {20, "\"same\""},
                                                          {40, "\"30\""},
                                                          {50, "\"50\""},
                                                          {60, "\"\\u200b\\u0085\""},
                                                          {70, '"' + std::string(65, 'x') + '"'}})
    entries += (entries.empty() ? "" : ",") + entry(sequence, description);
  std::vector<std::string> names;
  const ModelInput input = read(list_text("ACL_L2", entries));
  for (const Entry& one : input.model.lists[0].entries) names.push_back(one.name);
  EXPECT_THAT(names, ElementsAre("10", "20", "last", "40", "50", testing::_, "70"));
}

TEST(OpenConfig, ReadsEveryMatch) {
  EXPECT_THAT(words("ACL_IPV4", R"("config": {"sequence-id": 10})"),
              ElementsAre("10: ipv4: accept"));
  EXPECT_THAT(words("openconfig-acl:ACL_IPV6", R"("ipv6": {"config": {}})"),
              ElementsAre("10: ipv6: accept"));
  EXPECT_THAT(words("ACL_MIXED", R"("l2": {}, "ipv4": {})"), ElementsAre("10: eth ipv4: accept"));
  EXPECT_THAT(words("ACL_L2", R"("l2": {"config": {"ethertype": 35020}})"),
              ElementsAre("10: eth type 0x88cc: accept"));
  EXPECT_THAT(words("ACL_L2", R"("l2": {"config": {"destination-mac": "00:00:5E:00:53:01",
              "ethertype": "ETHERTYPE_ARP"}})"),
              ElementsAre("10: eth to 00:00:5e:00:53:01 type arp: accept"));
  EXPECT_THAT(words("ACL_IPV4", R"("ipv4": {"config": {"protocol": 17, "dscp": 0}},
              "transport": {"config": {"source-port": "ANY", "destination-port": "53"}})"),
              ElementsAre("10: ipv4 udp to any port 53 dscp 0: accept"));
  EXPECT_THAT(words("ACL_IPV4", R"("ipv4": {"state": {"protocol": "x:IP_GRE"}}, "state":
              {"matched-packets": "7"})"),
              ElementsAre("10: ipv4 protocol 47: accept"));
  EXPECT_THAT(words("ACL_IPV4", R"("input-interface": {"interface-ref": {"config":
              {"interface": "eth0"}}})"),
              ElementsAre("10: entering eth0 ipv4: accept"));
}

TEST(OpenConfig, PortsOfNoProtocolAreOfBoth) {
  const ModelInput input = read_entry(
      "ACL_IPV4", R"("transport": {"config": {"source-port": 1, "destination-port": "2..3"}})");
  EXPECT_THAT(entries_of(input.model.lists[0]),
              ElementsAre("10: ipv4 tcp from any port 1 to any port 2-3: accept",
                          "10 (2): ipv4 udp from any port 1 to any port 2-3: accept"));
  EXPECT_THAT(findings_of(input, Fate::approximated), SizeIs(2));
}

TEST(OpenConfig, WhatOthersDecideIsCarriedWhole) {
  const ModelInput input = read_entry("ACL_IPV4", R"(
    "ipv4": {"config": {"dscp-set": [1, 2], "vendor-x:ttl": {"b": 1, "a": 2}}},
    "input-interface": {"interface-ref": {"config": {"interface": "e", "subinterface": 0}}},
    "transport": {"config": {"detail-mode": "BUILTIN", "builtin-detail": "TCP_ESTABLISHED"}})");
  EXPECT_THAT(findings_of(input, Fate::skipped), IsEmpty());
  ASSERT_THAT(input.model.lists[0].entries, SizeIs(1));
  EXPECT_EQ(to_opaque(input.model.lists[0].entries[0].criteria.at(0)),
            (OpaqueMatch{"", "vendor-x", "ipv4.ttl", R"({"a":2,"b":1})"}));
  const ModelText written = write_openconfig(input.model);
  EXPECT_THAT(written.findings, IsEmpty());
  EXPECT_EQ(words_of(read(written.text()).model), words_of(input.model));
}

TEST(OpenConfig, EntriesWithSomethingElseAreLeftOut) {
  const char* const cases[][2] = {
      {R"("mpls": {})", "\"mpls\""},
      {R"("config": {"x:a": 1})", "\"x:a\""},
      {R"("ipv4": {"icmpv4": {}})", "\"ipv4/icmpv4\""},
      {R"("ipv4": {"config": {"protocol": "IP_NEW"}})", "the protocol \"IP_NEW\""},
      {R"("ipv4": {"config": {"x": 1e300}})", "\"x\" with a number of 2^53 or more"},
      {R"("ipv4": {"config": {"protocol": 132}}, "transport": {"config": {"source-port": 1}})",
       "a port of the protocol 132"},
      {R"("l2": {"config": {"ethertype": "ETHERTYPE_NEW"}})",
       "the Ethernet type \"ETHERTYPE_NEW\""},
      {R"("l2": {"config": {"source-mac-mask": "00:00:00:00:00:01"}})", "a mask without"},
      {R"("input-interface": {"interface-ref": {"x:a": 1}})", "\"interface-ref/x:a\""},
  };
  for (const auto& [members, what] : cases) {
    const ModelInput input = read_entry("ACL_MIXED", members);
    EXPECT_THAT(findings_of(input, Fate::skipped), ElementsAre(HasSubstr(what))) << members;
    EXPECT_THAT(input.emptied, SizeIs(1));
  }
  const auto with_actions = [](const std::string& config) {
    return read(list_text("ACL_IPV4", R"({"sequence-id": 1, "actions": )" + config + "}"));
  };
  for (const auto& [actions, what] : std::initializer_list<std::pair<const char*, const char*>>{
           {R"({"config": {"forwarding-action": "x:COUNT"}})", "the action \"COUNT\""},
           {R"({"config": {"forwarding-action": "DROP", "log-action": "LOG_X"}})",
            "the logging \"LOG_X\""},
           {R"({"config": {"forwarding-action": "DROP", "x:mark": 1}})", "\"x:mark\""},
           {R"({"config": {"forwarding-action": "REJECT"}, "x:y": 1})", "\"x:y\""}})
    EXPECT_THAT(findings_of(with_actions(actions), Fate::skipped), ElementsAre(HasSubstr(what)));
}

TEST(OpenConfig, OtherThingsAreLeftOutAndNamed) {
  const ModelInput input = read(R"({
    "openconfig-interfaces:interfaces": {},
    "openconfig-acl:acl": {
      "@": {}, "config": {}, "state": {"counter-capability": "X"}, "set": 1,
      "acl-sets": {"more": 1, "acl-set": [{"name": "l", "type": "ACL_L2", "order": 1,
        "config": {"name": "l", "type": "ACL_L2", "description": "d", "x:y": 1},
        "acl-entries": {"count": 0}}]},
      "interfaces": {"many": 1, "interface": [{"id": "e", "config": {"id": "e"},
        "interface-ref": {"config": {"interface": "e"}}, "speed": 1,
        "egress-acl-sets": {"x": 1, "egress-acl-set": [{"set-name": "l"}]}}]}}})");
  EXPECT_THAT(findings_of(input, Fate::skipped), SizeIs(9));
  EXPECT_THAT(findings_of(input, Fate::skipped).back(),
              "2: /openconfig-interfaces:interfaces: \"openconfig-interfaces:interfaces\" is not "
              "known here and is left out");
  EXPECT_THAT(input.model.attachments, SizeIs(1));
}

TEST(OpenConfig, RefusesWhatIsWrong) {
  const auto refused = [](const std::string& text) { return problems_of([&text] { read(text); }); };
  const auto entry = [&refused](const std::string& type, const std::string& members) {
    return refused(list_text(type, entry_text(members)));
  };
  EXPECT_THAT(refused("{}"), ElementsAre(HasSubstr("1: : has no access lists")));
  EXPECT_THAT(refused("7"), ElementsAre(HasSubstr("has no access lists")));
  EXPECT_THAT(refused("[1]"), ElementsAre(HasSubstr("/0: an access list needs")));
  EXPECT_THAT(refused(R"([{"name": "l"}])"), ElementsAre(HasSubstr("needs \"name\" and \"type\"")));
  EXPECT_THAT(refused(R"([{"name": "", "type": "ACL_L2"}])"),
              ElementsAre("1: /0/name: must not be empty"));
  EXPECT_THAT(refused(R"([{"name": "l", "type": "ACL_L9"}])"),
              ElementsAre(HasSubstr("\"ACL_L9\" is not a type; use \"ACL_IPV4\"")));
  EXPECT_THAT(refused(R"([{"name": "l", "type": "ACL_L2"},
                          {"name": "l", "type": "ACL_IPV4"}])"),
              ElementsAre(HasSubstr("2: /1/name: access list \"l\" comes twice")));
  EXPECT_THAT(refused(R"({"acl": []})"), ElementsAre(HasSubstr("must be an object, not an array")));
  EXPECT_THAT(refused(R"({"acl": {"acl-sets": {"acl-set": {}}}})"),
              ElementsAre(HasSubstr("must be an array, not an object")));
  EXPECT_THAT(
      refused(list_text("ACL_L2", R"({"actions": {"config": {"forwarding-action": "DROP"}}})")),
      ElementsAre(HasSubstr("needs a \"sequence-id\"")));
  EXPECT_THAT(refused(list_text("ACL_L2", R"({"sequence-id": 1})")),
              ElementsAre(HasSubstr("needs a \"forwarding-action\"")));
  EXPECT_THAT(refused(list_text("ACL_L2", "1")), SizeIs(2));
  EXPECT_THAT(
      refused(list_text("ACL_L2", entry_text("\"x:y\": 1") + "," + entry_text("\"x:y\": 1"))),
      ElementsAre(HasSubstr("/0/acl-entries/acl-entry/1: the sequence-id comes twice")));
  EXPECT_THAT(entry("ACL_IPV4", R"("ipv6": {})"), SizeIs(2));
  EXPECT_THAT(entry("ACL_L2", R"("ipv4": {})"),
              ElementsAre(HasSubstr("\"ipv4\" cannot be matched in an access list of the type")));
  EXPECT_THAT(entry("ACL_IPV6", R"("l2": {})"), SizeIs(1));
  EXPECT_THAT(entry("ACL_MIXED", R"("ipv4": {}, "ipv6": {})"),
              ElementsAre(HasSubstr("excludes what else the entry matches on")));
  EXPECT_THAT(entry("ACL_IPV4", R"("config": {"description": 1})"), SizeIs(1));
  EXPECT_THAT(entry("ACL_IPV4", R"("ipv4": {"config": {"dscp": 64}})"),
              ElementsAre(HasSubstr("is 64, but must be a whole number, 0 to 63")));
  EXPECT_THAT(entry("ACL_IPV4", R"("ipv4": {"config": {"protocol": 256}})"), SizeIs(1));
  for (const char* address : {"1", "\"1.2.3.4/33\"", "\"1.2.3.4/\"", "\"::/0\"", "\"1.2.3.4/0x8\""})
    EXPECT_THAT(entry("ACL_IPV4",
                      R"("ipv4": {"config": {"source-address": )" + std::string(address) + "}}"),
                SizeIs(1));
  EXPECT_THAT(entry("ACL_IPV6", R"("ipv6": {"config": {"source-address": "1.2.3.4"}})"),
              ElementsAre(HasSubstr("\"1.2.3.4\" is not an IPv6 prefix")));
  for (const char* mac :
       {"1", "\"00:00:5e:00:53\"", "\"00-00-5e-00-53-01\"", "\"00:00:5e:00:53:0x\""})
    EXPECT_THAT(entry("ACL_L2", R"("l2": {"config": {"source-mac": )" + std::string(mac) + "}}"),
                SizeIs(1));
  EXPECT_THAT(entry("ACL_L2", R"("l2": {"config": {"ethertype": 65536}})"), SizeIs(1));
  for (const char* port : {"65536", "\"2..1\"", "\"1..\"", "true"})
    EXPECT_THAT(
        entry("ACL_IPV4", R"("transport": {"config": {"source-port": )" + std::string(port) + "}}"),
        ElementsAre(HasSubstr("is no port")));
  EXPECT_THAT(entry("ACL_IPV4", R"("input-interface": {"interface-ref": {"config":
                {"interface": 1}}})"),
              SizeIs(1));
}

TEST(OpenConfig, RefusesWrongInterfaces) {
  const auto refused = [](const std::string& interfaces) {
    return problems_of([&interfaces] {
      read(R"({"acl": {"acl-sets": {"acl-set": [{"name": "l", "type": "ACL_L2"}]},
               "interfaces": {"interface": [)" +
           interfaces + "]}}}");
    });
  };
  EXPECT_THAT(refused("{}"), ElementsAre(HasSubstr("needs an \"id\"")));
  EXPECT_THAT(refused(R"({"id": 1})"), SizeIs(1));
  const auto attached = [&refused](const std::string& lists) {
    return refused(R"({"id": "e", "ingress-acl-sets": {"ingress-acl-set": [)" + lists + "]}}");
  };
  EXPECT_THAT(attached("{}"), ElementsAre(HasSubstr("needs a \"set-name\"")));
  EXPECT_THAT(attached(R"({"set-name": 1})"), SizeIs(1));
  EXPECT_THAT(attached(R"({"set-name": "m"})"),
              ElementsAre(HasSubstr("there is no access list \"m\"")));
  EXPECT_THAT(attached(R"({"set-name": "l"}, {"set-name": "l"})"),
              ElementsAre(HasSubstr("\"l\" is attached twice to if:e/in; remove one")));
}

Model model_of(std::vector<Criterion> criteria, uint32_t type = acl_type_ipv4) {
  Entry entry;
  entry.name = "e";
  entry.criteria = std::move(criteria);
  Model model;
  model.lists.push_back({"l", type, {entry}, ActionType::drop, {}});
  return model;
}

std::vector<std::string> losses(const Model& model) {
  std::vector<std::string> losses;
  for (const Finding& finding : write_openconfig(model).findings)
    losses.push_back(finding.place.file + ": " + finding.what);
  return losses;
}

TEST(OpenConfig, SaysWhatItHasNoWordFor) {
  Model model = model_of({{0x0300, {}}});
  model.lists[0].default_action = ActionType::accept;
  model.lists[0].entries[0].policer = "gold";
  model.lists.push_back({std::string(65, 'x'), 0, {}, ActionType::drop, {}});
  model.lists[0].entries.push_back(model.lists[0].entries[0]);
  model.lists[0].entries[1].name = "\x01";
  model.attachments.push_back({"l", "\x01", QIM_DIR_IN, 1, {}});
  EXPECT_THAT(losses(model),
              ElementsAre(HasSubstr("l/\x01: entry left out, for this format can't carry a name"),
                          HasSubstr("l: this format can't say what becomes of packets"),
                          HasSubstr("access list left out"), HasSubstr("interface left out"),
                          "l/e: written without the policer \"gold\", which this format has no "
                          "word for"));
}

TEST(OpenConfig, LeavesOutEntriesThatItCannotSay) {
  const std::vector<std::vector<Criterion>> cases{
      {{0x9999, {1}}},
      {{0x0305, {1, 2}}},
      {{0x0102, {0, 0, 0, 1, 'x'}}},
      {{0x0101, {0, 0, 0, 1, '\x01'}}},
      {{0x0301, {64}}},
      {{0x0505, {2}}},
      {{0x0509, {2, 0, 1, 0, 1}}},
      {{0x0500, {}}, {0x0600, {}}},
      {{0x0305, {17}}, {0x0500, {}}},
      {{0x0700, {}}},
      {{criterion_opaque, {1}}},
      {to_criterion({"", "m", "name", "1"})},
      {to_criterion({"", "m", "mpls.name", "1"})},
      {to_criterion({"ipv4", "m", "ipv4.name", "1"})},
      {to_criterion({"", "openconfig-acl", "ipv4.dscp", "1"})},
      {to_criterion({"", "openconfig-acl", "ipv4.state", "1"})},
      {to_criterion({"", "m", "ipv4.x", "{"})},
      {to_criterion({"", "m", "ipv4.x", "{ }"})}};
  for (const std::vector<Criterion>& criteria : cases)
    EXPECT_THAT(losses(model_of(criteria)), ElementsAre(HasSubstr("l/e: entry left out")))
        << criteria[0].type;
  EXPECT_THAT(losses(model_of({{0x0500, {}}}, acl_type_eth)),
              ElementsAre(HasSubstr("TCP or UDP of either IPv4 or IPv6")));
}

TEST(OpenConfig, SaysHowEntriesAreReadAgain) {
  EXPECT_THAT(losses(model_of({{0x0509, {3, 0, 9, 0, 9}}})),
              ElementsAre("l/e: written as ipv4 tcp from any port 0-9: drop"));
  EXPECT_THAT(losses(model_of({{0x0400, {}}, {0x0602, {4, 0, 9, 0, 9}}}, acl_type_ipv6)),
              ElementsAre("l/e: written as ipv6 udp from any port 9-65535: drop"));
  EXPECT_THAT(losses(model_of({{0x0500, {}}}, acl_type_ipv6)),
              ElementsAre("l/e: written as ipv6 protocol 6: drop"));
  EXPECT_THAT(losses(model_of({{0x0305, {6}}}, acl_type_eth | acl_type_ipv4)),
              ElementsAre("l: written with the type \"ACL_MIXED\""));
}

TEST(OpenConfig, WritesTheListsThatAreNamed) {
  Model model = model_of({{0x0300, {}}});
  model.lists.push_back({"m", acl_type_eth, {}, ActionType::drop, {}});
  model.attachments.push_back({"l", "e", QIM_DIR_IN, 1, {}});
  const Model one = read(write_openconfig(model, {"m"}).text()).model;
  ASSERT_THAT(one.lists, SizeIs(1));
  EXPECT_EQ(one.lists[0].name, "m");
  EXPECT_THAT(one.attachments, IsEmpty());
}

}  // namespace
