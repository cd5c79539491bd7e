// The registry of criterion and action types.
#include "policy/base/criteria.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace {

using qimctl::criterion_text;
using Bytes = std::vector<uint8_t>;

TEST(Criteria, AreFoundByTypeAndByName) {
  for (const qimctl::CriterionKind& kind : qimctl::criterion_kinds()) {
    EXPECT_EQ(qimctl::find_criterion_kind(kind.type), &kind);
    EXPECT_EQ(qimctl::find_criterion_kind(kind.name), &kind);
    EXPECT_TRUE(kind.name.starts_with(qimctl::header_name(kind.header)));
    EXPECT_EQ(kind.type & 0xff00u, static_cast<uint32_t>(kind.header));
  }
  EXPECT_EQ(qimctl::find_criterion_kind(0), nullptr);
  EXPECT_EQ(qimctl::find_criterion_kind(0x0399), nullptr);
  EXPECT_EQ(qimctl::find_criterion_kind(0xffffffff), nullptr);
  EXPECT_EQ(qimctl::find_criterion_kind("ipv4.size"), nullptr);
}

TEST(Criteria, AHeaderAloneHasNoField) {
  EXPECT_EQ(qimctl::find_criterion_kind("ipv4")->field(), "");
  EXPECT_EQ(qimctl::find_criterion_kind("ipv4.ttl")->field(), "ttl");
}

TEST(Criteria, ATypeThatIsNotKnownReadsAsNumbers) {
  EXPECT_EQ(criterion_text(0x7, {}), "0x0007");
  EXPECT_EQ(criterion_text(0x12345678, Bytes{1, 0xab}), "0x12345678 args 01ab");
}

TEST(Criteria, ArgumentsOfAnotherLayoutReadAsNumbers) {
  const std::pair<const char*, Bytes> cases[] = {
      {"tcp", {1}},
      {"ipv4.ttl", {}},
      {"ipv4.ttl", {1, 2}},
      {"ipv4.length", {1}},
      {"eth.ethertype", {1, 2, 3}},
      {"ipv6.flow-label", {1, 2, 3}},
      {"ipv4.flags", {8}},
      {"ipv4.flags", {1, 1}},
      {"tcp.flags", {}},
      {"eth.source-mac-address", {1, 2, 3, 4, 5, 6}},
      {"ipv4.source-ipv4-network", {192, 0, 2, 0}},
      {"ipv4.source-ipv4-network", {192, 0, 2, 0, 33}},
      {"ipv6.source-ipv6-network", Bytes(16, 0)},
      {"tcp.source-port", {1, 0, 80}},
      {"tcp.source-port", {1, 0, 80, 0, 81}},
      {"tcp.source-port", {6, 0, 80, 0, 80}},
      {"tcp.source-port", {0, 0, 80, 0, 80}},
      {"interface.ingress-interface", {0, 0, 0, 1}},
  };
  for (const auto& [name, args] : cases) {
    const std::string text =
        criterion_text(qimctl::find_criterion_kind(std::string_view(name))->type, args);
    EXPECT_TRUE(text.starts_with("0x0")) << name << ": " << text;
  }
}

TEST(Criteria, NamesOfInterfacesCannotSteerATerminal) {
  EXPECT_EQ(criterion_text(0x0101, Bytes{0, 0, 0, 1, 'a', 0x1b, 0xff}),
            R"(interface.ingress-interface a\x1b\xff (0x00000001))");
}

TEST(Criteria, ActionsHaveTheirNames) {
  EXPECT_EQ(qimctl::action_name(1), "accept");
  EXPECT_EQ(qimctl::action_name(2), "drop");
  EXPECT_EQ(qimctl::action_name(3), "reject");
  EXPECT_EQ(qimctl::action_name(0x101), "log-syslog");
  EXPECT_EQ(qimctl::action_name(0), "");
  EXPECT_EQ(qimctl::action_name(4), "");
}

}  // namespace
