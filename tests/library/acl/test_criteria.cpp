// Criteria taken apart and put together.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "qim_acl.h"

namespace {

using Args = std::vector<uint8_t>;

uint32_t parse(uint32_t type, const Args& args, qim_crit_value_t& value) {
  return qim_crit_parse(type, static_cast<uint32_t>(args.size()), args.data(), &value);
}

std::string text(const qim_crit_bytes_t& bytes) {
  return {bytes.at, bytes.at + bytes.len};
}

qim_crit_bytes_t bytes(const std::string& text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), static_cast<uint32_t>(text.size())};
}

qim_crit_value_t value_of(uint32_t type) {
  qim_crit_value_t value{};
  value.type = type;
  return value;
}

// The arguments, or {status's low byte, 0xee} for a value that is refused.
Args build(const qim_crit_value_t& value) {
  uint32_t length = 99;
  uint32_t status = qim_crit_build(&value, 0, nullptr, &length);
  if (status == 0 && length == 0) return {};
  if (status != QIM_ERR_BUF_SMALL) {
    EXPECT_EQ(length, 0u);
    return {static_cast<uint8_t>(status), 0xee};
  }
  Args args(length + 1, 0x55);
  uint32_t written = 0;
  EXPECT_EQ(qim_crit_build(&value, length - 1, args.data(), &written), uint32_t{QIM_ERR_BUF_SMALL});
  EXPECT_EQ(args, Args(length + 1, 0x55));
  status = qim_crit_build(&value, length, args.data(), &written);
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(written, length);
  EXPECT_EQ(args.back(), 0x55);
  args.pop_back();
  return args;
}

const Args refused{QIM_ERR_INVALID & 0xff, 0xee};

// Arguments of each layout that mean something.
Args sample(const qim_crit_kind_t& kind) {
  switch (kind.layout) {
    case QIM_LAYOUT_U8:
      return {static_cast<uint8_t>(kind.max)};
    case QIM_LAYOUT_U16:
    case QIM_LAYOUT_U16_HEX:
      return {0x86, 0xdd};
    case QIM_LAYOUT_U32:
      return {0, 0x0f, 0xfe, 0xdc};
    case QIM_LAYOUT_IPV4_FLAGS:
      return {7};
    case QIM_LAYOUT_TCP_FLAGS:
      return {0xff};
    case QIM_LAYOUT_MAC:
      return {0, 0, 0x5e, 0, 0x53, 0, 0xff, 0xff, 0xff, 0xff, 0xff, 0};
    case QIM_LAYOUT_IPV4_NETWORK:
      return {192, 0, 2, 128, 25};
    case QIM_LAYOUT_IPV6_NETWORK:
      return {0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xc0, 122};
    case QIM_LAYOUT_PORTS:
      return {QIM_PORT_RANGE, 0x04, 0, 0x08, 0};
    case QIM_LAYOUT_BYTES:
      return {1, 1, 1, 0};
    case QIM_LAYOUT_INTERFACE:
      return {0x12, 0x34, 0x56, 0x78, 'e', 't', 'h', '0'};
    case QIM_LAYOUT_TEXT:
      return {'a', 'b'};
    case QIM_LAYOUT_MATCH:
      return {0, 0, 0, 1, 'm', 0, 2, 'n', 'n', '7'};
    default:
      return {};
  }
}

TEST(Kinds, AreFoundByNumberAndName) {
  uint32_t count = 0;
  const qim_crit_kind_t* kinds = qim_crit_kinds(&count);
  ASSERT_GE(count, 44u);
  for (uint32_t i = 0; i < count; i++) {
    EXPECT_EQ(qim_crit_kind_get(kinds[i].type), &kinds[i]);
    EXPECT_EQ(qim_crit_kind_named(kinds[i].name), &kinds[i]);
  }
  EXPECT_EQ(qim_crit_kind_get(0), nullptr);
  EXPECT_EQ(qim_crit_kind_get(0x0399), nullptr);
  EXPECT_EQ(qim_crit_kind_get(0xffffffff), nullptr);
  EXPECT_EQ(qim_crit_kind_named("ipv4.size"), nullptr);
}

TEST(Criteria, OfEveryTypeComeBack) {
  uint32_t count = 0;
  const qim_crit_kind_t* kinds = qim_crit_kinds(&count);
  for (uint32_t i = 0; i < count; i++) {
    const Args args = sample(kinds[i]);
    qim_crit_value_t value;
    ASSERT_EQ(parse(kinds[i].type, args, value), 0u) << kinds[i].name;
    EXPECT_EQ(value.type, kinds[i].type);
    EXPECT_EQ(value.layout, kinds[i].layout);
    EXPECT_EQ(build(value), args) << kinds[i].name;
  }
}

