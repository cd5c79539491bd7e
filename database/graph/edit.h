// Changing nodes and links, and with them what is derived: back-references, their number in the
// target, and the index of data sets.
#ifndef DATABASE_GRAPH_EDIT_H
#define DATABASE_GRAPH_EDIT_H

#include "database/graph/view.h"
#include "rov.h"
#include "rov_edit.h"

namespace rov {

uint32_t edit_node_put(View& view, const rov_edit_node_t& from);
uint32_t edit_node_del(View& view, uint32_t number);
uint32_t edit_link_put(View& view, uint32_t owner, const Link& link);
uint32_t edit_link_del(View& view, uint32_t owner, uint32_t field);

// Links note their targets in the edits' backlog only. This brings what is noted there into the
// referrers of the targets, and their number into the targets themselves. Who asks for either in a
// session with edits, or takes links away, calls it first; it forgets what was found before. A
// failure leaves edits that must not be committed, and comes again at every later call.
uint32_t edit_settle(View& view);
inline uint32_t settle_edits(View& view) {
  return view.edits == nullptr ? uint32_t{ROV_OK} : edit_settle(view);
}
// view_find_node for those who then ask for referrers or their number.
inline uint32_t find_settled_node(View& view, uint32_t node) {
  const uint32_t status = settle_edits(view);
  return status == ROV_OK ? view_find_node(view, node) : status;
}

// The value of an existing node within the edits, to be changed in place, with room for `more`
// bytes behind it. NULL = out of memory, noted. What was found before (view.node) is forgotten.
uint8_t* own_node(View& view, const NodeView& node, uint32_t more);

// Changes the number of clients with private data.
uint32_t edit_clients(View& view, uint32_t node, int32_t change);

}  // namespace rov

#endif
