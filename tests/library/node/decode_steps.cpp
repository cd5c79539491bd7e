// Decoding with a recount that fails when it is told to.
#include "tests/library/node/steps.h"

#define qim_node_nonedests_recount real_recount
#include "node/nonedests.h"
#undef qim_node_nonedests_recount

namespace node_test {

std::uint32_t recount_status = 0;

}  // namespace node_test

namespace qim::node {

static uint32_t qim_node_nonedests_recount(uint32_t ses, qim_node_t* node) {
  return node_test::recount_status != 0 ? node_test::recount_status : real_recount(ses, node);
}

}  // namespace qim::node

#include "node/decode.cpp"
