// Criteria as text.
#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <optional>

#include "policy/base/criteria.h"
#include "policy/base/names.h"
#include "policy/base/text.h"

namespace qimctl {

namespace {

using Args = std::span<const uint8_t>;
using Text = std::optional<std::string>;  // nothing when the arguments do not have the layout

uint32_t number(Args args) {
  uint32_t value = 0;
  for (const uint8_t byte : args) value = value << 8 | byte;
  return value;
}

std::string hex(Args args) {
  return hex_bytes(args.data(), args.size());
}

// A hardware address, with colons.
std::string mac_address(Args args) {
  std::string text;
  for (size_t i = 0; i < args.size(); i++) text += (i == 0 ? "" : ":") + hex(args.subspan(i, 1));
  return text;
}

Text integer_text(Args args, size_t width) {
  if (args.size() != width) return {};
  return std::to_string(number(args));
}

Text flags_text(Args args, Encoding encoding) {
  if (args.size() != 1) return {};
  std::string text;
  uint8_t left = args[0];
  for (const FlagName& flag : flag_names(encoding)) {
    if ((left & flag.bit) == 0) continue;
    left = static_cast<uint8_t>(left & ~flag.bit);
    if (!text.empty()) text += ',';
    text += flag.name;
  }
  if (left != 0) return {};
  return text.empty() ? "none" : text;
}

Text mac_text(Args args) {
  if (args.size() != 12) return {};
  const Args mask = args.subspan(6);
  const std::string address = mac_address(args.first(6));
  const bool whole = std::all_of(mask.begin(), mask.end(), [](uint8_t b) { return b == 0xff; });
  return whole ? address : address + "/" + mac_address(mask);
}

Text ipv4_prefix_text(Args args) {
  if (args.size() != 5 || args[4] > 32) return {};
  std::string text;
  for (size_t i = 0; i < 5; i++) {
    if (i != 0) text += i == 4 ? '/' : '.';
    text += std::to_string(args[i]);
  }
  return text;
}

Text ipv6_prefix_text(Args args) {
  if (args.size() != 17 || args[16] > 128) return {};
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (inet_ntop(AF_INET6, args.data(), text.data(), text.size()) == nullptr) return {};
  return std::string(text.data()) + "/" + std::to_string(args[16]);
}

Text ports_text(Args args) {
  if (args.size() != 5) return {};
  const std::string first = std::to_string(number(args.subspan(1, 2)));
  const std::string last = std::to_string(number(args.subspan(3, 2)));
  if (args[0] == static_cast<uint8_t>(PortOperator::range)) return first + "-" + last;
  if (first != last) return {};
  for (const OperatorName& op : port_operators()) {
    if (args[0] == static_cast<uint8_t>(op.code)) return std::string(op.name) + " " + first;
  }
  return {};
}

Text interface_text(Args args) {
  if (args.size() <= 4) return {};
  const std::string name(args.begin() + 4, args.end());
  return printable(name) + " (" + hex_number(number(args.first(4)), 8) + ")";
}

// "module:name json", below the container that holds it, if any: "ipv4/module:name json".
Text opaque_text(Args args) {
  std::array<std::string, 3> texts;  // container, module, name
  for (std::string& text : texts) {
    if (args.size() < 2 || args.size() - 2 < number(args.first(2))) return {};
    const Args bytes = args.subspan(2, number(args.first(2)));
    text = printable(std::string(bytes.begin(), bytes.end()));
    args = args.subspan(2 + bytes.size());
  }
  const auto& [within, module, name] = texts;
  const std::string json = printable(std::string(args.begin(), args.end()));
  return (within.empty() ? "" : within + "/") + module + ":" + name + " " + json;
}

Text value_text(const CriterionKind& kind, Args args) {
  switch (kind.encoding) {
    case Encoding::none:
      return args.empty() ? Text("") : Text();
    case Encoding::u8:
      return integer_text(args, 1);
    case Encoding::u16:
      return integer_text(args, 2);
    case Encoding::u32:
      return integer_text(args, 4);
    case Encoding::u16_hex:
      return args.size() == 2 ? Text(hex_number(number(args), 4)) : Text();
    case Encoding::ipv4_flags:
    case Encoding::tcp_flags:
      return flags_text(args, kind.encoding);
    case Encoding::mac:
      return mac_text(args);
    case Encoding::ipv4_prefix:
      return ipv4_prefix_text(args);
    case Encoding::ipv6_prefix:
      return ipv6_prefix_text(args);
    case Encoding::ports:
      return ports_text(args);
    case Encoding::bytes:
      return args.empty() ? Text("empty") : Text(hex(args));
    case Encoding::interface:
      return interface_text(args);
    case Encoding::text:
      return '"' + printable(std::string(args.begin(), args.end())) + '"';
    case Encoding::opaque:
      return opaque_text(args);
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
