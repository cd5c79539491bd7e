// A node's links, read.
#ifndef DATABASE_GRAPH_LINKS_H
#define DATABASE_GRAPH_LINKS_H

#include "database/graph/view.h"

namespace rov {

// Each gives the public record of a link of the node. ROV_ERR_NO_ITEM or ROV_ERR_NO_LINK, noted.
uint32_t link_of_field(View& view, uint32_t node, uint32_t field, rov_link_t* out);
uint32_t link_number(View& view, uint32_t node, uint32_t number, rov_link_t* out);
// The first link whose field agrees with `wanted` in the low `width` bits, 1 to 32.
uint32_t link_matching(View& view, uint32_t node, uint32_t wanted, uint32_t width, rov_link_t* out);

}  // namespace rov

#endif
