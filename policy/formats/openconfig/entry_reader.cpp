// Reading one entry of an access list.
#include "policy/formats/openconfig/entry_reader.h"

#include <algorithm>

#include "policy/base/canonical_json.h"

namespace qimctl::openconfig {

namespace {

using formats::alternatives;
using formats::in_quotes;
using formats::IpCodes;
using formats::read_number;
using formats::read_string;

struct KnownLeaf {
  std::string_view container;
  std::string_view leaf;
};
constexpr std::array known_leaves{KnownLeaf{"l2", "source-mac"},
                                  KnownLeaf{"l2", "source-mac-mask"},
                                  KnownLeaf{"l2", "destination-mac"},
                                  KnownLeaf{"l2", "destination-mac-mask"},
                                  KnownLeaf{"l2", "ethertype"},
                                  KnownLeaf{"ipv4", "source-address"},
                                  KnownLeaf{"ipv4", "destination-address"},
                                  KnownLeaf{"ipv4", "dscp"},
                                  KnownLeaf{"ipv4", "hop-limit"},
                                  KnownLeaf{"ipv4", "protocol"},
                                  KnownLeaf{"ipv6", "source-address"},
                                  KnownLeaf{"ipv6", "destination-address"},
                                  KnownLeaf{"ipv6", "dscp"},
                                  KnownLeaf{"ipv6", "hop-limit"},
                                  KnownLeaf{"ipv6", "protocol"},
                                  KnownLeaf{"transport", "source-port"},
                                  KnownLeaf{"transport", "destination-port"},
                                  KnownLeaf{"input-interface", "interface"}};

class EntryReader {
 public:
  EntryReader(Notes& notes, formats::Interfaces& interfaces, const SetType& type)
      : notes_(notes), interfaces_(interfaces), type_(type) {}

  EntryReading read(const Value& value);

 private:
  void read_config(const Value& value);
  void read_container(const Member& container);
  void check_container(const Member& container);
  void read_leaves(const std::string& container, const std::vector<Member>& leaves);
  void read_ip_leaf(const IpCodes& codes, const Member& leaf);
  void read_protocol(const IpCodes& codes, const Value& leaf);
  void read_address(uint32_t type, const Value& leaf);
  void read_l2(const std::vector<Member>& leaves);
  void read_mac(uint32_t type, const std::vector<Member>& leaves, const std::string& name);
  void read_port(const Member& leaf);
  void add_ports(const Value& leaf, bool is_source, const formats::PortRange& ports);
  void read_input(const Value& value);
  void read_actions(const Value& value);
  void read_action(const Member& leaf);
  void carry_whole(const std::string& container, const Member& leaf);

  void add(const Criterion& criterion, const Value& at) {
    if (formats::meet(reading_.entry.criteria, criterion) != formats::Meeting::some)
      notes_.problem(at, "excludes what else the entry matches on; remove one of the two");
  }
  void obstacle(const Value& at, const std::string& what) {
    reading_.obstacles.push_back({notes_.place(at), what});
  }

