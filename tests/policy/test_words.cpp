// Entries in words.
#include "policy/model/words.h"

#include <gmock/gmock.h>

#include "policy/base/criteria.h"
#include "policy/model/name_hash.h"

namespace {

using namespace qimctl;
using Bytes = std::vector<uint8_t>;

Criterion of(const char* name, Bytes args = {}) {
  return {find_criterion_kind(std::string_view(name))->type, std::move(args)};
}

std::string words(std::vector<Criterion> criteria) {
  Entry entry;
  entry.criteria = std::move(criteria);
  return criteria_words(entry);
}

Bytes interface_args(const std::string& name, uint32_t index) {
  Bytes args{static_cast<uint8_t>(index >> 24), static_cast<uint8_t>(index >> 16),
             static_cast<uint8_t>(index >> 8), static_cast<uint8_t>(index)};
  args.insert(args.end(), name.begin(), name.end());
  return args;
}

Bytes ports(PortOperator op, uint8_t first, uint8_t last) {
  return {static_cast<uint8_t>(op), 0, first, 0, last};
}

TEST(Words, no_criterion_is_any_packet) {
  EXPECT_EQ(words({}), "any");
  EXPECT_EQ(words({{criterion_name, {'x'}}}), "any");
}

TEST(Words, go_from_the_outer_to_the_inner_header) {
  EXPECT_EQ(
      words({of("ipv4.protocol", {6}), of("ipv4.destination-ipv4-network", {192, 0, 2, 1, 32}),
             of("ipv4.source-ipv4-network", {10, 0, 0, 0, 8}), of("tcp.flags", {2}),
             of("tcp.source-port", {5, 4, 0, 0xff, 0xff}),
             of("tcp.destination-port", ports(PortOperator::eq, 22, 22))}),
      "ipv4 tcp from 10.0.0.0/8 port 1024-65535 to 192.0.2.1 port 22 flags syn");
  EXPECT_EQ(words({of("eth.destination-mac-address", {1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0}),
                   of("eth.source-mac-address",
                      {0, 0x11, 0x22, 0x33, 0x44, 0x55, 255, 255, 255, 255, 255, 255}),
                   of("eth.ethertype", {8, 6})}),
            "eth from 00:11:22:33:44:55 to 01:00:00:00:00:00/01:00:00:00:00:00 type arp");
  EXPECT_EQ(words({of("eth"), of("eth.ethertype", {0x88, 0xcc}), of("ipv4")}),
            "eth type 0x88cc ipv4");
}

TEST(Words, headers_alone) {
  EXPECT_EQ(words({of("ipv6")}), "ipv6");
  EXPECT_EQ(words({of("udp")}), "udp");
  EXPECT_EQ(words({of("eth")}), "eth");
  EXPECT_EQ(words({of("ipv4"), of("icmp")}), "ipv4 icmp");
}

TEST(Words, a_protocol_is_left_out_where_the_header_tells_it) {
  EXPECT_EQ(words({of("ipv4.protocol", {17}), of("udp")}), "ipv4 udp");
  EXPECT_EQ(words({of("ipv4.protocol", {17})}), "ipv4 protocol 17");
  EXPECT_EQ(words({of("ipv4.protocol", {17}), of("tcp")}), "ipv4 protocol 17 tcp");
  EXPECT_EQ(words({of("ipv4.protocol", {1}), of("icmp.type", {8})}), "ipv4 icmp type 8");
  EXPECT_EQ(words({of("ipv6.protocol", {58}), of("icmp.type", {128}), of("icmp.code", {0})}),
            "ipv6 icmp6 type 128 code 0");
  EXPECT_EQ(words({of("ipv6.protocol", {1}), of("icmp")}), "ipv6 protocol 1 icmp6");
}

TEST(Words, ports_without_an_address) {
  const auto to = [](PortOperator op, uint8_t last) {
    return words({of("udp.destination-port", ports(op, 53, last))});
  };
  EXPECT_EQ(to(PortOperator::eq, 53), "udp to any port 53");
  EXPECT_EQ(to(PortOperator::neq, 53), "udp to any port !=53");
  EXPECT_EQ(to(PortOperator::lte, 53), "udp to any port <=53");
  EXPECT_EQ(to(PortOperator::gte, 53), "udp to any port >=53");
  EXPECT_EQ(to(PortOperator::range, 60), "udp to any port 53-60");
}

TEST(Words, networks_of_ipv6) {
  Bytes net{0x20, 1, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 32};
  Bytes host = net;
  host[16] = 128;
  EXPECT_EQ(words({of("ipv6.destination-ipv6-network", net), of("ipv6.source-ipv6-network", host)}),
            "ipv6 from 2001:db8:: to 2001:db8::/32");
}

TEST(Words, other_fields_by_their_names) {
  EXPECT_EQ(words({of("ipv4.dscp", {10}), of("ipv4.flags", {3}), of("ipv4.length", {0, 60}),
                   of("udp.length", {0, 40})}),
            "ipv4 udp dscp 10 length 60 ip-flags fragment,more udp-length 40");
}

TEST(Words, interfaces) {
  EXPECT_EQ(
      words({of("interface.ingress-interface", interface_args("eth0", interface_index("eth0"))),
             of("interface.egress-interface", interface_args("eth 1", 7)), of("ipv4")}),
      "entering eth0 leaving \"eth 1\" (0x00000007) ipv4");
}

TEST(Words, what_only_another_model_understands) {
  const OpaqueMatch dns{"", "ietf-acldns", "dst-dnsname", "\"example.com\""};
  const OpaqueMatch within{"ipv4", "m", "n", "[1]"};
  EXPECT_EQ(words({to_criterion(dns)}),
            "ietf-acldns dst-dnsname \"example.com\" (only that model decides)");
  EXPECT_EQ(words({to_criterion(within), of("ipv4")}),
            "ipv4, m ipv4/n [1] (only that model decides)");
  EXPECT_EQ(words({{criterion_opaque, {9}}}), "0x0002 args 09");
}

TEST(Words, what_has_no_place_comes_last) {
  EXPECT_EQ(words({{0x1234, {1}}, of("tcp")}), "tcp, 0x1234 args 01");
  EXPECT_EQ(words({of("ipv4.dscp", {1, 2})}), "0x0301 args 0102");
  EXPECT_EQ(words({of("ipv4.dscp", {1}), of("ipv6.dscp", {2}), of("tcp"), of("udp")}),
            "ipv4 tcp dscp 1, ipv6.dscp 2, udp");
  EXPECT_EQ(words({of("ipv4.dscp", {1}), of("ipv4.dscp", {2})}), "ipv4 dscp 1, ipv4.dscp 2");
}

TEST(Words, actions) {
  Entry entry;
  EXPECT_EQ(action_words(entry), "drop");
  entry.forwarding = ActionType::accept;
  entry.log = true;
  entry.policer = "gold";
  EXPECT_EQ(action_words(entry), "accept log police gold");
}

TEST(Words, types_of_lists) {
  EXPECT_EQ(list_type_words(0), "any");
  EXPECT_EQ(list_type_words(acl_type_ipv6), "ipv6");
  EXPECT_EQ(list_type_words(7), "eth+ipv4+ipv6");
}

TEST(Words, policers) {
  Policer policer;
  EXPECT_EQ(policer_words(policer), "no limit");
  policer.peak_rate = 9;
  EXPECT_EQ(policer_words(policer), "peak 9 bytes/s");
  policer.unit = Policer::Unit::packets;
  policer.committed_rate = 5;
  policer.committed_burst = 6;
  EXPECT_EQ(policer_words(policer), "5 packets/s burst 6 peak 9 packets/s");
}

TEST(Words, names_that_are_no_word_are_quoted) {
  EXPECT_EQ(name_word("ge-0/0/0.1"), "ge-0/0/0.1");
  EXPECT_EQ(name_word(""), "\"\"");
  EXPECT_EQ(name_word("a b"), "\"a b\"");
  EXPECT_EQ(name_word("a\"b"), "\"a\\x22b\"");
}

}  // namespace
