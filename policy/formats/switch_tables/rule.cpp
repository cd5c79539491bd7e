// Reading one rule, field by field.
#include "policy/formats/switch_tables/rule.h"

#include <algorithm>
#include <array>
#include <utility>

#include "policy/base/json_print.h"
#include "policy/formats/parts/attachments.h"

namespace qimctl::switch_tables {

namespace {

using formats::Choice;
using formats::in_quotes;
using formats::parse_value;

constexpr const char* own_module = "acl-rule";
constexpr size_t most_alternatives = 16;

class RuleReader {
 public:
  RuleReader(Notes& notes, formats::Interfaces& interfaces, const std::set<std::string>& policers)
      : notes_(notes), interfaces_(interfaces), policers_(policers) {}

  RuleReading read(const Value& value, Family family);

 private:
  void find_family(const Value& value, Family family);
  void find_protocol(const Value& value);
  void read_field(const std::string& name, const Value& field);
  bool read_action(const std::string& name, const Value& field);
  bool match(const std::string& name, const Value& field);
  bool match_network(const std::string& name, const Value& field);
  bool match_number(const std::string& name, const Value& field);
  bool match_ports(const std::string& name, const Value& field);
  bool match_interfaces(const std::string& name, const Value& field);
  bool match_ip_type(const std::string& type, const Value& field);
  bool match_tcp_flags(const std::string& text, const Value& field);
  void carry_whole(const std::string& name, const Value& field);
  void read_policer(const Value& field);

  // Of a field that IPv4 and IPv6 have: in the one that the rule is about, or in either.
  void add_ip(uint32_t formats::IpCodes::*code, uint32_t value, const Value& field);
  void add(const Criterion& criterion, const Value& field) {
    if (formats::meet(reading_.entry.criteria, criterion) != formats::Meeting::some)
      notes_.problem(field, "excludes what else the rule matches on; remove one of the two");
  }
  void obstacle(const Value& field, const std::string& what) {
    reading_.obstacles.push_back({notes_.place(field), what});
  }
  bool wrong(const Value& field, const std::string& wanted) {
    notes_.problem(field, in_quotes(text_of(field)) + " is not " + wanted);
    return true;
  }