  Notes& notes_;
  formats::Interfaces& interfaces_;
  const SetType& type_;
  EntryReading reading_;
  std::optional<uint32_t> protocol_;
  bool has_action_ = false;
};

EntryReading EntryReader::read(const Value& value) {
  reading_.entry.place = notes_.place(value);
  read_config(value);
  if (type_.header != 0) add({type_.header, {}}, value);
  std::vector<Member> members = members_of(notes_, value);
  // Ports are of the protocol that another container names.
  std::stable_partition(members.begin(), members.end(),
                        [](const Member& member) { return member.name != "transport"; });
  for (const Member& member : members) {
    if (member.spelled() == "config" || member.spelled() == "sequence-id") continue;
    if (member.spelled() == "actions") {
      read_actions(member.value);
    } else if (std::find(containers.begin(), containers.end(), member.spelled()) !=
               containers.end()) {
      read_container(member);
    } else {
      obstacle(member.value, in_quotes(member.spelled()));
    }
  }
  if (!has_action_ && value.json.is_object())
    notes_.problem(value,
                   "an entry needs a \"forwarding-action\" in \"actions\", which is missing");
  return std::move(reading_);
}

void EntryReader::read_config(const Value& value) {
  const Value sequence = leaf_of(value, "sequence-id");
  if (sequence) {
    reading_.sequence = read_number(notes_, sequence, 0, UINT32_MAX);
  } else {
    notes_.problem(value, "an entry needs a \"sequence-id\", which is missing");
  }
  if (const Value text = leaf_of(value, "description"))
    reading_.description = read_string(notes_, text).value_or("");
  for (const Member& leaf : leaves_of(notes_, value))
    if (leaf.spelled() != "sequence-id" && leaf.spelled() != "description")
      obstacle(leaf.value, in_quotes(leaf.spelled()));
}

// A list is asked about packets of its type alone.
void EntryReader::check_container(const Member& container) {
  const bool fits = (container.name == "l2" && (type_.bits & acl_type_eth) != 0) ||
                    (container.name == "ipv4" && (type_.bits & acl_type_ipv4) != 0) ||
                    (container.name == "ipv6" && (type_.bits & acl_type_ipv6) != 0) ||
                    container.name == "transport" || container.name == "input-interface";
  if (!fits)
    notes_.problem(container.value, in_quotes(container.name) +
                                        " cannot be matched in an access list of the type " +
                                        in_quotes(type_.name));
}

void EntryReader::read_container(const Member& container) {
  check_container(container);
  for (const Member& member : members_of(notes_, container.value)) {
    if (member.spelled() == "config") continue;
    if (container.name == "input-interface" && member.spelled() == "interface-ref") {
      read_input(member.value);
    } else {
      obstacle(member.value, in_quotes(container.name + "/" + member.spelled()));
    }
  }
  if (container.name == "l2") add({QIM_HEADER_ETH, {}}, container.value);
  if (container.name == "ipv4") add({QIM_HEADER_IPV4, {}}, container.value);
  if (container.name == "ipv6") add({QIM_HEADER_IPV6, {}}, container.value);
  read_leaves(container.name, leaves_of(notes_, container.value));
}

void EntryReader::read_leaves(const std::string& container, const std::vector<Member>& leaves) {
  if (container == "l2") read_l2(leaves);
  for (const Member& leaf : leaves) {
    if (!leaf.module.empty() || !is_known_leaf(container, leaf.name)) {
      carry_whole(container, leaf);
    } else if (container == "ipv4" || container == "ipv6") {
      read_ip_leaf(container == "ipv6" ? formats::ipv6_codes : formats::ipv4_codes, leaf);
    } else if (container == "transport") {
      read_port(leaf);
    } else if (container == "input-interface") {
      const auto name = read_name(notes_, leaf.value, std::string::npos);
      if (name)
        add(interfaces_.criterion(notes_, formats::code_ingress_interface, *name, leaf.value),
            leaf.value);
    }
  }
}

void EntryReader::read_ip_leaf(const IpCodes& codes, const Member& leaf) {
  if (leaf.name == "protocol") return read_protocol(codes, leaf.value);
  if (leaf.name == "source-address") return read_address(codes.source, leaf.value);
  if (leaf.name == "destination-address") return read_address(codes.destination, leaf.value);
  const bool is_dscp = leaf.name == "dscp";
  const auto number = read_number(notes_, leaf.value, 0, is_dscp ? 63 : 255);
  if (number)
    add(formats::number_criterion(is_dscp ? codes.dscp : codes.ttl, *number, 1), leaf.value);
}

void EntryReader::read_protocol(const IpCodes& codes, const Value& leaf) {
  if (leaf.json.is_string()) {
    const uint32_t number = number_of(protocols, word_of(leaf));
    if (number == none) return obstacle(leaf, "the protocol " + in_quotes(leaf.json.text_view()));
    protocol_ = number;
  } else {
    protocol_ = read_number(notes_, leaf, 0, 255);
  }
  if (protocol_) add(formats::number_criterion(codes.protocol, *protocol_, 1), leaf);
}

void EntryReader::read_address(uint32_t type, const Value& leaf) {
  const auto text = read_string(notes_, leaf);
  if (!text) return;
  const bool is_ipv6 = (type & 0xff00u) == QIM_HEADER_IPV6;
  auto args = formats::parse_prefix(*text, is_ipv6);
  if (!args)
    return notes_.problem(leaf, in_quotes(*text) + " is not an IPv" + (is_ipv6 ? "6" : "4") +
                                    " prefix; write an address, a slash and a length, such as " +
                                    (is_ipv6 ? "\"2001:db8::/32\"" : "\"192.0.2.0/24\""));
  add({type, *std::move(args)}, leaf);
}

void EntryReader::read_l2(const std::vector<Member>& leaves) {
  read_mac(formats::code_eth_source, leaves, "source-mac");
  read_mac(formats::code_eth_destination, leaves, "destination-mac");
  for (const Member& leaf : leaves) {
    if (leaf.spelled() != "ethertype") continue;
    std::optional<uint32_t> number;
    if (leaf.value.json.is_string()) {
      number = number_of(ethertypes, word_of(leaf.value));
      if (*number == none) {
        obstacle(leaf.value, "the Ethernet type " + in_quotes(leaf.value.json.text_view()));
        continue;
      }
    } else {
      number = read_number(notes_, leaf.value, 0, UINT16_MAX);
    }
    if (number) add(formats::number_criterion(formats::code_ethertype, *number, 2), leaf.value);
  }
}

void EntryReader::read_mac(uint32_t type, const std::vector<Member>& leaves,
                           const std::string& name) {
  const auto read = [&](const std::string& wanted, std::optional<std::vector<uint8_t>> otherwise) {
    for (const Member& leaf : leaves) {
      if (leaf.spelled() != wanted) continue;
      const auto text = read_string(notes_, leaf.value);
      if (!text) return std::pair(leaf.value, std::optional<std::vector<uint8_t>>());
      auto bytes = formats::parse_mac(*text);
      if (!bytes)
        notes_.problem(leaf.value, in_quotes(*text) +
                                       " is not a MAC address; write six pairs of hexadecimal "
                                       "digits, such as \"00:00:5e:00:53:01\"");
      return std::pair(leaf.value, std::move(bytes));
    }
    return std::pair(Value(), std::move(otherwise));
  };
  const auto [at, address] = read(name, {});
  const auto [mask_at, mask] = read(name + "-mask", std::vector<uint8_t>(6, 0xff));
  if (address && mask) return add(formats::mac_criterion(type, *address, *mask), at);
  if (!at && mask_at) obstacle(mask_at, "a mask without an address to compare with");
}

void EntryReader::read_port(const Member& leaf) {
  const std::string word = word_of(leaf.value);
  if (word == "ANY") return;
  const auto ports = formats::parse_ports(word, "..");
  if (!ports)
    return notes_.problem(leaf.value, in_quotes(word) +
                                          " is no port; write a number up to 65535, or a range "
                                          "such as \"1024..2047\"");
  add_ports(leaf.value, leaf.name == "source-port", *ports);
}

void EntryReader::add_ports(const Value& leaf, bool is_source, const formats::PortRange& ports) {
  const auto criterion = [&](const formats::PortCodes& codes) {
    return formats::ports_criterion(is_source ? codes.source : codes.destination, ports);
  };
  if (protocol_ == formats::protocol_tcp) return add(criterion(formats::tcp_codes), leaf);
  if (protocol_ == formats::protocol_udp) return add(criterion(formats::udp_codes), leaf);
  if (protocol_) return obstacle(leaf, "a port of the protocol " + std::to_string(*protocol_));
  notes_.finding(Fate::approximated, leaf,
                 "a port of no protocol is carried as one of TCP and one of UDP, in an entry each");
  reading_.choices.push_back({{criterion(formats::tcp_codes)}, {criterion(formats::udp_codes)}});
}

void EntryReader::read_input(const Value& value) {
  read_leaves("input-interface", leaves_of(notes_, value));
  for (const Member& member : members_of(notes_, value))
    if (member.spelled() != "config")
      obstacle(member.value, in_quotes("interface-ref/" + member.spelled()));
}

void EntryReader::read_actions(const Value& value) {
  for (const Member& leaf : leaves_of(notes_, value)) read_action(leaf);
  for (const Member& member : members_of(notes_, value))
    if (member.spelled() != "config") obstacle(member.value, in_quotes(member.spelled()));
}

void EntryReader::read_action(const Member& leaf) {
  const std::string word = word_of(leaf.value);
  if (leaf.spelled() == "forwarding-action") {
    has_action_ = true;
    const uint32_t number = number_of(actions, word);
    if (number == none) return obstacle(leaf.value, "the action " + in_quotes(word));
    reading_.entry.forwarding = static_cast<ActionType>(number);
  } else if (leaf.spelled() == "log-action" && word == "LOG_SYSLOG") {
    reading_.entry.log = true;
  } else if (leaf.spelled() == "log-action" && word != "LOG_NONE") {
    obstacle(leaf.value, "the logging " + in_quotes(word));
  } else if (leaf.spelled() != "log-action") {
    obstacle(leaf.value, in_quotes(leaf.spelled()));
  }
}

// What nothing here understands, but another reader may.
void EntryReader::carry_whole(const std::string& container, const Member& leaf) {
  const std::string module = leaf.module.empty() ? std::string(own_module) : leaf.module;
  const auto json = canonical_json(leaf.value.json);
  const auto match = json ? formats::whole_match(module, container + "." + leaf.name, *json)
                          : std::optional<Criterion>();
  if (!match)
    return obstacle(leaf.value, in_quotes(leaf.spelled()) +
                                    " with a number of 2^53 or more, or a name that is too long");
  notes_.finding(Fate::accepted, leaf.value,
                 formats::carried_whole(container + "/" + leaf.spelled(), module));
  add(*match, leaf.value);
}

}  // namespace

bool is_known_leaf(std::string_view container, std::string_view leaf) {
  return std::any_of(known_leaves.begin(), known_leaves.end(), [&](const KnownLeaf& known) {
    return known.container == container && known.leaf == leaf;
  });
}

std::vector<Member> members_of(Notes& notes, const Value& value) {
  std::vector<Member> members;
  if (!value.json.is_object()) {
    notes.problem(value, std::string("must be an object, not ") + value.json.kind());
    return members;
  }
  for (const auto& [spelled, json] : value.json.members()) {
    if (spelled.starts_with('@') || spelled == "state") continue;
    const size_t colon = spelled.find(':');
    const std::string_view module = colon == std::string::npos ? "" : spelled.substr(0, colon);
    const bool own = module.empty() || module == own_module;
    members.push_back(
        {own ? "" : std::string(module), std::string(spelled.substr(colon + 1)), {json}});
  }
  return members;
}

std::vector<Member> leaves_of(Notes& notes, const Value& node) {
  JsonView leaves = node.json.find("config");
  if (!leaves) leaves = node.json.find("state");
  if (!leaves) return {};
  std::vector<Member> members = members_of(notes, {leaves});
  std::erase_if(members, [](const Member& member) {
    return member.name == "matched-packets" || member.name == "matched-octets";
  });
  return members;
}

Value leaf_of(const Value& node, std::string_view name) {
  for (const std::string_view container : {"config", "state"})
    if (const JsonView leaves = node.json.find(container))
      if (const JsonView leaf = leaves.find(name)) return {leaf};
  return {node.json.find(name)};
}

std::string word_of(const Value& leaf) {
  if (!leaf.json.is_string()) return leaf.json.dump();
  const std::string text = leaf.json.text();
  return text.substr(text.find(':') + 1);
}

EntryReading read_entry(Notes& notes, formats::Interfaces& interfaces, const Value& value,
                        const SetType& type) {
  return EntryReader(notes, interfaces, type).read(value);
}

}  // namespace qimctl::openconfig
