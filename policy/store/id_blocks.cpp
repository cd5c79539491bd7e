// The identifiers of nodes that are made of access lists.
#include "policy/store/id_blocks.h"

#include <algorithm>
#include <iterator>

#include "policy/model/name_hash.h"

namespace qimctl {

namespace {

constexpr uint32_t lowest_id = 0x80000000;

}  // namespace

void IdBlocks::reserve(uint32_t first, uint32_t last) {
  auto run = taken_.upper_bound(first);
  if (run != taken_.begin() && std::prev(run)->second >= first - 1) run--;
  // Every run that overlaps or touches becomes part of this one.
  while (run != taken_.end() && (last == UINT32_MAX || run->first <= last + 1)) {
    first = std::min(first, run->first);
    last = std::max(last, run->second);
    run = taken_.erase(run);
  }
  taken_.emplace(first, last);
}

uint32_t IdBlocks::take(std::string_view name, uint32_t count) {
  // The multiples of an odd number reach every identifier, so a free block is found if there is
  // one.
  constexpr uint32_t step = 0x9e3779b9u;
  for (uint32_t hash = name_hash(name);; hash += step) {
    const uint32_t first = lowest_id | hash;
    const uint32_t last = first + (count - 1);
    if (last < first || !is_free(first, last)) continue;
    reserve(first, last);
    return first;
  }
}

uint32_t IdBlocks::take_behind(uint32_t id) {
  const auto run = std::prev(taken_.upper_bound(id));
  if (run->second == UINT32_MAX) return take("", 1);
  const uint32_t free = std::max(run->second + 1, lowest_id);
  if (!is_free(free, free)) return take_behind(free);
  reserve(free, free);
  return free;
}

bool IdBlocks::is_free(uint32_t first, uint32_t last) const {
  const auto after = taken_.upper_bound(last);
  return after == taken_.begin() || std::prev(after)->second < first;
}

}  // namespace qimctl
