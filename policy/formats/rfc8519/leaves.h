// Leaves of a header's matches as criterion arguments.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "policy/base/criteria.h"
#include "policy/formats/rfc8519/input.h"

namespace qimctl::rfc8519 {

// The arguments of a criterion of type `kind`, laid out as its encoding says; nothing, with a
// problem reported, when the leaf's value is not one of its type. Does not serve Encoding::none,
// mac, interface, and ports, which no single leaf makes up.
std::optional<std::vector<uint8_t>> read_args(Notes& notes, const CriterionKind& kind,
                                              const Value& leaf);

// A container of ports: an operator with a port, or a range.
std::optional<std::vector<uint8_t>> read_ports(Notes& notes, const Object& ports);

// An address and its mask (absent: all bits).
std::optional<std::vector<uint8_t>> read_mac(Notes& notes, const Value& address, const Value& mask);

}  // namespace qimctl::rfc8519
