// What access lists decide, and what they can't tell.
#include "tests/policy/trace/trace_support.h"

namespace {

using namespace qimctl;
using trace_test::entry;
using trace_test::list;
using trace_test::model_of;

// "LIST/ENTRY action" of each outcome.
std::vector<std::string> outcomes(const Lists& lists, const std::string& packet) {
  std::vector<std::string> texts;
  for (const Outcome& outcome : Tracer(lists).trace(packet_from_words(packet), false).outcomes) {
    const AccessList& of = *lists[outcome.list];
    texts.push_back(of.name + "/" + (outcome.entry ? of.entries[*outcome.entry].name : "") + " " +
                    verdict_text(outcome.verdict));
  }
  return texts;
}

using Texts = std::vector<std::string>;

TEST(Evaluate, TheFirstMatchDecides) {
  const Model model = model_of(
      R"("acl":[)" +
      list("l", entry("ssh", R"("tcp":{"destination-port":{"port":22}})", "reject") + "," +
                    entry("net", R"("ipv4":{"source-ipv4-network":"192.0.2.0/24"})", "accept")) +
      "]");
  const Lists lists{&model.lists[0]};
  EXPECT_EQ(outcomes(lists, "tcp 192.0.2.5:1 > 198.51.100.7:22"), Texts{"l/ssh reject"});
  EXPECT_EQ(outcomes(lists, "tcp 192.0.2.5:1 > 198.51.100.7:23"), Texts{"l/net accept"});
  EXPECT_EQ(outcomes(lists, "tcp 192.0.3.5:1 > 198.51.100.7:23"), Texts{"l/ drop"});
}

TEST(Evaluate, ListsHandOnInTheOrderOfStages) {
  Model model = model_of(
      R"("acl":[)" + list("a", entry("a1", R"("tcp":{"destination-port":{"port":1}})", "drop")) +
      "," + list("b", entry("b1", R"("tcp":{})", "accept")) +
      R"(],"attachment-points":{"interface":[{"interface-id":"eth0","ingress":{"acl-sets":)"
      R"({"acl-set":[{"name":"a"},{"name":"b"}]}}}]})");
  const Lists in = lists_at(model, "eth0", QIM_DIR_IN);
  EXPECT_EQ(outcomes(in, "tcp 192.0.2.5:1 > 192.0.2.6:1"), Texts{"a/a1 drop"});
  EXPECT_EQ(outcomes(in, "tcp 192.0.2.5:1 > 192.0.2.6:2"), Texts{"b/b1 accept"});
  model.lists[0].default_action = ActionType::accept;
  EXPECT_EQ(outcomes(in, "udp 192.0.2.5:1 > 192.0.2.6:2"), Texts{"b/ drop"});
  std::swap(model.attachments[0].stage, model.attachments[1].stage);
  const Lists swapped = lists_at(model, "eth0", QIM_DIR_IN);
  EXPECT_EQ(outcomes(swapped, "tcp 192.0.2.5:1 > 192.0.2.6:1"), Texts{"b/b1 accept"});
  EXPECT_EQ(outcomes(swapped, "udp 192.0.2.5:1 > 192.0.2.6:2"), Texts{"a/ accept"});
  EXPECT_TRUE(lists_at(model, "eth0", dir_out).empty());
  EXPECT_TRUE(lists_at(model, "eth1", QIM_DIR_IN).empty());
}

TEST(Evaluate, WhatIsNotSaidIsFollowedBothWays) {
  const Model model = model_of(R"("acl":[)" +
                               list("l", entry("low", R"("ipv4":{"ttl":1})", "drop") + "," +
                                             entry("all", R"("ipv4":{})", "accept")) +
                               "]");
  const Lists lists{&model.lists[0]};
  EXPECT_EQ(outcomes(lists, "tcp 192.0.2.5:1 > 192.0.2.6:1"),
            (Texts{"l/low drop", "l/all accept"}));
  EXPECT_EQ(outcomes(lists, "tcp 192.0.2.5:1 > 192.0.2.6:1 ttl 1"), Texts{"l/low drop"});
  EXPECT_EQ(outcomes(lists, "tcp 192.0.2.5:1 > 192.0.2.6:1 ttl 2"), Texts{"l/all accept"});
  // Whatever IP it is, TCP or not: a header that is not said, and a value that is.
  EXPECT_EQ(outcomes(lists, "tcp ttl 2"), (Texts{"l/all accept", "l/ drop"}));
  EXPECT_EQ(outcomes(lists, "arp"), Texts{"l/ drop"});
}

TEST(Evaluate, AVerdictIsCertainWhenAllWaysLeadToIt) {
  Model model = model_of(R"("acl":[)" +
                         list("l", entry("low", R"("ipv4":{"ttl":1})", "accept") + "," +
                                       entry("all", R"("ipv4":{})", "accept")) +
                         "]");
  const Packet packet = packet_from_words("tcp 192.0.2.5:1 > 192.0.2.6:1");
  EXPECT_TRUE(Tracer({&model.lists[0]}).trace(packet, false).is_certain());
  model.lists[0].entries[0].forwarding = ActionType::reject;
  EXPECT_FALSE(Tracer({&model.lists[0]}).trace(packet, false).is_certain());
}

TEST(Evaluate, OthersMatchesLeaveItOpen) {
  Model model = model_of(R"("acl":[)" + list("l", entry("dns", R"("ipv4":{})", "accept")) + "]");
  Entry& dns = model.lists[0].entries[0];
  dns.criteria.insert(dns.criteria.begin(),
                      to_criterion({"ipv4", "example-dns", "name", "\"example.com\""}));
  const Lists lists{&model.lists[0]};
  EXPECT_EQ(outcomes(lists, "ipv4"), (Texts{"l/dns accept", "l/ drop"}));
  EXPECT_EQ(outcomes(lists, "ipv6"), Texts{"l/ drop"});
}

TEST(Evaluate, EveryKindOfCriterion) {
  struct Case {
    const char* matches;
    const char* yes;
    const char* no;
    const char* open;
  };
  for (const Case& each : {
           Case{R"("eth":{})", "eth", "no-eth", nullptr},
           Case{R"("eth":{"source-mac-address":"00:00:5e:00:53:00",
                "source-mac-address-mask":"ff:ff:ff:ff:ff:00"})",
                "eth from 00:00:5e:00:53:01", "eth from 00:00:5e:00:54:01", "eth"},
           Case{R"("eth":{"destination-mac-address":"00:00:5e:00:53:00"})",
                "eth to 00:00:5e:00:53:00", "eth to 00:00:5e:00:53:01", "eth"},
           Case{R"("eth":{"ethertype":"arp"})", "arp", "ipv4", "eth"},
           Case{R"("ipv4":{"flags":"fragment"})", "ipv4 df", "ipv4 more", "ipv4"},
           Case{R"("ipv4":{"offset":20})", "ipv4 offset 20", "ipv4", "ipv4 fragment"},
           Case{R"("ipv6":{"flow-label":3})", "ipv6 flow 3", "ipv6 flow 2", "ipv6"},
           Case{R"("ipv6":{"destination-ipv6-network":"2001:db8::/33"})",
                "ipv6 to 2001:db8:7fff::1", "ipv6 to 2001:db8:8000::1", "ipv6"},
           Case{R"("tcp":{"flags":"syn"})", "tcp syn", "tcp syn,ack", "tcp"},
           Case{R"("tcp":{"flags":""})", "tcp flags none", "tcp fin", "tcp"},
           Case{R"("tcp":{"options":"AQEBAQ=="})", "tcp options 01010101", "tcp options none",
                "tcp"},
           Case{R"("tcp":{"source-port":{"operator":"neq","port":5}})", "tcp any:4 > any",
                "tcp any:5 > any", "tcp"},
           Case{R"("tcp":{"source-port":{"operator":"lte","port":5}})", "tcp any:5 > any",
                "tcp any:6 > any", "tcp"},
           Case{R"("tcp":{"source-port":{"operator":"gte","port":5}})", "tcp any:5 > any",
                "tcp any:4 > any", "tcp"},
           Case{R"("udp":{"destination-port":{"lower-port":5,"upper-port":6}})", "udp any > any:6",
                "udp any > any:7", "udp"},
           Case{R"("udp":{"length":5})", "udp udp-length 5", "tcp", "udp"},
           Case{R"("icmp":{"type":8})", "icmp echo-request", "icmp echo-reply", "icmp"},
           Case{R"("icmp":{"rest-of-header":"AQI="})", "icmp rest 010203", "icmp rest 01", "icmp"},
           Case{R"("icmp":{})", "icmp6", "udp", "ipv4"},
           Case{R"("ingress-interface":"eth0")", "entering eth0 eth", "entering eth00 eth", "eth"},
           Case{R"("egress-interface":"eth0")", "leaving eth0 eth", "leaving eth1 eth", "eth"},
       }) {
    const Model model =
        model_of(R"("acl":[)" + list("l", entry("e", each.matches, "accept")) + "]");
    const Lists lists{&model.lists[0]};
    EXPECT_EQ(outcomes(lists, each.yes), Texts{"l/e accept"}) << each.matches;
    EXPECT_EQ(outcomes(lists, each.no), Texts{"l/ drop"}) << each.matches;
    if (each.open == nullptr) continue;
    EXPECT_EQ(outcomes(lists, each.open), (Texts{"l/e accept", "l/ drop"})) << each.matches;
  }
}

