// Copying out the arguments of a node.
#pragma once

#include "qim.h"

namespace qim::query {

// Copies the arguments of a node of type `type`, which must be one that has arguments, as
// qim_action_arg_get does.
uint32_t args_get(uint32_t ses, qim_node_id_t node_id, uint32_t type, uint32_t buf_len, void* buf);

}  // namespace qim::query
