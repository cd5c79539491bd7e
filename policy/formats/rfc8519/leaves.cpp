// Reading the leaves of matches as the arguments of criteria.
#include "policy/formats/rfc8519/leaves.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <sstream>
#include <string>

#include "policy/formats/rfc8519/ethertypes.h"

namespace qimctl::rfc8519 {

namespace {

using Bytes = std::vector<uint8_t>;
using Args = std::optional<Bytes>;

void append(Bytes& bytes, uint32_t value, size_t width) {
  for (size_t i = width; i-- > 0;) bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

Args integer_args(Notes& notes, const CriterionKind& kind, const Value& leaf, size_t width) {
  const auto value = read_number(notes, leaf, kind.min, kind.max);
  if (!value) return {};
  Bytes bytes;
  append(bytes, *value, width);
  return bytes;
}

// A number, or one of the names of the model.
Args ethertype_args(Notes& notes, const CriterionKind& kind, const Value& leaf) {
  if (!leaf.json.is_string()) return integer_args(notes, kind, leaf, 2);
  const auto name = read_string(notes, leaf);
  const auto number = name ? ethertype_by_name(*name) : std::nullopt;
  if (!number) {
    notes.problem(leaf, in_quotes(leaf.json.text()) +
                            " is not the name of an Ethernet type; give its number, such as "
                            "2048 for IPv4");
    return {};
  }
  Bytes bytes;
  append(bytes, *number, 2);
  return bytes;
}

Args flags_args(Notes& notes, const CriterionKind& kind, const Value& leaf) {
  const auto text = read_string(notes, leaf);
  if (!text) return {};
  std::vector<std::string_view> names;
  for (const FlagName& flag : flag_names(kind.encoding)) names.push_back(flag.name);
  uint8_t bits = 0;
  std::istringstream words(*text);
  for (std::string word; words >> word;) {
    const auto found = std::find(names.begin(), names.end(), word);
    if (found == names.end()) {
      notes.problem(leaf, in_quotes(word) + " is not a flag; use " + alternatives(names));
      return {};
    }
    const uint8_t bit = flag_names(kind.encoding)[static_cast<size_t>(found - names.begin())].bit;
    if ((bits & bit) != 0) {
      notes.problem(leaf, in_quotes(word) + " comes twice; remove one of the two");
      return {};
    }
    bits |= bit;
  }
  return Bytes{bits};
}

// A prefix length in plain digits, without leading zeros; `most` + 1 when it is none.
uint32_t prefix_length(const std::string& digits, uint32_t most) {
  const bool plain =
      !digits.empty() && digits.size() <= 3 &&
      std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }) &&
      (digits.size() == 1 || digits[0] != '0');
  return plain ? std::min(static_cast<uint32_t>(std::stoul(digits)), most + 1) : most + 1;
}

// Clears the bits behind the prefix, which name no part of a network. True when some were set.
bool clear_host_bits(Bytes& address, uint32_t length) {
  bool cleared = false;
  for (size_t i = 0; i < address.size(); i++) {
    const uint32_t kept =
        std::min<uint32_t>(8, length - std::min<uint32_t>(length, 8 * static_cast<uint32_t>(i)));
    const auto mask = static_cast<uint8_t>(0xff00u >> kept);
    cleared = cleared || (address[i] & ~mask) != 0;
    address[i] &= mask;
  }
  return cleared;
}

std::string prefix_text(int family, const Bytes& address, uint32_t length) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  inet_ntop(family, address.data(), text.data(), text.size());
  return std::string(text.data()) + "/" + std::to_string(length);
}

Args prefix_args(Notes& notes, const Value& leaf, int family) {
  const auto text = read_string(notes, leaf);
  if (!text) return {};
  const size_t bytes = family == AF_INET ? 4 : 16;
  Bytes address;
  address.reserve(bytes + 1);
  address.resize(bytes);
  const auto bits = static_cast<uint32_t>(8 * address.size());
  const size_t slash = text->find('/');
  const bool whole = slash != std::string::npos;
  const uint32_t length = whole ? prefix_length(text->substr(slash + 1), bits) : bits + 1;
  if (length > bits || inet_pton(family, text->substr(0, slash).c_str(), address.data()) != 1) {
    const std::string example = family == AF_INET ? "\"192.0.2.0/24\"" : "\"2001:db8::/32\"";
    notes.problem(leaf, in_quotes(*text) + " is not an IPv" + (family == AF_INET ? "4" : "6") +
                            " prefix; write an address, a slash and a length up to " +
                            std::to_string(bits) + ", such as " + example);
    return {};
  }
  if (clear_host_bits(address, length)) {
    notes.finding(Fate::accepted, leaf,
                  in_quotes(*text) + " stands for " + prefix_text(family, address, length));
  }
  address.push_back(static_cast<uint8_t>(length));
  return address;
}

Args binary_args(Notes& notes, const CriterionKind& kind, const Value& leaf) {
  auto value = read_binary(notes, leaf);
  if (!value) return {};
  if (value->size() < kind.min || value->size() > kind.max) {
    notes.problem(leaf, "holds " + std::to_string(value->size()) + " bytes, but must hold " +
                            std::to_string(kind.min) + " to " + std::to_string(kind.max));
    return {};
  }
  return value;
}