TEST(Evaluate, DamagedAndUnknownCriteriaLeaveItOpen) {
  for (const Criterion& criterion : {
           Criterion{0x0304, {1, 2}},               // a TTL of two bytes
           Criterion{0x0303, {1}},                  // a length of one
           Criterion{0x0501, {1}},                  // a sequence number of one
           Criterion{0x0400, {1}},                  // a header with a value
           Criterion{0x030a, {10, 0, 0, 0, 33}},    // a prefix longer than an address
           Criterion{0x030a, {10, 0, 0, 0}},        // without a length
           Criterion{0x0201, {1}},                  // half an address
           Criterion{0x0509, {9, 0, 1, 0, 1}},      // an operator that there is not
           Criterion{0x0509, {1}},                  // no port
           Criterion{0x0101, {0, 0, 0, 1}},         // an interface without a name
           Criterion{0x0999, {}},                   // a type that there is not
           Criterion{criterion_opaque, {9, 9, 9}},  // no match of another model
       }) {
    Entry one;
    one.name = "e";
    one.criteria = {criterion};
    one.forwarding = ActionType::accept;
    AccessList of;
    of.name = "l";
    of.entries = {one};
    EXPECT_EQ(outcomes({&of}, "icmp6 2001:db8::1 > 2001:db8::2 echo-request"),
              (Texts{"l/e accept", "l/ drop"}));
  }
}

