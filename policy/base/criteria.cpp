// The table of criterion types, and the names of actions.
#include "policy/base/criteria.h"

#include <algorithm>
#include <array>
#include <utility>

namespace qimctl {

namespace {

using enum Encoding;

constexpr CriterionKind row(Header header, uint32_t field, std::string_view name, Encoding encoding,
                            uint32_t min = 0, uint32_t max = 0) {
  return {static_cast<uint32_t>(header) | field, header, name, encoding, min, max};
}

constexpr uint32_t max_u8 = 0xff;
constexpr uint32_t max_u16 = 0xffff;
constexpr uint32_t max_u32 = 0xffffffff;

// But for those of `entry`, the fields, their names and their bounds are those of RFC 8519, sections
// 4.1 and 4.2.
constexpr std::array kinds{
    row(Header::entry, 1, "entry.name", text),
    row(Header::entry, 2, "entry.opaque", opaque),

    row(Header::interface, 1, "interface.ingress-interface", interface),
    row(Header::interface, 2, "interface.egress-interface", interface),

    row(Header::eth, 0, "eth", none),
    row(Header::eth, 1, "eth.destination-mac-address", mac),
    row(Header::eth, 2, "eth.source-mac-address", mac),
    row(Header::eth, 3, "eth.ethertype", u16_hex, 0, max_u16),

    row(Header::ipv4, 0, "ipv4", none),
    row(Header::ipv4, 1, "ipv4.dscp", u8, 0, 63),
    row(Header::ipv4, 2, "ipv4.ecn", u8, 0, 3),
    row(Header::ipv4, 3, "ipv4.length", u16, 0, max_u16),
    row(Header::ipv4, 4, "ipv4.ttl", u8, 0, max_u8),
    row(Header::ipv4, 5, "ipv4.protocol", u8, 0, max_u8),
    row(Header::ipv4, 6, "ipv4.ihl", u8, 5, 60),
    row(Header::ipv4, 7, "ipv4.flags", ipv4_flags),
    row(Header::ipv4, 8, "ipv4.offset", u16, 20, max_u16),
    row(Header::ipv4, 9, "ipv4.identification", u16, 0, max_u16),
    row(Header::ipv4, 10, "ipv4.destination-ipv4-network", ipv4_prefix),
    row(Header::ipv4, 11, "ipv4.source-ipv4-network", ipv4_prefix),

    row(Header::ipv6, 0, "ipv6", none),
    row(Header::ipv6, 1, "ipv6.dscp", u8, 0, 63),
    row(Header::ipv6, 2, "ipv6.ecn", u8, 0, 3),
    row(Header::ipv6, 3, "ipv6.length", u16, 0, max_u16),
    row(Header::ipv6, 4, "ipv6.ttl", u8, 0, max_u8),
    row(Header::ipv6, 5, "ipv6.protocol", u8, 0, max_u8),
    row(Header::ipv6, 6, "ipv6.destination-ipv6-network", ipv6_prefix),
    row(Header::ipv6, 7, "ipv6.source-ipv6-network", ipv6_prefix),
    row(Header::ipv6, 8, "ipv6.flow-label", u32, 0, 0xfffff),

    row(Header::tcp, 0, "tcp", none),
    row(Header::tcp, 1, "tcp.sequence-number", u32, 0, max_u32),
    row(Header::tcp, 2, "tcp.acknowledgement-number", u32, 0, max_u32),
    row(Header::tcp, 3, "tcp.data-offset", u8, 5, 15),
    row(Header::tcp, 4, "tcp.reserved", u8, 0, max_u8),
    row(Header::tcp, 5, "tcp.flags", tcp_flags),
    row(Header::tcp, 6, "tcp.window-size", u16, 0, max_u16),
    row(Header::tcp, 7, "tcp.urgent-pointer", u16, 0, max_u16),
    row(Header::tcp, 8, "tcp.options", bytes, 1, 40),
    row(Header::tcp, 9, "tcp.source-port", ports, 0, max_u16),
    row(Header::tcp, 10, "tcp.destination-port", ports, 0, max_u16),

    row(Header::udp, 0, "udp", none),
    row(Header::udp, 1, "udp.length", u16, 0, max_u16),
    row(Header::udp, 2, "udp.source-port", ports, 0, max_u16),
    row(Header::udp, 3, "udp.destination-port", ports, 0, max_u16),

    row(Header::icmp, 0, "icmp", none),
    row(Header::icmp, 1, "icmp.type", u8, 0, max_u8),
    row(Header::icmp, 2, "icmp.code", u8, 0, max_u8),
    row(Header::icmp, 3, "icmp.rest-of-header", bytes, 0, max_u32),
};

constexpr bool ascending() {
  for (size_t i = 1; i < kinds.size(); i++) {
    if (kinds[i - 1].type >= kinds[i].type) return false;
  }
  return true;
}
static_assert(ascending(), "criterion types are looked up by bisection");

constexpr std::array ipv4_flag_names{FlagName{"reserved", 4}, FlagName{"fragment", 2},
                                     FlagName{"more", 1}};
constexpr std::array tcp_flag_names{
    FlagName{"cwr", 0x80}, FlagName{"ece", 0x40}, FlagName{"urg", 0x20}, FlagName{"ack", 0x10},
    FlagName{"psh", 0x08}, FlagName{"rst", 0x04}, FlagName{"syn", 0x02}, FlagName{"fin", 0x01}};

constexpr std::array operators{
    OperatorName{"eq", PortOperator::eq}, OperatorName{"neq", PortOperator::neq},
    OperatorName{"lte", PortOperator::lte}, OperatorName{"gte", PortOperator::gte}};

}  // namespace

std::string_view CriterionKind::field() const {
  const size_t dot = name.find('.');
  return dot == std::string_view::npos ? std::string_view{} : name.substr(dot + 1);
}

std::span<const CriterionKind> criterion_kinds() {
  return kinds;
}

const CriterionKind* find_criterion_kind(uint32_t type) {
  const auto* found = std::lower_bound(
      kinds.begin(), kinds.end(), type,
      [](const CriterionKind& kind, uint32_t wanted) { return kind.type < wanted; });
  return found != kinds.end() && found->type == type ? found : nullptr;
}

const CriterionKind* find_criterion_kind(std::string_view name) {
  const auto* found = std::find_if(kinds.begin(), kinds.end(),
                                   [name](const CriterionKind& kind) { return kind.name == name; });
  return found != kinds.end() ? found : nullptr;
}

std::string_view header_name(Header header) {
  switch (header) {
    case Header::entry:
      return "entry";
    case Header::interface:
      return "interface";
    case Header::eth:
      return "eth";
    case Header::ipv4:
      return "ipv4";
    case Header::ipv6:
      return "ipv6";
    case Header::tcp:
      return "tcp";
    case Header::udp:
      return "udp";
    case Header::icmp:
      return "icmp";
  }
  return "";
}

std::span<const FlagName> flag_names(Encoding encoding) {
  if (encoding == Encoding::ipv4_flags) return ipv4_flag_names;
  if (encoding == Encoding::tcp_flags) return tcp_flag_names;
  return {};
}

std::span<const OperatorName> port_operators() {
  return operators;
}

std::string_view action_name(uint32_t type) {
  switch (static_cast<ActionType>(type)) {
    case ActionType::accept:
      return "accept";
    case ActionType::drop:
      return "drop";
    case ActionType::reject:
      return "reject";
    case ActionType::log_syslog:
      return "log-syslog";
    case ActionType::name:
      return "name";
  }
  return "";
}

}  // namespace qimctl
