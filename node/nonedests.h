// A step of decoding that never fails. It is apart so that a test can put a failing one in its
// place.
#pragma once

#include "qim.h"
#include "rov.h"

namespace qim::node {

// Every referrer of a policy instance counts as an enforcement destination, so there is nothing to
// recount.
inline uint32_t qim_node_nonedests_recount(uint32_t, qim_node_t* node) {
  node->body.pinst.nonedests = 0;
  return ROV_OK;
}

}  // namespace qim::node