TEST(Evaluate, NamesHoldForEveryPacket) {
  Entry one;
  one.name = "e";
  one.log = true;
  one.policer = "gold";
  one.criteria = {{criterion_name, {'e'}}};
  one.forwarding = ActionType::accept;
  AccessList of;
  of.name = "l";
  of.entries = {one};
  EXPECT_EQ(outcomes({&of}, "arp"), Texts{"l/e accept log police gold"});
}

TEST(Evaluate, SaysWhatEachEntryWasAskedAndWhyNot) {
  const Model model = model_of(
      R"("acl":[)" +
      list("l", entry("ssh", R"("ipv4":{"ttl":1},"tcp":{"destination-port":{"port":22}})", "drop") +
                    "," + entry("all", "", "accept")) +
      "]");
  const Tracer tracer({&model.lists[0]});
  const TraceResult result =
      tracer.trace(packet_from_words("tcp 192.0.2.5:1 > 192.0.2.6:23"), true);
  ASSERT_EQ(result.asked.size(), 2u);
  EXPECT_EQ(result.asked[0].answer.truth, Truth::no);
  EXPECT_EQ(result.asked[0].answer.criterion, 1u);
  EXPECT_EQ(result.asked[1].answer.truth, Truth::yes);
}

// What the packet has where a criterion asks, in words.
TEST(Evaluate, SaysWhatThePacketHas) {
  const auto has = [](const Criterion& criterion, const std::string& packet) {
    return value_text(to_condition(criterion), criterion, packet_from_words(packet));
  };
  EXPECT_EQ(has({0x0304, {1}}, "ipv4 ttl 3"), "3");
  EXPECT_EQ(has({0x0304, {1}}, "ipv4"), "not said");
  EXPECT_EQ(has({0x0304, {1}}, "ipv6 ttl 3"), "no ipv4 header");
  EXPECT_EQ(has({0x0500, {}}, "tcp"), "there");
  EXPECT_EQ(has({0x0500, {}}, "ipv4"), "not said");
  EXPECT_EQ(has({0x030b, {10, 0, 0, 0, 8}}, "ipv4 from 192.0.2.5"), "192.0.2.5");
  EXPECT_EQ(has({0x0407, std::vector<uint8_t>(17)}, "ipv6 from 2001:db8::1"), "2001:db8::1");
  EXPECT_EQ(has({0x0202, std::vector<uint8_t>(12)}, "eth from 00:00:5e:00:53:01"),
            "00:00:5e:00:53:01");
  EXPECT_EQ(has({0x0203, {8, 0}}, "arp"), "0x0806");
  EXPECT_EQ(has({0x0505, {2}}, "tcp syn,ack"), "ack,syn");
  EXPECT_EQ(has({0x0307, {2}}, "ipv4 more"), "more");
  EXPECT_EQ(has({0x0508, {2}}, "tcp"), "not said");
  EXPECT_EQ(has({0x0508, {2}}, "tcp options 0102"), "0102");
  EXPECT_EQ(has({0x0703, {2}}, "icmp rest none"), "none");
  EXPECT_EQ(has({0x0101, {0, 0, 0, 1, 'a'}}, "entering eth1 tcp"), "eth1");
  EXPECT_EQ(has({0x0101, {0, 0, 0, 1, 'a'}}, "tcp"), "not said");
  EXPECT_EQ(has({0x0102, {0, 0, 0, 1, 'a'}}, "leaving eth1 tcp"), "eth1");
  EXPECT_EQ(has({0x0102, {0, 0, 0, 1, 'a'}}, "tcp"), "not said");
  EXPECT_EQ(has({0x0999, {}}, "tcp"), "not known here");
  EXPECT_EQ(has({criterion_name, {'a'}}, "tcp"), "");
}

}  // namespace
