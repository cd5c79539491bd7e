// C entries: private data of nodes; of all clients, for tools that carry a whole database over.
#include "database/graph/private.h"

#include "database/entry/check.h"
#include "database/session/transact.h"
#include "rov_edit.h"

using rov::bad_argument;
using rov::fail;
using rov::Note;
using rov::number_of;
using rov::View;

uint32_t rov_node_priv_set(uint32_t ses, const rov_node_id_t* id, const void* data, uint32_t len) {
  if (id == nullptr) return bad_argument(2);
  if (data == nullptr && len != 0) return bad_argument(3);
  const uint32_t status = rov::check_private_length(len);
  return status == ROV_OK ? rov::session_set_private(ses, number_of(*id), data, len) : status;
}

uint32_t rov_node_priv_ptr_set(uint32_t ses, const rov_node_id_t* id, void* ptr) {
  if (id == nullptr) return bad_argument(2);
  return rov::with_view(
      ses, [=](View& view) { return rov::private_pointer_set(view, number_of(*id), ptr); });
}

uint32_t rov_node_priv_ptr_get(uint32_t ses, const rov_node_id_t* id, void** ptr) {
  if (id == nullptr) return bad_argument(2);
  if (ptr == nullptr) return bad_argument(3);
  return rov::with_view(
      ses, [=](View& view) { return rov::private_pointer_get(view, number_of(*id), ptr); });
}

uint32_t rov_data_cpy(uint32_t len, void* buf, uint32_t src_len, const void* src) {
  if (src_len == 0) return ROV_OK;
  if (src_len > len) return fail(ROV_ERR_LENGTH, Note::kBuffer, len, src_len);
  if (buf == nullptr) return bad_argument(2);
  if (src == nullptr) return bad_argument(4);
  memcpy(buf, src, src_len);
  return ROV_OK;
}

uint32_t rov_edit_priv_nth(uint32_t ses, rov_node_id_t id, uint32_t n, uint32_t* client,
                           uint32_t room, void* data, uint32_t* len) {
  if (client == nullptr) return bad_argument(4);
  if (data == nullptr && room != 0) return bad_argument(6);
  if (len == nullptr) return bad_argument(7);
  return rov::with_view(ses, [=](View& view) {
    rov::PrivateEntry entry;
    const uint32_t status = rov::private_nth(view, number_of(id), n, &entry);
    if (status != ROV_OK) return status;
    *client = entry.client;
    *len = entry.data.len;
    return rov_data_cpy(room, data, entry.data.len, entry.data.data);
  });
}

uint32_t rov_edit_priv_put(uint32_t ses, rov_node_id_t id, uint32_t client, const void* data,
                           uint32_t len) {
  if (data == nullptr && len != 0) return bad_argument(4);
  if (len > rov::kMaxPrivate) return fail(ROV_ERR_LENGTH, Note::kBuffer, rov::kMaxPrivate, len);
  return rov::session_set_private_for(ses, client, number_of(id), data, len);
}