Args port_args(PortOperator op, uint32_t first, uint32_t last) {
  Bytes bytes;
  bytes.reserve(5);
  bytes.push_back(static_cast<uint8_t>(op));
  append(bytes, first, 2);
  append(bytes, last, 2);
  return bytes;
}

std::optional<PortOperator> read_operator(Notes& notes, const Value& leaf) {
  if (!leaf) return PortOperator::eq;  // the model's default
  const auto name = read_string(notes, leaf);
  if (!name) return {};
  for (const OperatorName& op : port_operators())
    if (op.name == *name) return op.code;
  std::vector<std::string_view> names;
  for (const OperatorName& op : port_operators()) names.push_back(op.name);
  notes.problem(leaf, in_quotes(*name) + " is not an operator; use " + alternatives(names));
  return {};
}

std::optional<uint32_t> read_port(Notes& notes, const Object& ports, std::string_view name) {
  const Value port = ports.require(notes, name);
  return port ? read_number(notes, port, 0, 0xffff) : std::nullopt;
}

Args read_port_range(Notes& notes, const Object& ports) {
  const auto first = read_port(notes, ports, "lower-port");
  const auto last = read_port(notes, ports, "upper-port");
  if (!first || !last) return {};
  if (*first > *last) {
    notes.problem(ports.value(), "the range " + std::to_string(*first) + " to " +
                                     std::to_string(*last) +
                                     " is upside down; \"lower-port\" must not be above "
                                     "\"upper-port\"");
    return {};
  }
  return port_args(PortOperator::range, *first, *last);
}

// Six pairs of hexadecimal digits with colons between them.
Args read_mac_leaf(Notes& notes, const Value& leaf) {
  const auto text = read_string(notes, leaf);
  if (!text) return {};
  constexpr std::string_view form = "hh:hh:hh:hh:hh:hh";
  bool good = text->size() == form.size();
  for (size_t i = 0; good && i < form.size(); i++) {
    const char c = (*text)[i];
    const bool digit = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    good = form[i] == ':' ? c == ':' : digit;
  }
  if (!good) {
    notes.problem(leaf, in_quotes(*text) +
                            " is not a MAC address; write six pairs of hexadecimal "
                            "digits, such as \"00:00:5e:00:53:01\"");
    return {};
  }
  Bytes bytes;
  for (size_t i = 0; i < form.size(); i += 3) {
    bytes.push_back(static_cast<uint8_t>(std::stoul(text->substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

}  // namespace

Args read_args(Notes& notes, const CriterionKind& kind, const Value& leaf) {
  switch (kind.encoding) {
    case Encoding::u8:
      return integer_args(notes, kind, leaf, 1);
    case Encoding::u16:
      return integer_args(notes, kind, leaf, 2);
    case Encoding::u32:
      return integer_args(notes, kind, leaf, 4);
    case Encoding::u16_hex:
      return ethertype_args(notes, kind, leaf);
    case Encoding::ipv4_flags:
    case Encoding::tcp_flags:
      return flags_args(notes, kind, leaf);
    case Encoding::ipv4_prefix:
      return prefix_args(notes, leaf, AF_INET);
    case Encoding::ipv6_prefix:
      return prefix_args(notes, leaf, AF_INET6);
    case Encoding::bytes:
      return binary_args(notes, kind, leaf);
    case Encoding::none:
    case Encoding::mac:
    case Encoding::ports:
    case Encoding::interface:
    case Encoding::text:
    case Encoding::opaque:
      break;
  }
  return {};
}

Args read_ports(Notes& notes, const Object& ports) {
  const bool range = ports.find("lower-port") || ports.find("upper-port");
  const bool single = ports.find("operator") || ports.find("port");
  if (range && single) {
    notes.problem(ports.value(),
                  "has an operator and a range; keep \"operator\" and \"port\", or \"lower-port\" "
                  "and \"upper-port\"");
    return {};
  }
  if (range) return read_port_range(notes, ports);
  const auto op = read_operator(notes, ports.find("operator"));
  const auto port = read_port(notes, ports, "port");
  if (!op || !port) return {};
  return port_args(*op, *port, *port);
}

Args read_mac(Notes& notes, const Value& address, const Value& mask) {
  Args bytes = read_mac_leaf(notes, address);
  const Args bits = mask ? read_mac_leaf(notes, mask) : Args(Bytes(6, 0xff));
  if (!bytes || !bits) return {};
  bool cleared = false;
  for (size_t i = 0; i < bits->size(); i++) {
    cleared = cleared || ((*bytes)[i] & ~(*bits)[i]) != 0;
    (*bytes)[i] &= (*bits)[i];
  }
  if (cleared) {
    notes.finding(Fate::accepted, address,
                  "has bits set that its mask does not look at; they count as 0");
  }
  bytes->insert(bytes->end(), bits->begin(), bits->end());
  return bytes;
}

}  // namespace qimctl::rfc8519
