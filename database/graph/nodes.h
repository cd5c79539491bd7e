// Reading nodes: their parameters, their data and their links.
#pragma once

#include "database/graph/view.h"

namespace rov {

// The parameters of the node that was found last (view.node).
[[nodiscard]] uint32_t node_parms(View& view, rov_node_parms_t* parms);

// Finds a node and gives its parameters. ROV_ERR_NO_ITEM, noted.
[[nodiscard]] uint32_t node_parms_of(View& view, uint32_t node, rov_node_parms_t* parms);

// Finds the first node behind `after` (0 = the first of all). ROV_ERR_NO_ITEM, noted.
[[nodiscard]] uint32_t node_after(View& view, uint32_t after);

// Where a part of a node's data goes; len 0 = not wanted.
struct Want {
  uint32_t len;
  void* buf;
};

// The sum of the checksums of a node's record, and of those of what clients keep on it.
[[nodiscard]] uint32_t node_sum(View& view, uint32_t node, uint64_t* sum);

// Copies a node's TLV data, data-set name and the client's private data. Nothing is copied on
// failure.
[[nodiscard]] uint32_t node_data(View& view, uint32_t number, const Want& tlv, const Want& dset,
                                 const Want& priv);

// Each gives the public record of a link of the node. ROV_ERR_NO_ITEM or ROV_ERR_NO_LINK, noted.
[[nodiscard]] uint32_t link_of_field(View& view, uint32_t node, uint32_t field, rov_link_t* out);
[[nodiscard]] uint32_t link_number(View& view, uint32_t node, uint32_t number, rov_link_t* out);
// The first link whose field agrees with `wanted` in the low `width` bits, 1 to 32.
[[nodiscard]] uint32_t link_matching(View& view, uint32_t node, uint32_t wanted, uint32_t width,
                                     rov_link_t* out);

}  // namespace rov