TEST(Criteria, AreTakenApartIntoHostOrder) {
  qim_crit_value_t value;
  ASSERT_EQ(parse(QIM_CRIT_ETH_ETHERTYPE, {0x86, 0xdd}, value), 0u);
  EXPECT_EQ(value.as.number, 0x86ddu);
  ASSERT_EQ(parse(QIM_CRIT_IPV4_SOURCE, {192, 0, 2, 1, 24}, value), 0u);
  EXPECT_EQ(value.as.network.address[3], 1);
  EXPECT_EQ(value.as.network.address[4], 0);
  EXPECT_EQ(value.as.network.bits, 24);
  ASSERT_EQ(parse(QIM_CRIT_TCP_DESTINATION, {QIM_PORT_RANGE, 4, 1, 8, 2}, value), 0u);
  EXPECT_EQ(value.as.ports.comparison, QIM_PORT_RANGE);
  EXPECT_EQ(value.as.ports.first, 0x401);
  EXPECT_EQ(value.as.ports.last, 0x802);
  const Args interface { 0, 0, 1, 2, 'e', '0' };
  ASSERT_EQ(parse(QIM_CRIT_EGRESS_INTERFACE, interface, value), 0u);
  EXPECT_EQ(value.as.interface.index, 0x102u);
  EXPECT_EQ(text(value.as.interface.name), "e0");
  const Args match{0, 4, 'i', 'p', 'v', '4', 0, 1, 'm', 0, 1, 'n', '[', ']'};
  ASSERT_EQ(parse(QIM_CRIT_OPAQUE, match, value), 0u);
  EXPECT_EQ(text(value.as.match.within), "ipv4");
  EXPECT_EQ(text(value.as.match.module), "m");
  EXPECT_EQ(text(value.as.match.name), "n");
  EXPECT_EQ(text(value.as.match.json), "[]");
}

TEST(Criteria, WithArgumentsOfAnotherLayoutAreRefused) {
  const struct {
    uint32_t type;
    Args args;
  } damaged[] = {
      {QIM_CRIT_IPV4, {0}},
      {QIM_CRIT_IPV4_TTL, {}},
      {QIM_CRIT_IPV4_TTL, {1, 2}},
      {QIM_CRIT_IPV4_LENGTH, {1}},
      {QIM_CRIT_ETH_SOURCE, Args(11)},
      {QIM_CRIT_IPV4_SOURCE, {1, 2, 3, 4, 33}},
      {QIM_CRIT_IPV6_SOURCE, Args(17, 129)},
      {QIM_CRIT_TCP_SOURCE, {0, 0, 1, 0, 1}},
      {QIM_CRIT_TCP_SOURCE, {6, 0, 1, 0, 1}},
      {QIM_CRIT_INGRESS_INTERFACE, {0, 0, 0, 1}},
      {QIM_CRIT_OPAQUE, {}},
      {QIM_CRIT_OPAQUE, {0, 0, 0, 2, 'm'}},
  };
  for (const auto& [type, args] : damaged) {
    qim_crit_value_t value;
    memset(&value, 0x77, sizeof value);
    EXPECT_EQ(parse(type, args, value), uint32_t{QIM_ERR_INVALID}) << type;
    EXPECT_EQ(value.type, type);
    EXPECT_EQ(value.layout, 0u);
    EXPECT_EQ(value.as.match.json.len, 0u);
  }
  qim_crit_value_t value;
  EXPECT_EQ(parse(0x7777, {1}, value), uint32_t{QIM_ERR_NOT_SUPPORTED});
  EXPECT_EQ(value.type, 0x7777u);
  EXPECT_EQ(build(value_of(0x7777)), (Args{QIM_ERR_NOT_SUPPORTED & 0xff, 0xee}));
}

TEST(Criteria, BeyondTheirBoundsAreNotBuilt) {
  qim_crit_value_t value = value_of(QIM_CRIT_IPV4_DSCP);
  value.as.number = 64;
  EXPECT_EQ(build(value), refused);
  value = value_of(QIM_CRIT_IPV4_OFFSET);
  value.as.number = 19;
  EXPECT_EQ(build(value), refused);
  value = value_of(QIM_CRIT_IPV4_FLAGS);
  value.as.number = 8;
  EXPECT_EQ(build(value), refused);
  value = value_of(QIM_CRIT_TCP_FLAGS);
  value.as.number = 0x100;
  EXPECT_EQ(build(value), refused);
  value = value_of(QIM_CRIT_IPV4_SOURCE);
  value.as.network.bits = 33;
  EXPECT_EQ(build(value), refused);
  value = value_of(QIM_CRIT_INGRESS_INTERFACE);
  EXPECT_EQ(build(value), refused);
  const std::string options(41, '\1');
  value = value_of(QIM_CRIT_TCP_OPTIONS);
  EXPECT_EQ(build(value), refused);
  value.as.bytes = bytes(options);
  EXPECT_EQ(build(value), refused);
  const std::string name(0x10000, 'n');
  value = value_of(QIM_CRIT_OPAQUE);
  value.as.match.name = bytes(name);
  EXPECT_EQ(build(value), refused);
}

TEST(Criteria, OfPortsSayWhatTheyCompare) {
  qim_crit_value_t value = value_of(QIM_CRIT_UDP_SOURCE);
  EXPECT_EQ(build(value), refused);
  value.as.ports = {6, 1, 1};
  EXPECT_EQ(build(value), refused);
  value.as.ports = {QIM_PORT_RANGE, 2, 1};
  EXPECT_EQ(build(value), refused);
  value.as.ports = {QIM_PORT_GTE, 1024, 0};
  EXPECT_EQ(build(value), (Args{QIM_PORT_GTE, 4, 0, 4, 0}));
}

TEST(Criteria, AreBuiltWithoutTheBitsThatDoNotCount) {
  qim_crit_value_t value = value_of(QIM_CRIT_IPV4_SOURCE);
  memset(&value.as.network, 0xff, 4);
  value.as.network.bits = 11;
  EXPECT_EQ(build(value), (Args{0xff, 0xe0, 0, 0, 11}));
  value.as.network.bits = 0;
  EXPECT_EQ(build(value), Args(5));
  value = value_of(QIM_CRIT_ETH_SOURCE);
  memset(value.as.mac.address, 0xff, 6);
  value.as.mac.mask[0] = 0xf0;
  EXPECT_EQ(build(value), (Args{0xf0, 0, 0, 0, 0, 0, 0xf0, 0, 0, 0, 0, 0}));
}

}  // namespace
