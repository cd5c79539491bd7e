// Names of Ethernet types.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace qimctl::rfc8519 {

// The number of an Ethernet type that RFC 8519 section 4.3 names.
std::optional<uint16_t> ethertype_by_name(std::string_view name);

}  // namespace qimctl::rfc8519
