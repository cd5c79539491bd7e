// Reading nodes: their parameters and their data.
#ifndef DATABASE_GRAPH_NODES_H
#define DATABASE_GRAPH_NODES_H

#include "database/graph/view.h"

namespace rov {

// The parameters of the node that was found last (view.node).
uint32_t node_parms(View& view, rov_node_parms_t* parms);

// Finds a node and gives its parameters. ROV_ERR_NO_ITEM, noted.
uint32_t node_parms_of(View& view, uint32_t node, rov_node_parms_t* parms);

// Finds the first node behind `after` (0 = the first of all). ROV_ERR_NO_ITEM, noted.
uint32_t node_after(View& view, uint32_t after);

// Where a part of a node's data goes; len 0 = not wanted.
struct Want {
  uint32_t len;
  void* buf;
};

// Copies a node's TLV data, data-set name and the client's private data. Nothing is copied on
// failure.
uint32_t node_data(View& view, uint32_t number, const Want& tlv, const Want& dset,
                   const Want& priv);

}  // namespace rov

#endif
