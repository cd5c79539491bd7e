// The identifiers of nodes that are made of access lists.
#include "policy/formats/rfc8519/ids.h"

namespace qimctl::rfc8519 {

namespace {

constexpr uint32_t first_id = 0x80000000;

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

uint32_t IdBlocks::take(std::string_view name, uint32_t count) {
  // The multiples of an odd number reach every identifier, so a free block is found if there is
  // one.
  constexpr uint32_t step = 0x9e3779b9u;
  for (uint32_t hash = name_hash(name);; hash += step) {
    const uint32_t first = first_id | hash;
    const uint32_t last = first + (count - 1);
    if (last < first || !is_free(first, last)) continue;
    taken_.emplace(first, last);
    return first;
  }
}

bool IdBlocks::is_free(uint32_t first, uint32_t last) const {
  const auto after = taken_.upper_bound(last);
  return after == taken_.begin() || std::prev(after)->second < first;
}

uint32_t interface_index(std::string_view name) {
  const uint32_t index = name_hash(name) & 0x7fffffffu;
  return index != 0 ? index : 1;
}

uint32_t Interfaces::index(Notes& notes, const std::string& name, const std::string& path) {
  const uint32_t index = interface_index(name);
  const auto [known, added] = names_.emplace(index, name);
  if (!added && known->second != name) {
    notes.problem(path, in_quotes(name) + " gets the same interface index as " +
                            in_quotes(known->second) + "; rename one of the two interfaces");
  }
  return index;
}

}  // namespace qimctl::rfc8519
