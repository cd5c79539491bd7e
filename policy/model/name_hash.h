// Numbers that names stand for. They are functions of the names alone, so that the same name has the
// same number in every file and every run.
#pragma once

#include <cstdint>
#include <string_view>

#include "acl/names.h"

namespace qimctl {

inline uint32_t name_hash(std::string_view name) {
  return qim::acl::name_hash(name.data(), name.size());
}

// The index that stands for an interface, 1 to 0x7fffffff.
inline uint32_t interface_index(std::string_view name) {
  return qim::acl::interface_index(name.data(), name.size());
}

}  // namespace qimctl
