// Criteria taken apart.
#include "policy/trace/condition.h"

#include <algorithm>
#include <array>

#include "policy/base/criteria.h"
#include "policy/base/names.h"
#include "policy/base/text.h"

namespace qimctl {

namespace {

struct FieldOf {
  uint32_t type;
  Field field;
};

// The number that each criterion type asks for, in the order of types. The rest are headers, interfaces and strings.
constexpr std::array fields{
    FieldOf{QIM_CRIT_ETH_DESTINATION, Field::destination_mac},
    FieldOf{QIM_CRIT_ETH_SOURCE, Field::source_mac},
    FieldOf{QIM_CRIT_ETH_ETHERTYPE, Field::ethertype},
    FieldOf{QIM_CRIT_IPV4_DSCP, Field::dscp},
    FieldOf{QIM_CRIT_IPV4_ECN, Field::ecn},
    FieldOf{QIM_CRIT_IPV4_LENGTH, Field::length},
    FieldOf{QIM_CRIT_IPV4_TTL, Field::ttl},
    FieldOf{QIM_CRIT_IPV4_PROTOCOL, Field::protocol},
    FieldOf{QIM_CRIT_IPV4_IHL, Field::ihl},
    FieldOf{QIM_CRIT_IPV4_FLAGS, Field::ip_flags},
    FieldOf{QIM_CRIT_IPV4_OFFSET, Field::offset},
    FieldOf{QIM_CRIT_IPV4_IDENTIFICATION, Field::identification},
    FieldOf{QIM_CRIT_IPV4_DESTINATION, Field::destination},
    FieldOf{QIM_CRIT_IPV4_SOURCE, Field::source},
    FieldOf{QIM_CRIT_IPV6_DSCP, Field::dscp},
    FieldOf{QIM_CRIT_IPV6_ECN, Field::ecn},
    FieldOf{QIM_CRIT_IPV6_LENGTH, Field::length},
    FieldOf{QIM_CRIT_IPV6_TTL, Field::ttl},
    FieldOf{QIM_CRIT_IPV6_PROTOCOL, Field::protocol},
    FieldOf{QIM_CRIT_IPV6_DESTINATION, Field::destination},
    FieldOf{QIM_CRIT_IPV6_SOURCE, Field::source},
    FieldOf{QIM_CRIT_IPV6_FLOW_LABEL, Field::flow_label},
    FieldOf{QIM_CRIT_TCP_SEQUENCE, Field::sequence},
    FieldOf{QIM_CRIT_TCP_ACKNOWLEDGEMENT, Field::acknowledgement},
    FieldOf{QIM_CRIT_TCP_DATA_OFFSET, Field::data_offset},
    FieldOf{QIM_CRIT_TCP_RESERVED, Field::reserved},
    FieldOf{QIM_CRIT_TCP_FLAGS, Field::tcp_flags},
    FieldOf{QIM_CRIT_TCP_WINDOW, Field::window},
    FieldOf{QIM_CRIT_TCP_URGENT, Field::urgent},
    FieldOf{QIM_CRIT_TCP_SOURCE, Field::source_port},
    FieldOf{QIM_CRIT_TCP_DESTINATION, Field::destination_port},
    FieldOf{QIM_CRIT_UDP_LENGTH, Field::udp_length},
    FieldOf{QIM_CRIT_UDP_SOURCE, Field::source_port},
    FieldOf{QIM_CRIT_UDP_DESTINATION, Field::destination_port},
    FieldOf{QIM_CRIT_ICMP_TYPE, Field::icmp_type},
    FieldOf{QIM_CRIT_ICMP_CODE, Field::icmp_code},
};
static_assert(std::is_sorted(fields.begin(), fields.end(),
                             [](const FieldOf& a, const FieldOf& b) { return a.type < b.type; }));

using Args = std::span<const uint8_t>;

void number(Condition& condition, uint32_t value) {
  condition.kind = Condition::Kind::range;
  condition.first = condition.last = {0, value};
}

void network(Condition& condition, const qim_crit_value_t& value, uint32_t width) {
  condition.kind = Condition::Kind::range;
  condition.first = to_wide(Args(value.as.network.address, width));
  condition.last = fill(condition.first, 8 * width - value.as.network.bits);
}

void mac(Condition& condition, const qim_crit_value_t& value) {
  condition.kind = Condition::Kind::masked;
  condition.first = to_wide(value.as.mac.address);
  condition.last = to_wide(value.as.mac.mask);
  condition.first.low &= condition.last.low;
}

void ports(Condition& condition, const qim_crit_value_t& value) {
  condition.kind = Condition::Kind::range;
  condition.first = {0, value.as.ports.first};
  condition.last = {0, value.as.ports.last};
  const auto comparison = static_cast<PortOperator>(value.as.ports.comparison);
  if (comparison == PortOperator::neq) condition.kind = Condition::Kind::except;
  if (comparison == PortOperator::lte) condition.first = {};
  if (comparison == PortOperator::gte) condition.last = {0, UINT16_MAX};
}

void string(Condition& condition, Condition::Kind kind, const qim_crit_bytes_t& bytes) {
  condition.kind = kind;
  condition.bytes.assign(bytes.at, bytes.at + bytes.len);
}

// Leaves the condition undecided for arguments of another layout, and for what nobody here knows.
void take_apart(Condition& condition, const CriterionKind& kind, Args args) {
  qim_crit_value_t value;
  if (qim_crit_parse(kind.type, static_cast<uint32_t>(args.size()), args.data(), &value) != 0)
    return;
  switch (kind.encoding) {
    case Encoding::none:
      condition.kind = Condition::Kind::header;
      return;
    case Encoding::u8:
    case Encoding::ipv4_flags:
    case Encoding::tcp_flags:
    case Encoding::u16:
    case Encoding::u16_hex:
    case Encoding::u32:
      return number(condition, value.as.number);
    case Encoding::ipv4_prefix:
      return network(condition, value, 4);
    case Encoding::ipv6_prefix:
      return network(condition, value, 16);
    case Encoding::mac:
      return mac(condition, value);
    case Encoding::ports:
      return ports(condition, value);
    case Encoding::bytes:
      return string(condition,
                    kind.header == Header::tcp ? Condition::Kind::options : Condition::Kind::rest,
                    value.as.bytes);
    case Encoding::interface:
      return string(condition,
                    kind.type == QIM_CRIT_INGRESS_INTERFACE ? Condition::Kind::ingress
                                                            : Condition::Kind::egress,
                    value.as.interface.name);
    case Encoding::text:
    case Encoding::opaque:
      return;
  }
}

// Truth of a statement about what is known.
Truth truth(bool value) {
  return value ? Truth::yes : Truth::no;
}

Truth number_holds(const Condition& condition, const Packet& packet) {
  if (!packet.knows(condition.field)) return Truth::unknown;
  const Wide& value = packet.value(condition.field);
  if (condition.kind == Condition::Kind::masked)
    return truth((value.low & condition.last.low) == condition.first.low);
  const bool within = condition.first <= value && value <= condition.last;
  return truth(within == (condition.kind == Condition::Kind::range));
}

Truth string_holds(const Condition& condition, const Packet& packet) {
  if (condition.kind == Condition::Kind::options) {
    if (!packet.tcp_options) return Truth::unknown;
    return truth(*packet.tcp_options == condition.bytes);
  }
  if (!packet.icmp_rest) return Truth::unknown;
  const std::vector<uint8_t>& rest = *packet.icmp_rest;
  return truth(rest.size() >= condition.bytes.size() &&
               std::equal(condition.bytes.begin(), condition.bytes.end(), rest.begin()));
}

Truth interface_holds(const Condition& condition, const std::string& name) {
  if (name.empty()) return Truth::unknown;
  return truth(std::equal(name.begin(), name.end(), condition.bytes.begin(), condition.bytes.end(),
                          [](char a, uint8_t b) { return static_cast<uint8_t>(a) == b; }));
}

std::string number_text(const Condition& condition, const Criterion& criterion,
                        const Packet& packet) {
  const Wide& value = packet.value(condition.field);
  if (condition.field == Field::source || condition.field == Field::destination)
    return address_text(condition.header, value);
  if (condition.kind == Condition::Kind::masked) return mac_text(value.low);
  if (condition.field == Field::ethertype) return hex_number(value.low, 4);
  const CriterionKind& kind = *find_criterion_kind(criterion.type);
  if (flag_names(kind.encoding).empty()) return std::to_string(value.low);
  const auto flags = static_cast<uint8_t>(value.low);
  return criterion_text(kind.type, {&flags, 1}).substr(kind.name.size() + 1);
}

std::string string_text(const Condition& condition, const Packet& packet) {
  const auto& bytes =
      condition.kind == Condition::Kind::options ? packet.tcp_options : packet.icmp_rest;
  if (!bytes) return "not said";
  return bytes->empty() ? "none" : hex_bytes(*bytes);
}

}  // namespace

Condition to_condition(const Criterion& criterion) {
  Condition condition;
  if (criterion.type == criterion_name) {
    condition.kind = Condition::Kind::always;
    return condition;
  }
  const CriterionKind* kind = find_criterion_kind(criterion.type);
  if (kind == nullptr) return condition;
  condition.header = kind->header;
  const FieldOf* field =
      std::lower_bound(fields.begin(), fields.end(), criterion.type,
                       [](const FieldOf& each, uint32_t wanted) { return each.type < wanted; });
  if (field != fields.end() && field->type == criterion.type) condition.field = field->field;
  take_apart(condition, *kind, criterion.args);
  return condition;
}

Truth holds(const Condition& condition, const Packet& packet) {
  switch (condition.kind) {
    case Condition::Kind::always:
      return Truth::yes;
    case Condition::Kind::undecided:
      return Truth::unknown;
    case Condition::Kind::ingress:
      return interface_holds(condition, packet.ingress);
    case Condition::Kind::egress:
      return interface_holds(condition, packet.egress);
    default:
      break;
  }
  const Truth header = packet.has(condition.header);
  if (header == Truth::no || condition.kind == Condition::Kind::header) return header;
  const bool is_string =
      condition.kind == Condition::Kind::options || condition.kind == Condition::Kind::rest;
  const Truth value = is_string ? string_holds(condition, packet) : number_holds(condition, packet);
  return value == Truth::no ? Truth::no : header == Truth::yes ? value : Truth::unknown;
}

uint32_t field_bits(Field field, Header header) {
  switch (field) {
    case Field::destination_mac:
    case Field::source_mac:
      return 48;
    case Field::destination:
    case Field::source:
      return header == Header::ipv4 ? 32 : 128;
    case Field::sequence:
    case Field::acknowledgement:
      return 32;
    case Field::flow_label:
      return 20;
    case Field::offset:
      return 13;
    case Field::dscp:
      return 6;
    case Field::ihl:
    case Field::data_offset:
    case Field::reserved:
      return 4;
    case Field::ip_flags:
      return 3;
    case Field::ecn:
      return 2;
    case Field::ttl:
    case Field::protocol:
    case Field::tcp_flags:
    case Field::icmp_type:
    case Field::icmp_code:
      return 8;
    case Field::ethertype:
    case Field::length:
    case Field::identification:
    case Field::window:
    case Field::urgent:
    case Field::source_port:
    case Field::destination_port:
    case Field::udp_length:
      break;
  }
  return 16;
}

std::string value_text(const Condition& condition, const Criterion& criterion,
                       const Packet& packet) {
  switch (condition.kind) {
    case Condition::Kind::always:
      return "";
    case Condition::Kind::undecided:
      return "not known here";
    case Condition::Kind::ingress:
      return packet.ingress.empty() ? "not said" : printable(packet.ingress);
    case Condition::Kind::egress:
      return packet.egress.empty() ? "not said" : printable(packet.egress);
    default:
      break;
  }
  const Truth header = packet.has(condition.header);
  const std::string name(header_name(condition.header));
  if (header == Truth::no) return "no " + name + " header";
  if (condition.kind == Condition::Kind::header) return header == Truth::yes ? "there" : "not said";
  if (condition.kind == Condition::Kind::options || condition.kind == Condition::Kind::rest)
    return string_text(condition, packet);
  return packet.knows(condition.field) ? number_text(condition, criterion, packet) : "not said";
}

}  // namespace qimctl
