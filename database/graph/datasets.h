// Data sets: the nodes that have a data-set name or the flag ROV_NODE_DSET.
#ifndef DATABASE_GRAPH_DATASETS_H
#define DATABASE_GRAPH_DATASETS_H

#include "database/graph/view.h"

namespace rov {

uint32_t datasets_count(View& view, uint32_t* count);

// The node of the data set number `selector`, by name and then by number. ROV_ERR_NO_ITEM, noted,
// past the last. Asking for one after the other costs one step each.
uint32_t dataset_at(View& view, uint32_t selector, uint32_t* node);

// The lowest node that bears the name of kNameBytes bytes. ROV_ERR_NO_ITEM, noted.
uint32_t dataset_named(View& view, const uint8_t* name, uint32_t* node);

// The data set number `selector` among the node itself and the nodes that refer to it. Noted.
uint32_t dataset_of_node(View& view, uint32_t node, uint32_t selector, uint32_t* found);

// Keeps the index right when a node's data-set name or flag changes. NULL = no such node before, or
// after.
uint32_t dataset_index(View& view, const NodeView* before, const NodeView* after);

}  // namespace rov

#endif
