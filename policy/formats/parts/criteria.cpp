// Criteria of values as many formats spell them.
#include "policy/formats/parts/criteria.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>

#include "policy/base/names.h"
#include "policy/formats/parts/notes.h"

namespace qimctl::formats {

namespace {

std::optional<uint32_t> at_most(std::optional<uint64_t> number, uint32_t max) {
  if (!number || *number > max) return {};
  return static_cast<uint32_t>(*number);
}

// Of a value that is within the bounds of its type.
Criterion built(const qim_crit_value_t& value) {
  std::array<uint8_t, 12> args{};
  uint32_t length = 0;
  qim_crit_build(&value, args.size(), args.data(), &length);
  return {value.type, {args.begin(), args.begin() + length}};
}

// Cut between characters.
std::string shortened(const std::string& name, const std::string& suffix) {
  if (name.size() + suffix.size() <= longest_name) return name + suffix;
  const std::string dots = "..." + suffix;
  size_t size = longest_name - dots.size();
  while ((static_cast<unsigned char>(name[size]) & 0xc0) == 0x80) size--;
  return name.substr(0, size) + dots;
}

}  // namespace

std::optional<uint32_t> parse_value(std::string_view text, uint32_t max) {
  return at_most(parse_number(std::string(text)), max);
}

std::optional<uint32_t> parse_decimal(std::string_view text, uint32_t max) {
  const bool digits =
      std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
  return digits ? parse_value(text, max) : std::nullopt;
}

std::optional<std::vector<uint8_t>> parse_prefix(std::string_view text, bool is_ipv6) {
  std::vector<uint8_t> args(is_ipv6 ? 16 : 4);
  const auto bits = static_cast<uint32_t>(8 * args.size());
  const size_t slash = text.find('/');
  const std::string address(text.substr(0, slash));
  if (inet_pton(is_ipv6 ? AF_INET6 : AF_INET, address.c_str(), args.data()) != 1) return {};
  const auto length = slash == std::string_view::npos ? std::optional<uint32_t>(bits)
                                                      : parse_decimal(text.substr(slash + 1), bits);
  if (!length) return {};
  for (uint32_t bit = *length; bit < bits; bit++)
    args[bit / 8] = static_cast<uint8_t>(args[bit / 8] & ~(0x80u >> bit % 8));
  args.push_back(static_cast<uint8_t>(*length));
  return args;
}

std::optional<std::vector<uint8_t>> parse_mac(std::string_view text) {
  constexpr size_t pair = 3;  // with the colon behind it
  if (text.size() != 6 * pair - 1) return {};
  std::string digits;
  for (size_t i = 0; i < text.size(); i++) {
    if (i % pair != 2) {
      digits += text[i];
    } else if (text[i] != ':') {
      return {};
    }
  }
  return bytes_from_hex(digits);
}

std::optional<PortRange> parse_ports(std::string_view text, std::string_view separator) {
  constexpr uint32_t most = 0xffff;
  const size_t at = text.find(separator);
  const auto first = parse_decimal(text.substr(0, at), most);
  const auto last = at == std::string_view::npos
                        ? first
                        : parse_decimal(text.substr(at + separator.size()), most);
  if (!first || !last || *first > *last) return {};
  return PortRange{*first, *last};
}

Criterion number_criterion(uint32_t type, uint32_t value, size_t width) {
  Criterion criterion{type, {}};
  for (size_t i = width; i-- > 0;) criterion.args.push_back(static_cast<uint8_t>(value >> (8 * i)));
  return criterion;
}

Criterion ports_criterion(uint32_t type, const PortRange& ports) {
  qim_crit_value_t value{};
  value.type = type;
  value.as.ports.comparison = ports.first == ports.last ? QIM_PORT_EQ : QIM_PORT_RANGE;
  value.as.ports.first = static_cast<uint16_t>(ports.first);
  value.as.ports.last = static_cast<uint16_t>(ports.last);
  return built(value);
}

Criterion mac_criterion(uint32_t type, const std::vector<uint8_t>& address,
                        const std::vector<uint8_t>& mask) {
  qim_crit_value_t value{};
  value.type = type;
  std::copy_n(address.begin(), sizeof value.as.mac.address, value.as.mac.address);
  std::copy_n(mask.begin(), sizeof value.as.mac.mask, value.as.mac.mask);
  return built(value);
}

std::optional<Criterion> whole_match(const std::string& module, const std::string& name,
                                     const std::string& canonical_json) {
  if (module.size() > UINT16_MAX || name.size() > UINT16_MAX) return {};
  return to_criterion(OpaqueMatch{"", module, name, canonical_json});
}

std::string carried_whole(const std::string& what, const std::string& module) {
  return in_quotes(what) + " is carried whole, but only a reader that knows " + in_quotes(module) +
         " can decide it";
}

std::string unique_name(const std::string& wanted, std::set<std::string>& known) {
  std::string name = characters(wanted) <= longest_name ? wanted : shortened(wanted, "");
  for (size_t number = 2; !known.insert(name).second; number++)
    name = shortened(wanted, " (" + std::to_string(number) + ")");
  return name;
}

uint32_t headers_of(const std::vector<Entry>& entries) {
  uint32_t bits = acl_type_unknown;
  for (const Entry& entry : entries) {
    for (const Criterion& criterion : entry.criteria) {
      const auto header = static_cast<Header>(criterion.type & 0xff00u);
      if (header == Header::eth) bits |= acl_type_eth;
      if (header == Header::ipv4) bits |= acl_type_ipv4;
      if (header == Header::ipv6) bits |= acl_type_ipv6;
    }
  }
  return bits;
}

uint32_t type_with(uint32_t bits) {
  return bits == (acl_type_ipv4 | acl_type_ipv6) ? bits | acl_type_eth : bits;
}

}  // namespace qimctl::formats
