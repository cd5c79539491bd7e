#include "database/graph/private.h"

#include "database/base/error.h"
#include "database/graph/edit.h"
#include "rov.h"

namespace rov {

uint32_t private_get(View& view, Bytes* data) {
  *data = {};
  if (view.node.clients == 0) return ROV_OK;
  Record record;
  const Key key = pair_key(view.node.node, view.client);
  const uint32_t status = view_get(view, Table::kPrivate, key, &record);
  if (status == ROV_ERR_NO_ITEM) return ROV_OK;
  if (status == ROV_OK) *data = {record.value.data + 4, record.value.len - 4};
  return status;
}

uint32_t private_set(View& view, uint32_t node, const void* data, uint32_t len) {
  uint32_t status = view_find_node(view, node);
  if (status != ROV_OK) return status;
  const Key key = pair_key(node, view.client);
  Record record;
  status = view_get(view, Table::kPrivate, key, &record);
  if (status != ROV_OK && status != ROV_ERR_NO_ITEM) return status;
  const bool had = status == ROV_OK;
  if (len == 0) {
    if (!had) return ROV_OK;
    status = view_erase(view, Table::kPrivate, key);
    return status == ROV_OK ? edit_clients(view, node, -1) : status;
  }
  if (!had && view.node.clients == kMaxClients) {
    return fail_text(ROV_ERR_FULL, "node 0x%08x has private data of %u clients, which is the limit",
                     node, kMaxClients);
  }
  uint8_t* value = view_replace(view, Table::kPrivate, key, len + 4, len + 4);
  if (value == nullptr) return ROV_ERR_NO_MEM;
  memcpy(value + 4, data, len);
  return had ? uint32_t{ROV_OK} : edit_clients(view, node, 1);
}

uint32_t private_drop(View& view, uint32_t node) {
  Key key = pair_key(node, 0);
  for (;;) {
    Record record;
    uint32_t status = view_ge(view, Table::kPrivate, key, &record);
    if (status == ROV_ERR_NO_ITEM) return ROV_OK;
    if (status != ROV_OK) return status;
    if (load_be32(record.key.data) != node) return ROV_OK;
    key = pair_key(node, load_be32(record.key.data + 4));
    status = view_erase(view, Table::kPrivate, key);
    if (status != ROV_OK) return status;
  }
}

}  // namespace rov
