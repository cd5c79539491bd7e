#include <cstdio>
#include <cstdlib>

#include "tests/fuzz/targets.h"

namespace fuzz {

void require(bool holds, const char* promise) {
  if (holds) return;
  fprintf(stderr, "does not hold: %s\n", promise);
  abort();
}

}  // namespace fuzz
