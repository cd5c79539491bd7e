// Criterion types by number and by name.
#include "acl/kinds.h"

#include <string.h>

namespace {

using qim::acl::kKindCount;
using qim::acl::kKinds;

constexpr bool ascending() {
  for (uint32_t i = 1; i < kKindCount; i++) {
    if (kKinds[i - 1].type >= kKinds[i].type) return false;
  }
  return true;
}
static_assert(ascending(), "criterion types are looked up by bisection");

}  // namespace

const qim_crit_kind_t* qim_crit_kinds(uint32_t* count) {
  *count = kKindCount;
  return kKinds;
}

const qim_crit_kind_t* qim_crit_kind_get(uint32_t type) {
  uint32_t first = 0;
  uint32_t end = kKindCount;
  while (first < end) {
    const uint32_t middle = first + (end - first) / 2;
    if (kKinds[middle].type < type) {
      first = middle + 1;
    } else {
      end = middle;
    }
  }
  return first < kKindCount && kKinds[first].type == type ? &kKinds[first] : nullptr;
}

const qim_crit_kind_t* qim_crit_kind_named(const char* name) {
  for (const qim_crit_kind_t& kind : kKinds) {
    if (strcmp(kind.name, name) == 0) return &kind;
  }
  return nullptr;
}
