// Every match as a match of the packet filter.
#include <gtest/gtest.h>

#include "tests/policy/nft/nft_support.h"

namespace {

using nft_test::matches_of;
using nft_test::refusal_of;
using Bytes = std::vector<uint8_t>;

constexpr const char* ipv4 =
    R"({"match":{"op":"==","left":{"meta":{"key":"protocol"}},"right":"ip"}})";
constexpr const char* ipv6 =
    R"({"match":{"op":"==","left":{"meta":{"key":"protocol"}},"right":"ip6"}})";

std::string bits(const std::string& base, uint32_t offset, uint32_t length) {
  return R"({"payload":{"base":")" + base + R"(","offset":)" + std::to_string(offset) +
         R"(,"len":)" + std::to_string(length) + "}}";
}

std::string is(const std::string& left, const std::string& right, const char* op = "==") {
  return std::string(R"({"match":{"op":")") + op + R"(","left":)" + left + R"(,"right":)" + right +
         "}}";
}

std::string with_mask(const std::string& left, uint64_t mask) {
  return R"({"&":[)" + left + "," + std::to_string(mask) + "]}";
}

std::string protocol(const std::string& numbers) {
  return is(R"({"meta":{"key":"l4proto"}})", numbers);
}

struct Case {
  const char* what;
  uint32_t type;
  Bytes args;
  std::string match;  // behind the header's own
};

TEST(NftConditions, FieldsOfIpv4) {
  const Case cases[] = {
      {"dscp", 0x0301, {46}, is(with_mask(bits("nh", 8, 8), 0xfc), "184")},
      {"ecn", 0x0302, {2}, is(with_mask(bits("nh", 8, 8), 3), "2")},
      {"length", 0x0303, {1, 0}, is(bits("nh", 16, 16), "256")},
      {"ttl", 0x0304, {64}, is(bits("nh", 64, 8), "64")},
      {"protocol", 0x0305, {47}, is(bits("nh", 72, 8), "47")},
      {"ihl", 0x0306, {6}, is(with_mask(bits("nh", 0, 8), 15), "6")},
      {"flags", 0x0307, {2}, is(with_mask(bits("nh", 48, 8), 0xe0), "64")},
      {"offset", 0x0308, {0, 5}, is(with_mask(bits("nh", 48, 16), 0x1fff), "5")},
      {"identification", 0x0309, {0, 9}, is(bits("nh", 32, 16), "9")},
      {"destination",
       0x030a,
       {10, 0, 0, 0, 8},
       is(with_mask(bits("nh", 128, 32), 0xff000000), "167772160")},
      {"source", 0x030b, {10, 0, 0, 1, 32}, is(bits("nh", 96, 32), "167772161")},
      {"any source", 0x030b, {0, 0, 0, 0, 0}, ""},
      {"header", 0x0300, {}, ""},
  };
  for (const Case& each : cases) {
    for (const char* kind : {"lw", "lb"}) {
      const std::string made = matches_of({{each.type, each.args}}, kind);
      EXPECT_EQ(made, std::string(ipv4) + "," + each.match + (each.match.empty() ? "" : ","))
          << each.what;
    }
    EXPECT_EQ(matches_of({{each.type, each.args}}, "lo"), "") << each.what;
    EXPECT_NE(matches_of({{each.type, each.args}}, "lx"), "") << each.what;
  }
}

TEST(NftConditions, FieldsOfIpv6) {
  Bytes network{0x20, 1, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  Bytes one = network;
  network.push_back(44);
  one[15] = 1;
  one.push_back(128);
  const Case cases[] = {
      {"dscp", 0x0401, {46}, is(with_mask(bits("nh", 0, 16), 0x0fc0), "2944")},
      {"ecn", 0x0402, {2}, is(with_mask(bits("nh", 0, 16), 0x30), "32")},
      {"length", 0x0403, {1, 0}, is(bits("nh", 32, 16), "256")},
      {"ttl", 0x0404, {64}, is(bits("nh", 56, 8), "64")},
      {"protocol", 0x0405, {47}, protocol("47")},
      {"flow label", 0x0408, {0, 0, 0, 7}, is(with_mask(bits("nh", 0, 32), 0xfffff), "7")},
      {"destination", 0x0406, network,
       is(bits("nh", 192, 32), "536939960") + "," +
           is(with_mask(bits("nh", 224, 32), 0xfff00000), "0")},
      {"source", 0x0407, one,
       is(bits("nh", 64, 32), "536939960") + "," + is(bits("nh", 96, 32), "0") + "," +
           is(bits("nh", 128, 32), "0") + "," + is(bits("nh", 160, 32), "1")},
  };
  for (const Case& each : cases)
    EXPECT_EQ(matches_of({{each.type, each.args}}, "lw"),
              std::string(ipv6) + "," + each.match + ",")
        << each.what;
  // Behind more extension headers than are looked at the protocol is open.
  EXPECT_EQ(matches_of({{0x0405, {47}}}, "lx"), std::string(ipv6) + ",");
}

TEST(NftConditions, FieldsOfTransports) {
  const Case cases[] = {
      {"sequence", 0x0501, {0, 0, 0, 9}, is(bits("th", 32, 32), "9")},
      {"acknowledgement", 0x0502, {0, 0, 0, 9}, is(bits("th", 64, 32), "9")},
      {"data offset", 0x0503, {5}, is(with_mask(bits("th", 96, 8), 0xf0), "80")},
      {"reserved", 0x0504, {5}, is(with_mask(bits("th", 96, 8), 15), "5")},
      {"flags", 0x0505, {2}, is(bits("th", 104, 8), "2")},
      {"window", 0x0506, {0, 2}, is(bits("th", 112, 16), "2")},
      {"urgent", 0x0507, {0, 2}, is(bits("th", 144, 16), "2")},
      {"source", 0x0509, {1, 0, 22, 0, 22}, is(bits("th", 0, 16), "22")},
      {"not", 0x050a, {2, 0, 22, 0, 22}, is(bits("th", 16, 16), "22", "!=")},
      {"up to", 0x050a, {3, 0, 22, 0, 22}, is(bits("th", 16, 16), R"({"range":[0,22]})")},
      {"from", 0x050a, {4, 0, 22, 0, 22}, is(bits("th", 16, 16), R"({"range":[22,65535]})")},
      {"range", 0x050a, {5, 0, 22, 0, 25}, is(bits("th", 16, 16), R"({"range":[22,25]})")},
      {"all", 0x050a, {5, 0, 0, 255, 255}, ""},
      {"udp length", 0x0601, {0, 8}, is(bits("th", 32, 16), "8")},
      {"icmp type", 0x0701, {8}, is(bits("th", 0, 8), "8")},
      {"icmp code", 0x0702, {1}, is(bits("th", 8, 8), "1")},
  };
  for (const Case& each : cases) {
    const std::string number = each.type < 0x0600   ? "6"
                               : each.type < 0x0700 ? "17"
                                                    : R"({"set":[1,58]})";
    EXPECT_EQ(matches_of({{each.type, each.args}}, "lw"),
              protocol(number) + "," + each.match + (each.match.empty() ? "" : ","))
        << each.what;
    EXPECT_EQ(matches_of({{each.type, each.args}}, "lb"), "") << each.what;
    EXPECT_EQ(matches_of({{each.type, each.args}}, "lo"), "") << each.what;
  }
  EXPECT_EQ(matches_of({{0x0300, {}}, {0x0700, {}}}, "lw"),
            std::string(ipv4) + "," + protocol("1") + ",");
  EXPECT_EQ(matches_of({{0x0400, {}}, {0x0700, {}}}, "lw"),
            std::string(ipv6) + "," + protocol("58") + ",");
}

TEST(NftConditions, FieldsOfEthernet) {
  const Bytes mac{0, 0, 0x5e, 0, 0x53, 1};
  Bytes exact = mac;
  exact.insert(exact.end(), 6, 0xff);
  Bytes masked = mac;
  masked.insert(masked.end(), {0xff, 0xff, 0xff, 0, 0, 0});
  Bytes any(12, 0);
  EXPECT_EQ(matches_of({{0x0201, exact}}, "lo"), is(bits("ll", 0, 48), "1577079553") + ",");
  EXPECT_EQ(matches_of({{0x0202, masked}}, "lo"),
            is(with_mask(bits("ll", 48, 48), 0xffffff000000), "1577058304") + ",");
  EXPECT_EQ(matches_of({{0x0202, any}}, "lo"), "");
  EXPECT_EQ(matches_of({{0x0203, {8, 6}}}, "lw"), is(bits("ll", 96, 16), "2054") + ",");
  EXPECT_EQ(matches_of({{0x0200, {}}}, "ly"), "");
}

TEST(NftConditions, WhatNoPacketMatchesHasNoRule) {
  const std::vector<std::vector<qimctl::Criterion>> all = {
      {{0x0300, {}}, {0x0400, {}}},  // two headers of one layer
      {{0x0500, {}}, {0x0600, {}}},
      {{0x0301, {64}}},             // more than the field holds
      {{0x050a, {5, 0, 9, 0, 8}}},  // nothing in between
      {{0x050a, {5, 0, 9, 0, 8}}, {0x0300, {}}},
      {{0x0305, {17}}, {0x0500, {}}},  // another protocol's header
      {{0x0405, {1}}, {0x0700, {}}},
      {{0x0101, {0,   0,   0,   1,   's', 'i', 'x', 't', 'e', 'e',
                 'n', 'l', 'e', 't', 't', 'e', 'r', 's', '!', '!'}}},
  };
  for (const auto& criteria : all)
    for (const char* kind : {"lw", "lb", "lo", "lx", "ly"})
      EXPECT_EQ(matches_of(criteria, kind), "");
  EXPECT_EQ(matches_of({{0x050a, {2, 0, 9, 0, 8}}}, "lw"), protocol("6") + ",")
      << "all but nothing";
  EXPECT_EQ(matches_of({{0x0305, {6}}, {0x0500, {}}}, "lw"),
            std::string(ipv4) + "," + protocol("6") + ",");
}

TEST(NftConditions, Interfaces) {
  EXPECT_EQ(matches_of({{0x0101, {0, 0, 0, 1, 'e', 't', 'h', '1'}}}, "lo"),
            is(R"({"meta":{"key":"iifname"}})", "\"eth1\"") + ",");
  EXPECT_EQ(refusal_of({{0x0102, {0, 0, 0, 1, 'e'}}}),
            "in/e: the match interface.egress-interface e (0x00000001) of packets that come in, of "
            "which that interface is not known");
  // A star would stand for all interfaces whose names begin so.
  EXPECT_NE(refusal_of({{0x0101, {0, 0, 0, 1, 'e', '*'}}}), "");
  EXPECT_EQ(matches_of({{0x0101, {0, 0, 0, 1, 'e', '/', '1'}}}, "lw"), "");
  EXPECT_NE(refusal_of({{0x0101, {0, 0, 0, 1, 'e'}}}, true), "");
  EXPECT_EQ(refusal_of({{0x0102, {0, 0, 0, 1, 'e'}}}, true), "");
}

TEST(NftConditions, BytesBehindTheFieldsOfHeaders) {
  EXPECT_EQ(matches_of({{0x0508, {1, 2, 3, 4, 5, 6, 7, 8}}}, "lw"),
            protocol("6") + "," + is(with_mask(bits("th", 96, 8), 0xf0), "112") + "," +
                is(bits("th", 160, 32), "16909060") + "," + is(bits("th", 192, 32), "84281096") +
                ",");
  // Only a header that is not whole has such options.
  EXPECT_EQ(matches_of({{0x0508, {1, 2, 3}}}, "lw"), "");
  EXPECT_EQ(matches_of({{0x0508, Bytes(44, 0)}}, "lw"), "");
  EXPECT_NE(
      nft_test::rules_of(qimctl::nft::translate(nft_test::model_of({nft_test::list_of(
                                                    {nft_test::entry_of({{0x0508, {1, 2, 3}}})})}))
                             .ruleset,
                         "lx.in")
          .size(),
      0u);
  EXPECT_EQ(matches_of({{0x0703, {1, 2, 3, 4, 5, 6, 7}}}, "lw"),
            protocol(R"({"set":[1,58]})") + "," + is(bits("th", 32, 32), "16909060") + "," +
                is(bits("th", 64, 24), "329223") + ",");
}

TEST(NftConditions, WhatTheKernelCannotDoIsNamed) {
  EXPECT_NE(refusal_of({{0x0703, Bytes(241, 0)}}).find("icmp.rest-of-header"), std::string::npos);
  EXPECT_EQ(refusal_of({{0x0703, Bytes(240, 0)}}), "");
  EXPECT_NE(refusal_of({{0x4711, {1}}}).find("which only another model decides"),
            std::string::npos);
  EXPECT_NE(refusal_of({{0x0002, {1}}}).find("which only another model decides"),
            std::string::npos);
  Bytes strange{0x20, 1, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 64};
  EXPECT_EQ(refusal_of({{0x0406, strange}}), "in/e: an address with bits behind its length");
  // In 32 bits it is a range like any other.
  EXPECT_EQ(matches_of({{0x030a, {10, 0, 0, 1, 24}}}, "lb"),
            std::string(ipv4) + "," +
                is(bits("nh", 128, 32), R"({"range":[167772161,167772415]})") + ",");
}

}  // namespace
