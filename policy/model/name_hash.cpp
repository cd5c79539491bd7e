// Numbers that names stand for.
#include "policy/model/name_hash.h"

namespace qimctl {

namespace {

uint32_t mix(uint32_t hash) {
  hash ^= hash >> 16;
  hash *= 0x85ebca6bu;
  hash ^= hash >> 13;
  hash *= 0xc2b2ae35u;
  return hash ^ hash >> 16;
}

}  // namespace

uint32_t name_hash(std::string_view name) {
  uint32_t hash = 0x811c9dc5u;
  for (const char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * 0x01000193u;
  return mix(hash);
}

uint32_t interface_index(std::string_view name) {
  const uint32_t index = name_hash(name) & 0x7fffffffu;
  return index != 0 ? index : 1;
}

}  // namespace qimctl
