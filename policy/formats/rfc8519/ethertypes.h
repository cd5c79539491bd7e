// Names of Ethernet types.
#ifndef POLICY_FORMATS_RFC8519_ETHERTYPES_H
#define POLICY_FORMATS_RFC8519_ETHERTYPES_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace qimctl::rfc8519 {

// The number of an Ethernet type that RFC 8519 section 4.3 names.
std::optional<uint16_t> ethertype_by_name(std::string_view name);

}  // namespace qimctl::rfc8519

#endif
