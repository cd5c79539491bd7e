// C entries: private data, of nodes and beside them; of all clients, for tools that carry a whole
// database over.
#include "database/graph/private.h"
#include "database/entry/check.h"
#include "database/session/client_data.h"
#include "database/session/transact.h"
#include "rov_edit.h"

// ---- On nodes -----------------------------------------------------------------------------------

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

// ---- On the database and on sessions ------------------------------------------------------------

namespace {

using rov::DataPlace;

uint32_t check_priv(const rov_priv_t* priv) {
  if (priv == nullptr || priv->key == 0) return bad_argument(2);
  return priv->data == nullptr && priv->len != 0 ? bad_argument(2) : uint32_t{ROV_OK};
}

uint32_t check_write(const rov_priv_t* priv) {
  const uint32_t status = check_priv(priv);
  return status == ROV_OK ? rov::check_private_length(priv->len) : status;
}

uint32_t check_recovery(uint32_t flags, uint32_t known, const rov_priv_t* priv) {
  if ((flags & ~known) != 0) return bad_argument(3);
  return priv == nullptr || (priv->data == nullptr && priv->len != 0) ? bad_argument(4)
                                                                      : uint32_t{ROV_OK};
}

}  // namespace

uint32_t rov_db_priv_write(uint32_t db, const rov_priv_t* priv) {
  DataPlace place;
  uint32_t status = check_write(priv);
  if (status == ROV_OK) status = rov::data_place_of_database(db, &place);
  return status == ROV_OK ? rov::data_write(place, *priv) : status;
}

uint32_t rov_db_priv_delete(uint32_t db, uint32_t key) {
  DataPlace place;
  const uint32_t status = rov::data_place_of_database(db, &place);
  return status == ROV_OK ? rov::data_delete(place, key) : status;
}

uint32_t rov_db_priv_read(uint32_t db, rov_priv_t* priv) {
  DataPlace place;
  uint32_t status = check_priv(priv);
  if (status == ROV_OK) status = rov::data_place_of_database(db, &place);
  return status == ROV_OK ? rov::data_read(place, priv) : status;
}

uint32_t rov_db_priv_recover2(uint32_t db, uint32_t after_key, uint32_t flags, rov_priv_t* priv) {
  DataPlace place;
  uint32_t status = check_recovery(flags, 0, priv);
  if (status == ROV_OK) status = rov::data_place_of_database(db, &place);
  return status == ROV_OK ? rov::data_read_next(place, after_key, priv) : status;
}

uint32_t rov_ses_priv_write(uint32_t ses, const rov_priv_t* priv, uint32_t flags) {
  if (flags != 0) return bad_argument(3);
  DataPlace place;
  uint32_t status = check_write(priv);
  if (status == ROV_OK) status = rov::data_place_of_session(ses, &place);
  return status == ROV_OK ? rov::data_write(place, *priv) : status;
}

uint32_t rov_ses_priv_delete(uint32_t ses, uint32_t key, uint32_t flags) {
  if ((flags & ~uint32_t{ROV_PRIV_ALL}) != 0) return bad_argument(3);
  DataPlace place;
  const uint32_t status = rov::data_place_of_session(ses, &place);
  if (status != ROV_OK) return status;
  return flags != 0 ? rov::data_delete_all(place) : rov::data_delete(place, key);
}

uint32_t rov_ses_priv_read(uint32_t ses, rov_priv_t* priv) {
  DataPlace place;
  uint32_t status = check_priv(priv);
  if (status == ROV_OK) status = rov::data_place_of_session(ses, &place);
  return status == ROV_OK ? rov::data_read(place, priv) : status;
}

uint32_t rov_ses_priv_recover(uint32_t ses, uint32_t after_key, rov_priv_t* priv) {
  return rov_ses_priv_recover2(ses, after_key, 0, priv);
}

uint32_t rov_ses_priv_recover2(uint32_t ses, uint32_t after_key, uint32_t flags, rov_priv_t* priv) {
  DataPlace place;
  uint32_t status = check_recovery(flags, ROV_PRIV_KEEP, priv);
  if (status == ROV_OK) status = rov::data_place_of_session(ses, &place);
  if (status != ROV_OK) return status;
  return rov::data_recover(place, after_key, (flags & ROV_PRIV_KEEP) != 0, priv);
}
