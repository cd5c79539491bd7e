// Private data: bytes that a client keeps on a node. One client never sees another's.
#pragma once

#include "database/graph/view.h"

namespace rov {

// What the view's client keeps on the node that was found last (view.node): no bytes when it keeps
// nothing.
[[nodiscard]] uint32_t private_get(View& view, Bytes* data);

// Keeps `len` bytes on an existing node; 0 takes them away.
[[nodiscard]] uint32_t private_set(View& view, uint32_t node, const void* data, uint32_t len);
// The same through the eyes of another client.
[[nodiscard]] uint32_t private_set_for(View& view, uint32_t client, uint32_t node, const void* data,
                                       uint32_t len);

// What one client keeps on a node.
struct PrivateEntry {
  uint32_t client;
  Bytes data;
};
// The entry number `n` of all clients' on an existing node. ROV_ERR_NO_VALUE, noted, past the last.
[[nodiscard]] uint32_t private_nth(View& view, uint32_t node, uint32_t n, PrivateEntry* entry);

// The pointer value that the client keeps on an existing node, in this process only; NULL is none.
[[nodiscard]] uint32_t private_pointer_set(View& view, uint32_t node, void* pointer);
[[nodiscard]] uint32_t private_pointer_get(View& view, uint32_t node, void** pointer);

// Takes away what all clients keep on the node.
[[nodiscard]] uint32_t private_drop(View& view, uint32_t node);

}  // namespace rov
