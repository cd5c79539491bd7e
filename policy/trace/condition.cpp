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

// The number that each criterion type asks for. The rest are headers, interfaces and strings.
constexpr std::array fields{
    FieldOf{0x0201, Field::destination_mac},
    FieldOf{0x0202, Field::source_mac},
    FieldOf{0x0203, Field::ethertype},
    FieldOf{0x0301, Field::dscp},
    FieldOf{0x0302, Field::ecn},
    FieldOf{0x0303, Field::length},
    FieldOf{0x0304, Field::ttl},
    FieldOf{0x0305, Field::protocol},
    FieldOf{0x0306, Field::ihl},
    FieldOf{0x0307, Field::ip_flags},
    FieldOf{0x0308, Field::offset},
    FieldOf{0x0309, Field::identification},
    FieldOf{0x030a, Field::destination},
    FieldOf{0x030b, Field::source},
    FieldOf{0x0401, Field::dscp},
    FieldOf{0x0402, Field::ecn},
    FieldOf{0x0403, Field::length},
    FieldOf{0x0404, Field::ttl},
    FieldOf{0x0405, Field::protocol},
    FieldOf{0x0406, Field::destination},
    FieldOf{0x0407, Field::source},
    FieldOf{0x0408, Field::flow_label},
    FieldOf{0x0501, Field::sequence},
    FieldOf{0x0502, Field::acknowledgement},
    FieldOf{0x0503, Field::data_offset},
    FieldOf{0x0504, Field::reserved},
    FieldOf{0x0505, Field::tcp_flags},
    FieldOf{0x0506, Field::window},
    FieldOf{0x0507, Field::urgent},
    FieldOf{0x0509, Field::source_port},
    FieldOf{0x050a, Field::destination_port},
    FieldOf{0x0601, Field::udp_length},
    FieldOf{0x0602, Field::source_port},
    FieldOf{0x0603, Field::destination_port},
    FieldOf{0x0701, Field::icmp_type},
    FieldOf{0x0702, Field::icmp_code},
};

using Args = std::span<const uint8_t>;

// Each returns false for arguments of another layout.
bool exactly(Condition& condition, Args args, size_t width) {
  if (args.size() != width) return false;
  condition.kind = Condition::Kind::range;
  condition.first = condition.last = to_wide(args);
  return true;
}

bool network(Condition& condition, Args args, size_t width) {
  if (args.size() != width + 1 || args[width] > 8 * width) return false;
  condition.kind = Condition::Kind::range;
  condition.first = to_wide(args.first(width));
  condition.last = fill(condition.first, static_cast<uint32_t>(8 * width) - args[width]);
  return true;
}

bool mac(Condition& condition, Args args) {
  if (args.size() != 12) return false;
  condition.kind = Condition::Kind::masked;
  condition.first = to_wide(args.first(6));
  condition.last = to_wide(args.subspan(6));
  condition.first.low &= condition.last.low;
  return true;
}

bool ports(Condition& condition, Args args) {
  if (args.size() != 5) return false;
  condition.kind = Condition::Kind::range;
  condition.first = to_wide(args.subspan(1, 2));
  condition.last = to_wide(args.subspan(3, 2));
  switch (static_cast<PortOperator>(args[0])) {
    case PortOperator::eq:
    case PortOperator::range:
      return true;
    case PortOperator::neq:
      condition.kind = Condition::Kind::except;
      return true;
    case PortOperator::lte:
      condition.first = {};
      return true;
    case PortOperator::gte:
      condition.last = {0, UINT16_MAX};
      return true;
  }
  return false;
}

bool string(Condition& condition, Condition::Kind kind, Args args) {
  condition.kind = kind;
  condition.bytes.assign(args.begin(), args.end());
  return true;
}

bool interface(Condition& condition, uint32_t type, Args args) {
  if (args.size() <= 4) return false;
  const bool ingress = (type & 0xff) == 1;
  return string(condition, ingress ? Condition::Kind::ingress : Condition::Kind::egress,
                args.subspan(4));
}

bool take_apart(Condition& condition, const CriterionKind& kind, Args args) {
  switch (kind.encoding) {
    case Encoding::none:
      condition.kind = Condition::Kind::header;
      return args.empty();
    case Encoding::u8:
    case Encoding::ipv4_flags:
    case Encoding::tcp_flags:
      return exactly(condition, args, 1);
    case Encoding::u16:
    case Encoding::u16_hex:
      return exactly(condition, args, 2);
    case Encoding::u32:
      return exactly(condition, args, 4);
    case Encoding::ipv4_prefix:
      return network(condition, args, 4);
    case Encoding::ipv6_prefix:
      return network(condition, args, 16);
    case Encoding::mac:
      return mac(condition, args);
    case Encoding::ports:
      return ports(condition, args);
    case Encoding::bytes:
      return string(condition,
                    kind.header == Header::tcp ? Condition::Kind::options : Condition::Kind::rest,
                    args);
    case Encoding::text:
    case Encoding::opaque:
      return false;
    case Encoding::interface:
      break;
  }
  return interface(condition, kind.type, args);
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
  for (const FieldOf& each : fields)
    if (each.type == criterion.type) condition.field = each.field;
  if (!take_apart(condition, *kind, criterion.args)) condition = Condition{};
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
