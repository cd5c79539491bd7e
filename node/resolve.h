// Resolving a node's links into the slots of its record.
#pragma once

#include "schema/rows.h"

namespace qim::node {

// Reads, in the order of their rows, every link that nodes of this type have into its slot. Stops
// at the first failure.
uint32_t links_get(uint32_t ses, const schema::NodeType& type, qim_node_t* node);

// links_get for a node that has a data-set name, then its policy-instance fields from that name. A
// name that is NULL leaves the fields zero; of one shorter than 21 bytes the missing bytes count as
// zero.
uint32_t qim_pinst_dsetname_get(uint32_t ses, uint32_t name_len, const void* name,
                                qim_node_t* node);

}  // namespace qim::node
