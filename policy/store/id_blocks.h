// Node identifiers for access lists.
#pragma once

#include <cstdint>
#include <map>
#include <string_view>

namespace qimctl {

// Hands out identifiers that nothing has: blocks of consecutive ones, one for each new access list,
// and single ones for lists that grow. All have bit 31 set, which keeps them apart from the
// library's private identifiers and from small ones chosen by hand.
class IdBlocks {
 public:
  // These are in use, some perhaps already known to be.
  void reserve(uint32_t first, uint32_t last);
  // The first identifier of a block of `count` (1 to 2^30) for the list called `name`.
  uint32_t take(std::string_view name, uint32_t count);
  // The nearest free identifier behind `id`, which is in use; the first one of all behind the last.
  uint32_t take_behind(uint32_t id);

 private:
  bool is_free(uint32_t first, uint32_t last) const;

  std::map<uint32_t, uint32_t> taken_;  // first to last identifier of each run; no two runs touch
};

}  // namespace qimctl
