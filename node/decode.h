// From a node's TLV to its record.
#pragma once

#include "qim.h"

namespace qim::node {

// Decodes the TLV into `node`, whose header open has filled, resolves its links and derives its
// counts.
uint32_t qim_node_from_tlva(uint32_t ses, uint32_t tlv_len, const void* tlv, uint32_t name_len,
                            const void* name, qim_node_t* node);

}  // namespace qim::node
