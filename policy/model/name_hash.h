// Numbers that names stand for. They are functions of the names alone, so that the same name has the
// same number in every file and every run.
#pragma once

#include <cstdint>
#include <string_view>

namespace qimctl {

// A well-mixed 32-bit hash: FNV-1a (draft-eastlake-fnv), then the 32-bit finalizer of MurmurHash3,
// which spreads the last characters over all bits.
uint32_t name_hash(std::string_view name);

// The index that stands for an interface, 1 to 0x7fffffff.
uint32_t interface_index(std::string_view name);

}  // namespace qimctl
