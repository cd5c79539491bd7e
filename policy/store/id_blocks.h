// Node identifiers for access lists.
#pragma once

#include <cstdint>
#include <map>
#include <string_view>

namespace qimctl {

// Hands out blocks of consecutive node identifiers, one for each access list. All have bit 31 set,
// which keeps them apart from the library's private identifiers and from small ones chosen by hand.
class IdBlocks {
 public:
  // The first identifier of a block of `count` (1 to 2^30) for the list called `name`.
  uint32_t take(std::string_view name, uint32_t count);

 private:
  bool is_free(uint32_t first, uint32_t last) const;

  std::map<uint32_t, uint32_t> taken_;  // first to last identifier of each block
};

}  // namespace qimctl