  Notes& notes_;
  formats::Interfaces& interfaces_;
  const std::set<std::string>& policers_;
  RuleReading reading_;
  Family family_ = Family::unknown;
  std::optional<uint32_t> protocol_;
  bool has_action_ = false;
};

RuleReading RuleReader::read(const Value& value, Family family) {
  reading_.entry.place = notes_.place(value);
  find_family(value, family);
  find_protocol(value);
  for (const auto& [name, field] : value.json.members()) read_field(std::string(name), {field});
  if (!value.json.find("PRIORITY"))
    notes_.problem(value, "a rule needs a \"PRIORITY\", which is missing");
  if (!has_action_) notes_.problem(value, "a rule needs a \"PACKET_ACTION\", which is missing");
  return std::move(reading_);
}

// A rule is about one of the two when any of its fields is, and else about what its table is about.
void RuleReader::find_family(const Value& value, Family family) {
  family_ = family;
  for (const auto& [name, json] : value.json.members()) {
    const std::string text = text_of({json});
    const uint32_t ethertype = name == "ETHER_TYPE" ? parse_value(text, UINT16_MAX).value_or(0) : 0;
    if (name == "SRC_IP" || name == "DST_IP" || name == "ICMP_TYPE" || name == "ICMP_CODE" ||
        ethertype == 0x0800 || (name == "IP_TYPE" && text.starts_with("IPV4")))
      family_ = Family::ipv4;
    if (name == "SRC_IPV6" || name == "DST_IPV6" || name == "ICMPV6_TYPE" ||
        name == "ICMPV6_CODE" || name == "NEXT_HEADER" || ethertype == 0x86dd ||
        (name == "IP_TYPE" && text.starts_with("IPV6")))
      family_ = Family::ipv6;
  }
}

void RuleReader::find_protocol(const Value& value) {
  for (const char* name : {"IP_PROTOCOL", "NEXT_HEADER"})
    if (const JsonView field = value.json.find(name))
      protocol_ = parse_value(text_of({field}), 255);
}

void RuleReader::read_field(const std::string& name, const Value& field) {
  if (name == "PRIORITY") {
    reading_.priority = parse_value(text_of(field), UINT32_MAX);
    if (!reading_.priority) wrong(field, "a whole number");
  } else if (name == "POLICER" || name == "POLICER_ACTION") {
    read_policer(field);
  } else if (!read_action(name, field) && !match(name, field)) {
    carry_whole(name, field);
  }
}

bool RuleReader::read_action(const std::string& name, const Value& field) {
  if (!name.ends_with("_ACTION")) return false;
  has_action_ = true;
  const std::string action = text_of(field);
  if (name == "PACKET_ACTION" && (action == "FORWARD" || action == "ACCEPT")) {
    reading_.entry.forwarding = ActionType::accept;
  } else if (name != "PACKET_ACTION" || action != "DROP") {
    obstacle(field, in_quotes(name) + " " + in_quotes(action));
  }
  return true;
}

// "name", "POLICER|name" or "[POLICER|name]".
void RuleReader::read_policer(const Value& field) {
  std::string name = text_of(field);
  if (name.starts_with('[') && name.ends_with(']')) name = name.substr(1, name.size() - 2);
  if (name.starts_with("POLICER|")) name = name.substr(name.find('|') + 1);
  if (policers_.contains(name)) {
    reading_.entry.policer = name;
  } else {
    notes_.problem(field, "there is no policer " + in_quotes(name) + "; define it in \"POLICER\"");
  }
}

// False when only another reader can decide it.
bool RuleReader::match(const std::string& name, const Value& field) {
  if (name == "SRC_IP" || name == "DST_IP" || name == "SRC_IPV6" || name == "DST_IPV6")
    return match_network(name, field);
  if (name.starts_with("L4_")) return match_ports(name, field);
  if (name == "IN_PORTS" || name == "OUT_PORTS") return match_interfaces(name, field);
  if (name == "IP_TYPE") return match_ip_type(text_of(field), field);
  if (name == "TCP_FLAGS") return match_tcp_flags(text_of(field), field);
  if (name != "SRC_MAC" && name != "DST_MAC") return match_number(name, field);
  const auto mac = formats::parse_mac(text_of(field));
  if (!mac) return wrong(field, "a MAC address");
  const uint32_t type =
      name == "SRC_MAC" ? formats::code_eth_source : formats::code_eth_destination;
  add(formats::mac_criterion(type, *mac, std::vector<uint8_t>(6, 0xff)), field);
  return true;
}

bool RuleReader::match_network(const std::string& name, const Value& field) {
  const bool is_ipv6 = name.ends_with("V6");
  const formats::IpCodes& codes = is_ipv6 ? formats::ipv6_codes : formats::ipv4_codes;
  auto prefix = formats::parse_prefix(text_of(field), is_ipv6);
  if (!prefix)
    return wrong(field, std::string("an address or prefix of ") + (is_ipv6 ? "IPv6" : "IPv4"));
  add({name.starts_with("SRC") ? codes.source : codes.destination, *std::move(prefix)}, field);
  return true;
}

bool RuleReader::match_number(const std::string& name, const Value& field) {
  struct Field {
    std::string_view name;
    uint32_t max;
  };
  constexpr std::array fields{Field{"IP_PROTOCOL", 255}, Field{"NEXT_HEADER", 255},
                              Field{"DSCP", 63},         Field{"ETHER_TYPE", UINT16_MAX},
                              Field{"ICMP_TYPE", 255},   Field{"ICMP_CODE", 255},
                              Field{"ICMPV6_TYPE", 255}, Field{"ICMPV6_CODE", 255}};
  const auto* known = std::find_if(fields.begin(), fields.end(),
                                   [&name](const Field& one) { return one.name == name; });
  if (known == fields.end()) return false;
  std::string text = text_of(field);
  if (name == "DSCP" && text.find('/') != std::string::npos) {
    if (parse_value(text.substr(text.find('/') + 1), 63) != 63u) return false;
    text.resize(text.find('/'));
  }
  const auto number = parse_value(text, known->max);
  if (!number) return wrong(field, "a number up to " + std::to_string(known->max));
  if (name == "ETHER_TYPE") {
    add(formats::number_criterion(formats::code_ethertype, *number, 2), field);
  } else if (name == "DSCP") {
    add_ip(&formats::IpCodes::dscp, *number, field);
  } else if (!name.starts_with("ICMP")) {
    add_ip(&formats::IpCodes::protocol, *number, field);
  } else {
    add({family_ == Family::ipv6 ? formats::ipv6_codes.header : formats::ipv4_codes.header, {}},
        field);
    add(formats::number_criterion(
            name.ends_with("TYPE") ? formats::code_icmp_type : formats::code_icmp_code, *number, 1),
        field);
  }
  return true;
}

void RuleReader::add_ip(uint32_t formats::IpCodes::*code, uint32_t value, const Value& field) {
  const Criterion ipv4 = formats::number_criterion(formats::ipv4_codes.*code, value, 1);
  const Criterion ipv6 = formats::number_criterion(formats::ipv6_codes.*code, value, 1);
  if (family_ == Family::unknown) {
    reading_.choices.push_back({{ipv4}, {ipv6}});
  } else {
    add(family_ == Family::ipv4 ? ipv4 : ipv6, field);
  }
}

bool RuleReader::match_ports(const std::string& name, const Value& field) {
  const bool is_source = name.starts_with("L4_SRC_PORT");
  if (!is_source && !name.starts_with("L4_DST_PORT")) return false;
  const auto ports = formats::parse_ports(text_of(field), "-");
  if (!ports) return wrong(field, "a port, or a range such as \"1024-2047\"");
  const auto criterion = [&](const formats::PortCodes& codes) {
    return formats::ports_criterion(is_source ? codes.source : codes.destination, *ports);
  };
  if (protocol_ == formats::protocol_tcp) {
    add(criterion(formats::tcp_codes), field);
  } else if (protocol_ == formats::protocol_udp) {
    add(criterion(formats::udp_codes), field);
  } else if (protocol_) {
    return false;
  } else {
    notes_.finding(
        Fate::approximated, field,
        "a port of no protocol is carried as one of TCP and one of UDP, in an entry each");
    reading_.choices.push_back({{criterion(formats::tcp_codes)}, {criterion(formats::udp_codes)}});
  }
  return true;
}

bool RuleReader::match_interfaces(const std::string& name, const Value& field) {
  const uint32_t type =
      name == "IN_PORTS" ? formats::code_ingress_interface : formats::code_egress_interface;
  Choice choice;
  for (const std::string& interface : list_of(notes_, field)) {
    const std::string bad = formats::name_obstacle(interface, std::string::npos);
    if (!bad.empty()) return wrong(field, "a list of interfaces: of one " + bad);
    choice.push_back({interfaces_.criterion(notes_, type, interface, field)});
  }
  reading_.choices.push_back(std::move(choice));
  return true;
}

bool RuleReader::match_ip_type(const std::string& type, const Value& field) {
  if (type == "ANY") return true;
  const Criterion ipv4{formats::ipv4_codes.header, {}};
  const Criterion ipv6{formats::ipv6_codes.header, {}};
  if (type == "IPV4" || type == "IPV4ANY") {
    add(ipv4, field);
  } else if (type == "IPV6" || type == "IPV6ANY") {
    add(ipv6, field);
  } else if (type == "IP") {
    reading_.choices.push_back({{ipv4}, {ipv6}});
  } else if (type == "ARP") {
    add(formats::number_criterion(formats::code_ethertype, 0x0806, 2), field);
  } else {
    return false;
  }
  return true;
}

// Flags and the mask of those that are looked at: an alternative for each combination of the others.
bool RuleReader::match_tcp_flags(const std::string& text, const Value& field) {
  constexpr uint32_t without_ecn = 0x3f;
  const size_t slash = text.find('/');
  const auto flags = parse_value(text.substr(0, slash), 0xff);
  const auto mask = slash == std::string::npos ? std::optional(without_ecn)
                                               : parse_value(text.substr(slash + 1), 0xff);
  if (!flags || !mask) return wrong(field, "flags and a mask, such as \"0x02/0x3f\"");
  Choice choice;
  for (uint32_t all = 0; all <= 0xff; all++)
    if ((all & *mask) == (*flags & *mask))
      choice.push_back({formats::number_criterion(formats::code_tcp_flags, all, 1)});
  if (choice.size() > most_alternatives) return false;
  reading_.choices.push_back(std::move(choice));
  return true;
}

void RuleReader::carry_whole(const std::string& name, const Value& field) {
  const auto match = formats::whole_match(own_module, name, json_string(text_of(field)));
  if (!match) return obstacle(field, "a field whose name is longer than 65535 characters");
  notes_.finding(Fate::accepted, field,
                 formats::carried_whole(name + " " + text_of(field), own_module));
  add(*match, field);
}

}  // namespace

std::string text_of(const Value& field) {
  return field.json.is_string() ? field.json.text() : field.json.dump();
}

std::vector<std::string> list_of(Notes& notes, const Value& field) {
  std::vector<std::string> list;
  if (field.json.is_array()) {
    for (const Value& one : formats::elements(notes, field)) list.push_back(text_of(one));
    return list;
  }
  const std::string text = text_of(field);
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find(',', at), text.size());
    list.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return list;
}

RuleReading read_rule(Notes& notes, formats::Interfaces& interfaces, const Value& value,
                      Family family, const std::set<std::string>& policers) {
  return RuleReader(notes, interfaces, policers).read(value, family);
}

}  // namespace qimctl::switch_tables
