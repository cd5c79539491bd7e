// The process-wide list of open nodes, most recently used first. Membership is the only mark of
// ownership: whoever takes an entry out frees it, whether or not a caller still has it open.
#include "node/cache.h"

#include <stddef.h>

#include "lib/export.h"
#include "lib/report.h"
#include "rov.h"

QIM_API_DATA qim_node_cache_entry_t* node_cache_head = nullptr;
QIM_API_DATA qim_node_cache_entry_t* node_cache_tail = nullptr;
int32_t node_cache_count = 0;
int32_t node_cache_max = 0;

namespace {

using qim::report;

bool has_key(const qim_node_cache_entry_t& entry, uint32_t ses, qim_node_id_t node_id) {
  return entry.ses == ses && entry.node.id == node_id;
}

// These mark where a process-wide lock belongs, around every operation on the list. With a capacity of
// 0 nothing is shared, so there is none, and nothing that could fail.
void qim_node_cache_lock() {}
void qim_node_cache_unlock() {}

struct ListLock {
  ListLock() { qim_node_cache_lock(); }
  ~ListLock() { qim_node_cache_unlock(); }
};

// Takes the entry under the key out of the list; its own `next` keeps its value. NULL when there is
// none. The head is the link before the first entry, so that removing that one is no special case.
qim_node_cache_entry_t* qim_node_cache_unlink_int(uint32_t ses, qim_node_id_t node_id) {
  qim_node_cache_entry_t** link = &node_cache_head;
  qim_node_cache_entry_t* previous = nullptr;
  while (*link != nullptr && !has_key(**link, ses, node_id)) {
    previous = *link;
    link = &previous->next;
  }
  qim_node_cache_entry_t* found = *link;
  if (found == nullptr) return nullptr;
  if (found == node_cache_tail) node_cache_tail = previous;
  *link = found->next;
  node_cache_count--;
  return found;
}

void insert_at_head(qim_node_cache_entry_t* entry) {
  if (node_cache_count > 0) {
    entry->next = node_cache_head;
  } else {
    entry->next = nullptr;
    node_cache_tail = entry;
  }
  node_cache_head = entry;
  node_cache_count++;
}

// Makes room for an entry that was opened through session `ses`. Victims are looked up by key: with
// the single session that a process is meant to have, that is the tail itself. A tail of another
// session is no victim, and the add fails.
uint32_t evict(uint32_t ses, qim_lib_ctx_t* lib) {
  while (node_cache_count >= node_cache_max) {
    qim_node_cache_entry_t* victim = qim_node_cache_unlink_int(ses, node_cache_tail->node.id);
    if (victim == nullptr) return QIM_ERR_INTERNAL;
    const uint32_t destroyed = qim_lib_node_destroy(victim, lib);
    if (destroyed != 0) return destroyed;
  }
  return ROV_OK;
}

// Brings the list to where `entry` can be put at its head: nothing under its key, and room for one.
// The key is made of the session that the caller names, the victim's of the entry's own.
uint32_t make_place(uint32_t ses, qim_node_cache_entry_t* entry, qim_lib_ctx_t* lib) {
  qim_node_cache_entry_t* older = qim_node_cache_unlink_int(ses, entry->node.id);
  if (older == nullptr) return evict(entry->ses, lib);
  return older == entry ? 0 : qim_lib_node_destroy(older, lib);
}

// Takes the head out. NULL when the list is empty although its count says otherwise.
qim_node_cache_entry_t* take_head() {
  qim_node_cache_entry_t* head = node_cache_head;
  if (head == nullptr) return nullptr;
  if (head == node_cache_tail) node_cache_tail = nullptr;
  node_cache_head = head->next;
  node_cache_count--;
  return head;
}

// Operations that are given no context are for threads that have one.
void require_context() {
  static_cast<void>(qim_lib_get());
}

// Clients hold the address of the record; the block around it is found by its place in there.
qim_node_cache_entry_t* entry_of(qim_node_t* node) {
  return reinterpret_cast<qim_node_cache_entry_t*>(reinterpret_cast<char*>(node) -
                                                   offsetof(qim_node_cache_entry_t, node));
}

}  // namespace

QIM_API uint32_t qim_node_cache_get(uint32_t ses, qim_node_id_t node_id,
                                    qim_node_cache_entry_t** out) {
  require_context();
  const ListLock lock;
  qim_node_cache_entry_t* entry = qim_node_cache_unlink_int(ses, node_id);
  if (entry != nullptr) insert_at_head(entry);
  *out = entry;
  return ROV_OK;
}

QIM_API uint32_t qim_node_cache_add(uint32_t ses, qim_node_cache_entry_t* entry,
                                    qim_lib_ctx_t* lib) {
  if (node_cache_max < 1) return ROV_OK;
  const ListLock lock;
  const uint32_t status = make_place(ses, entry, lib);
  if (status != ROV_OK) {
    report(status, "qim_node_cache_add", 860, lib);  // costs the caching, not the caller
  } else {
    insert_at_head(entry);
  }
  return ROV_OK;
}

QIM_API uint32_t qim_node_cache_unlink(uint32_t ses, qim_node_id_t node_id,
                                       qim_node_cache_entry_t** out) {
  require_context();
  const ListLock lock;
  qim_node_cache_entry_t* entry = qim_node_cache_unlink_int(ses, node_id);
  if (out != nullptr) *out = entry;
  return ROV_OK;
}

QIM_API uint32_t qim_node_cache_rm(uint32_t ses, qim_node_id_t node_id, qim_lib_ctx_t* lib) {
  qim_node_cache_entry_t* entry = nullptr;
  static_cast<void>(qim_node_cache_unlink(ses, node_id, &entry));
  return entry == nullptr ? 0 : qim_lib_node_destroy(entry, lib);
}

// Nothing is put in the old entry's place: the record is the client's copy and lacks what an open
// node owns.
QIM_API uint32_t qim_node_cache_replace(uint32_t ses, const qim_node_t* node, qim_lib_ctx_t* lib) {
  return qim_node_cache_rm(ses, node->id, lib);
}

QIM_API uint32_t qim_node_cache_destroy(qim_lib_ctx_t* lib) {
  const ListLock lock;
  while (node_cache_count > 0) {
    qim_node_cache_entry_t* head = take_head();
    const uint32_t status =
        head == nullptr ? static_cast<uint32_t>(QIM_ERR_INTERNAL) : qim_lib_node_destroy(head, lib);
    if (status != ROV_OK) {
      report(status, "qim_node_cache_destroy", 964,
             lib);  // stops here and leaves the rest in place
      break;
    }
  }
  if (node_cache_count == 0) {
    node_cache_head = nullptr;
    node_cache_tail = nullptr;
  }
  return ROV_OK;
}

// Membership decides: a member has a successor or is the tail. An entry that was unlinked keeps its
// stale successor and is taken for a member, so whoever unlinked it frees it by destroying it.
QIM_API uint32_t qim_int_node_close(qim_node_t* node, qim_lib_ctx_t* lib) {
  qim_node_cache_entry_t* entry = entry_of(node);
  if (entry->next != nullptr || entry == node_cache_tail) {
    return ROV_OK;  // the cache's own
  }
  return qim_lib_node_destroy(entry, lib);
}
