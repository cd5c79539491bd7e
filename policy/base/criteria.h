// What is known of criterion and action types: their names, how their arguments are laid out, and
// how both read as text.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "policy/base/criteria_codes.h"

namespace qimctl {

// The layout of a criterion's arguments. Integers are big-endian.
enum class Encoding : uint32_t {
  none = QIM_LAYOUT_NONE,        // no arguments: the packet has the header
  u8 = QIM_LAYOUT_U8,            // 1 byte
  u16 = QIM_LAYOUT_U16,          // 2 bytes
  u16_hex = QIM_LAYOUT_U16_HEX,  // the same, read as hexadecimal
  u32 = QIM_LAYOUT_U32,          // 4 bytes
  ipv4_flags = QIM_LAYOUT_IPV4_FLAGS,
  tcp_flags = QIM_LAYOUT_TCP_FLAGS,
  mac = QIM_LAYOUT_MAC,  // 6 bytes of address, 6 bytes of mask
  ipv4_prefix = QIM_LAYOUT_IPV4_NETWORK,
  ipv6_prefix = QIM_LAYOUT_IPV6_NETWORK,
  ports = QIM_LAYOUT_PORTS,          // a PortOperator, first and last port
  bytes = QIM_LAYOUT_BYTES,          // as many as there are
  interface = QIM_LAYOUT_INTERFACE,  // interface index and name
  text = QIM_LAYOUT_TEXT,            // UTF-8
  opaque = QIM_LAYOUT_MATCH,         // a match of another model (policy/model/model.h)
};

// A criterion type. `name` is header and field with a dot between them, the header alone for field
// 0. For integers min and max bound the value, for Encoding::bytes the length.
struct CriterionKind {
  uint32_t type;
  Header header;
  std::string_view name;
  Encoding encoding;
  uint32_t min;
  uint32_t max;

  std::string_view field() const;  // the name behind the dot, "" for field 0
};

// Every known criterion type, in ascending order of type.
std::span<const CriterionKind> criterion_kinds();
// nullptr when it is not known.
const CriterionKind* find_criterion_kind(uint32_t type);
const CriterionKind* find_criterion_kind(std::string_view name);

// "ipv4", "tcp", ...
std::string_view header_name(Header header);

// A flag of Encoding::ipv4_flags or tcp_flags, and its bit.
struct FlagName {
  std::string_view name;
  uint8_t bit;
};
std::span<const FlagName> flag_names(Encoding encoding);

// A named operator of Encoding::ports. A range has no name: it is told by its two ports.
struct OperatorName {
  std::string_view name;
  PortOperator code;
};
std::span<const OperatorName> port_operators();

// "ipv4.protocol 6", "tcp.destination-port 1024-2047"; a type that is not known, or arguments that
// do not have its layout, read "0x1234 args 0a0b".
std::string criterion_text(uint32_t type, std::span<const uint8_t> args);

// The same without the name, "" where there are no arguments; nothing for arguments that do not have
// the layout of the type.
std::optional<std::string> criterion_value(const CriterionKind& kind,
                                           std::span<const uint8_t> args);

// "accept", "log-syslog", ...; "" when the type is not known. Serves qim_def_t.type too.
std::string_view action_name(uint32_t type);

}  // namespace qimctl
