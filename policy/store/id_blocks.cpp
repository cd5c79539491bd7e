// The identifiers of nodes that are made of access lists.
#include "policy/store/id_blocks.h"

#include <iterator>

#include "policy/model/name_hash.h"

namespace qimctl {

namespace {

constexpr uint32_t first_id = 0x80000000;

}  // namespace

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

}  // namespace qimctl
