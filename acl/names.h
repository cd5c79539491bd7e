// Numbers that names stand for. They are functions of the names alone, so that the same name has the
// same number in every process.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace qim::acl {

// A well-mixed 32-bit hash: FNV-1a (draft-eastlake-fnv), then the 32-bit finalizer of MurmurHash3,
// which spreads the last characters over all bits.
constexpr uint32_t name_hash(const char* name, size_t len) {
  uint32_t hash = 0x811c9dc5u;
  for (size_t i = 0; i < len; i++)
    hash = (hash ^ static_cast<unsigned char>(name[i])) * 0x01000193u;
  hash ^= hash >> 16;
  hash *= 0x85ebca6bu;
  hash ^= hash >> 13;
  hash *= 0xc2b2ae35u;
  return hash ^ hash >> 16;
}

// The index that stands for an interface, 1 to 0x7fffffff.
constexpr uint32_t interface_index(const char* name, size_t len) {
  const uint32_t index = name_hash(name, len) & 0x7fffffffu;
  return index != 0 ? index : 1;
}

}  // namespace qim::acl
