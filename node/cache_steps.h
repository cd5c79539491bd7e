// Steps of the node cache's operations that never fail. The operations look at their status all the
// same, which is why they are apart: a test puts failing ones in their place.
#pragma once

#include "node/cache.h"
#include "rov.h"

namespace qim::node {

// These mark where a process-wide lock belongs. With a capacity of 0 nothing is shared, so there is
// none.
inline uint32_t qim_node_cache_lock() {
  return ROV_OK;
}
inline uint32_t qim_node_cache_unlock() {
  return ROV_OK;
}

inline bool has_key(const qim_node_cache_entry_t& entry, uint32_t ses, qim_node_id_t node_id) {
  return entry.ses == ses && entry.node.id == node_id;
}

// Takes the entry under the key out of the list; its own `next` keeps its value. The head is the
// link before the first entry, so that removing that one is no special case.
inline uint32_t qim_node_cache_unlink_int(uint32_t ses, qim_node_id_t node_id,
                                          qim_node_cache_entry_t** out) {
  if (out != nullptr) *out = nullptr;
  qim_node_cache_entry_t** link = &node_cache_head;
  qim_node_cache_entry_t* previous = nullptr;
  while (*link != nullptr && !has_key(**link, ses, node_id)) {
    previous = *link;
    link = &previous->next;
  }
  qim_node_cache_entry_t* found = *link;
  if (found == nullptr) return ROV_OK;
  if (found == node_cache_tail) node_cache_tail = previous;
  *link = found->next;
  node_cache_count--;
  if (out != nullptr) *out = found;
  return ROV_OK;
}

}  // namespace qim::node
