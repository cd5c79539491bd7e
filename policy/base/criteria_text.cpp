// Criteria as text.
#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

#include "policy/base/criteria.h"
#include "policy/base/names.h"
#include "policy/base/text.h"

namespace qimctl {

namespace {

using Args = std::span<const uint8_t>;
using Text = std::optional<std::string>;  // nothing when the arguments do not have the layout

std::string hex(Args args) {
  return hex_bytes(args.data(), args.size());
}

// A hardware address, with colons.
std::string mac_address(Args args) {
  std::string text;
  for (size_t i = 0; i < args.size(); i++) text += (i == 0 ? "" : ":") + hex(args.subspan(i, 1));
  return text;
}

Text flags_text(uint32_t value, Encoding encoding) {
  std::string text;
  uint32_t left = value;
  for (const FlagName& flag : flag_names(encoding)) {
    if ((left & flag.bit) == 0) continue;
    left &= ~uint32_t{flag.bit};
    if (!text.empty()) text += ',';
    text += flag.name;
  }
  if (left != 0) return {};
  return text.empty() ? "none" : text;
}

std::string mac_text(const qim_crit_value_t& value) {
  const Args mask = value.as.mac.mask;
  const std::string address = mac_address(value.as.mac.address);
  const bool whole = std::all_of(mask.begin(), mask.end(), [](uint8_t b) { return b == 0xff; });
  return whole ? address : address + "/" + mac_address(mask);
}

// Most criteria are such addresses, and the system's function takes ten times as long.
std::string ipv4_text(const qim_crit_value_t& value) {
  std::array<char, sizeof "255.255.255.255/32"> text;
  char* at = text.data();
  for (size_t i = 0; i < 4; i++) {
    at = std::to_chars(at, text.end(), value.as.network.address[i]).ptr;
    *at++ = i < 3 ? '.' : '/';
  }
  return {text.data(), std::to_chars(at, text.end(), value.as.network.bits).ptr};
}

std::string ipv6_text(const qim_crit_value_t& value) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  inet_ntop(AF_INET6, value.as.network.address, text.data(), text.size());
  return std::string(text.data()) + "/" + std::to_string(value.as.network.bits);
}

Text ports_text(const qim_crit_value_t& value) {
  const auto& [comparison, first, last] = value.as.ports;
  if (comparison == QIM_PORT_RANGE) return std::to_string(first) + "-" + std::to_string(last);
  if (first != last) return {};
  std::string text;
  for (const OperatorName& op : port_operators())
    if (comparison == static_cast<uint8_t>(op.code))
      text = std::string(op.name) + " " + std::to_string(first);
  return text;
}

std::string text_of(const qim_crit_bytes_t& bytes) {
  return printable(std::string(bytes.at, bytes.at + bytes.len));
}

std::string interface_text(const qim_crit_value_t& value) {
  return text_of(value.as.interface.name) + " (" + hex_number(value.as.interface.index, 8) + ")";
}

// "module:name json", below the container that holds it, if any: "ipv4/module:name json".
std::string opaque_text(const qim_crit_value_t& value) {
  const auto& match = value.as.match;
  const std::string within = match.within.len == 0 ? "" : text_of(match.within) + "/";
  return within + text_of(match.module) + ":" + text_of(match.name) + " " + text_of(match.json);
}

Text value_text(const CriterionKind& kind, Args args) {
  qim_crit_value_t value;
  if (qim_crit_parse(kind.type, static_cast<uint32_t>(args.size()), args.data(), &value) != 0)
    return {};
  switch (kind.encoding) {
    case Encoding::none:
      return "";
    case Encoding::u8:
    case Encoding::u16:
    case Encoding::u32:
      return std::to_string(value.as.number);
    case Encoding::u16_hex:
      return hex_number(value.as.number, 4);
    case Encoding::ipv4_flags:
    case Encoding::tcp_flags:
      return flags_text(value.as.number, kind.encoding);
    case Encoding::mac:
      return mac_text(value);
    case Encoding::ipv4_prefix:
      return ipv4_text(value);
    case Encoding::ipv6_prefix:
      return ipv6_text(value);
    case Encoding::ports:
      return ports_text(value);
    case Encoding::bytes:
      return args.empty() ? "empty" : hex(args);
    case Encoding::interface:
      return interface_text(value);
    case Encoding::text:
      return quoted({value.as.bytes.at, value.as.bytes.at + value.as.bytes.len});
    case Encoding::opaque:
      return opaque_text(value);
  }
  return {};
}

}  // namespace

std::optional<std::string> criterion_value(const CriterionKind& kind,
                                           std::span<const uint8_t> args) {
  return value_text(kind, args);
}

std::string criterion_text(uint32_t type, std::span<const uint8_t> args) {
  const CriterionKind* kind = find_criterion_kind(type);
  if (kind != nullptr) {
    const Text value = value_text(*kind, args);
    if (value) return std::string(kind->name) + (value->empty() ? "" : " " + *value);
  }
  const std::string number = hex_number(type, 4);
  return args.empty() ? number : number + " args " + hex(args);
}

}  // namespace qimctl
