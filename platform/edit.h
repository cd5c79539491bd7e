// Changing nodes and links, and with them what is derived: back-references, their number in the
// target, and the index of data sets.
#ifndef PLATFORM_EDIT_H
#define PLATFORM_EDIT_H

#include "platform/view.h"
#include "rov_edit.h"

namespace rov {

uint32_t edit_node_put(View& view, const rov_edit_node_t& from);
uint32_t edit_node_del(View& view, uint32_t number);
uint32_t edit_link_put(View& view, uint32_t owner, const Link& link);
uint32_t edit_link_del(View& view, uint32_t owner, uint32_t field);

// The value of an existing node within the edits, to be changed in place, with room for `more`
// bytes behind it. NULL = out of memory, noted. What was found before (view.node) is forgotten.
uint8_t* own_node(View& view, const NodeView& node, uint32_t more);

// Changes the number of clients with private data.
uint32_t edit_clients(View& view, uint32_t node, int32_t change);

}  // namespace rov

#endif
