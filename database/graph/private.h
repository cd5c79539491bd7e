// Private data: bytes that a client keeps on a node. One client never sees another's.
#ifndef DATABASE_GRAPH_PRIVATE_H
#define DATABASE_GRAPH_PRIVATE_H

#include "database/graph/view.h"

namespace rov {

// What the view's client keeps on the node that was found last (view.node): no bytes when it keeps
// nothing.
uint32_t private_get(View& view, Bytes* data);

// Keeps `len` bytes on an existing node; 0 takes them away.
uint32_t private_set(View& view, uint32_t node, const void* data, uint32_t len);

// Takes away what all clients keep on the node.
uint32_t private_drop(View& view, uint32_t node);

}  // namespace rov

#endif
