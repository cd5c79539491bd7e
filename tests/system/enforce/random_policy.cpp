// Random entries.
#include "tests/system/enforce/random_policy.h"

#include <algorithm>

#include "policy/base/criteria.h"
#include "tests/system/enforce/frames.h"

namespace random_policy {

namespace {

using qimctl::Criterion;
using qimctl::CriterionKind;
using qimctl::Encoding;
using qimctl::Header;
using testing_rov::Random;
using Bytes = std::vector<uint8_t>;

Bytes big_endian(uint64_t value, uint32_t width) {
  Bytes bytes;
  for (uint32_t i = width; i-- > 0;) bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
  return bytes;
}

Bytes prefix(Random& random, Bytes address) {
  const auto bits = static_cast<uint32_t>(8 * address.size());
  const uint32_t length = random.below(3) == 0 ? bits : random.below(bits + 1);
  for (uint32_t i = length; i < bits; i++)
    address[i / 8] = static_cast<uint8_t>(address[i / 8] & ~(0x80 >> i % 8));
  address.push_back(static_cast<uint8_t>(length));
  return address;
}

Bytes mac(Random& random) {
  Bytes address = frames::some_mac(random);
  Bytes mask(6, 0xff);
  if (random.below(2) == 0) mask[random.below(6)] = static_cast<uint8_t>(random());
  if (random.below(8) == 0) mask.assign(6, 0);
  for (size_t i = 0; i < 6; i++) address[i] &= mask[i];
  address.insert(address.end(), mask.begin(), mask.end());
  return address;
}

Bytes ports(Random& random) {
  uint16_t first = frames::some_port(random);
  uint16_t last = frames::some_port(random);
  const uint32_t op = 1 + random.below(5);
  if (op != 5) last = first;
  if (first > last) std::swap(first, last);
  Bytes bytes{static_cast<uint8_t>(op)};
  for (const uint16_t port : {first, last})
    for (const uint8_t byte : big_endian(port, 2)) bytes.push_back(byte);
  return bytes;
}

uint64_t value(Random& random, const CriterionKind& kind) {
  if (kind.name.ends_with(".protocol")) return frames::some_protocol(random);
  if (kind.name == "eth.ethertype") return frames::some_ethertype(random);
  if (kind.name == "ipv4.length") return 20 + random.below(60);
  if (kind.name == "ipv6.length") return random.below(60);
  if (kind.name.ends_with("ihl") || kind.name.ends_with("data-offset")) return 5 + random.below(2);
  if (kind.name == "tcp.flags") return random.below(2) == 0 ? 2 : random.below(256);
  const uint64_t wanted = frames::some_u8(random);
  return wanted > kind.max ? wanted & kind.max : wanted;
}

Bytes arguments(Random& random, const CriterionKind& kind, const std::string& interface) {
  switch (kind.encoding) {
    case Encoding::u8:
    case Encoding::ipv4_flags:
    case Encoding::tcp_flags:
      return big_endian(value(random, kind), 1);
    case Encoding::u16:
    case Encoding::u16_hex:
      return big_endian(value(random, kind), 2);
    case Encoding::u32:
      return big_endian(value(random, kind), 4);
    case Encoding::mac:
      return mac(random);
    case Encoding::ipv4_prefix:
      return prefix(random, frames::some_ipv4(random));
    case Encoding::ipv6_prefix:
      return prefix(random, frames::some_ipv6(random));
    case Encoding::ports:
      return ports(random);
    case Encoding::bytes: {
      if (kind.header == Header::icmp) return Bytes(1 + random.below(6), 0);
      return random.below(2) == 0 ? Bytes{1, 1, 1, 1} : Bytes(1 + random.below(8), 1);
    }
    case Encoding::interface: {
      Bytes bytes(4, 0);
      const std::string name = random.below(3) == 0 ? "other" : interface;
      bytes.insert(bytes.end(), name.begin(), name.end());
      return bytes;
    }
    default:
      return {};
  }
}

bool is_usable(const CriterionKind& kind, bool egress, bool deep) {
  if (kind.encoding == Encoding::bytes) return deep;
  if (kind.encoding == Encoding::opaque || kind.encoding == Encoding::text) return false;
  if (kind.encoding == Encoding::interface)
    return kind.name.ends_with("egress-interface") == egress;
  return true;
}

}  // namespace

qimctl::AccessList make_list(Random& random, const std::string& name, size_t entries, bool egress,
                             bool deep) {
  qimctl::AccessList list;
  list.name = name;
  list.default_action =
      random.below(2) == 0 ? qimctl::ActionType::drop : qimctl::ActionType::accept;
  for (size_t i = 0; i < entries; i++) {
    qimctl::Entry entry;
    entry.name = "e" + std::to_string(i);
    const Header network = random.below(2) == 0 ? Header::ipv4 : Header::ipv6;
    const Header transport = static_cast<Header>(QIM_HEADER_TCP + (random.below(3) << 8));
    const bool with_network = random.below(8) != 0;
    const bool with_transport = random.below(3) != 0;
    for (const CriterionKind& kind : qimctl::criterion_kinds()) {
      const bool wanted = (kind.header == network && with_network) ||
                          (kind.header == transport && with_transport) ||
                          ((kind.header == Header::eth || kind.header == Header::interface) &&
                           random.below(6) == 0);
      if (!wanted || !is_usable(kind, egress, deep)) continue;
      const bool is_common = kind.encoding == Encoding::ports || kind.encoding == Encoding::none ||
                             kind.name.ends_with("-network");
      if (random.below(is_common ? 3 : 9) == 0)
        entry.criteria.push_back({kind.type, arguments(random, kind, "far")});
    }
    if (entry.criteria.empty() && i + 1 != entries) entry.criteria.push_back({0x0500, {}});
    const uint32_t action = random.below(egress ? 2 : 3);
    entry.forwarding = static_cast<qimctl::ActionType>(1 + action);
    list.entries.push_back(std::move(entry));
  }
  return list;
}

qimctl::AccessList make_regular_list(Random& random, const std::string& name, size_t entries) {
  qimctl::AccessList list;
  list.name = name;
  for (size_t i = 0; i < entries; i++) {
    qimctl::Entry entry;
    entry.name = "e" + std::to_string(i);
    const bool is_tcp = random.below(2) == 0;
    Bytes port{5};
    const uint16_t first = frames::some_port(random);
    const auto last = static_cast<uint16_t>(std::min(first + 3, 65535));
    for (const uint16_t each : {first, last})
      for (const uint8_t byte : big_endian(each, 2)) port.push_back(byte);
    Bytes address = frames::some_ipv4(random);
    address.push_back(32);
    if (random.below(4) == 0) {
      address[3] = 0;
      address[4] = 24;
    }
    if (random.below(4) != 0) entry.criteria.push_back({0x030a, address});
    if (random.below(4) == 0)
      entry.criteria.push_back({0x030b, prefix(random, frames::some_ipv4(random))});
    entry.criteria.push_back({is_tcp ? 0x050au : 0x0603u, port});
    if (random.below(2) == 0)
      entry.criteria.push_back({is_tcp ? 0x0505u : 0x0601u, is_tcp ? Bytes{2} : Bytes{0, 8}});
    entry.forwarding = static_cast<qimctl::ActionType>(1 + random.below(2));
    list.entries.push_back(std::move(entry));
  }
  return list;
}

}  // namespace random_policy
