// C entries: what a client keeps on the database and on its sessions.
#include "database/session/client_data.h"
#include "database/base/error.h"
#include "database/graph/private.h"
#include "database/session/transact.h"

namespace {

using rov::Access;
using rov::Bytes;
using rov::DatabasePin;
using rov::DataOwner;
using rov::fail;
using rov::Note;
using rov::View;
using rov::with_newest;
using rov::with_writer;

uint32_t bad_argument(uint32_t number) {
  return fail(ROV_ERR_INVALID, Note::kArgument, number);
}

uint32_t check_priv(const rov_priv_t* priv) {
  if (priv == nullptr || priv->key == 0) return bad_argument(2);
  return priv->data == nullptr && priv->len != 0 ? bad_argument(2) : uint32_t{ROV_OK};
}

uint32_t check_write(const rov_priv_t* priv) {
  const uint32_t status = check_priv(priv);
  if (status != ROV_OK || priv->len <= rov::kMaxPrivate) return status;
  return rov::fail_text(ROV_ERR_LENGTH, "private data have at most %u bytes, not %u",
                        rov::kMaxPrivate, priv->len);
}

// Copies data into the caller's room; the length is told in any case.
uint32_t give(Bytes data, rov_priv_t* priv) {
  const uint32_t room = priv->len;
  priv->len = data.len;
  if (room < data.len) return fail(ROV_ERR_LENGTH, Note::kBuffer, room, data.len);
  if (data.len != 0) memcpy(priv->data, data.data, data.len);
  return ROV_OK;
}

uint32_t client_of(uint32_t db, DataOwner* owner) {
  const DatabasePin pin(db);
  if (pin.status() != ROV_OK) return pin.status();
  *owner = {pin->client, 0, 0};
  return ROV_OK;
}

// A session's database and the owner that stands for it.
struct Target {
  uint32_t db = 0;
  DataOwner owner = {};
};

// The session's own handle is meant by its base's, too.
uint32_t target_of(uint32_t ses, Target* target) {
  Access access(ses);
  if (access.failed()) return access.status();
  target->db = access.session().db->handle;
  target->owner = rov::session_owner(access.view().client, access.session().handle);
  return ROV_OK;
}

// Hands out what dead sessions left under the key, and makes it this session's own unless it is to
// stay.
uint32_t take_over(View& view, const DataOwner& to, uint32_t after, bool keep, rov_priv_t* priv) {
  DataOwner from = {};
  uint32_t key = 0;
  Bytes data;
  uint32_t status = rov::client_data_left(view, to.client, after, &from, &key);
  if (status == ROV_OK) status = rov::client_data_get(view, from, key, &data);
  if (status != ROV_OK) return status;
  priv->key = key;
  status = give(data, priv);
  if (status != ROV_OK || keep) return status;
  status = rov::client_data_put(view, to, key, {static_cast<uint8_t*>(priv->data), priv->len});
  return status == ROV_OK ? rov::client_data_del_left(view, to.client, key) : status;
}

}  // namespace

uint32_t rov_db_priv_write(uint32_t db, const rov_priv_t* priv) {
  DataOwner owner = {};
  uint32_t status = check_write(priv);
  if (status == ROV_OK) status = client_of(db, &owner);
  if (status != ROV_OK) return status;
  return with_writer(db, [&](View& view) {
    return rov::client_data_put(view, owner, priv->key,
                                {static_cast<const uint8_t*>(priv->data), priv->len});
  });
}

uint32_t rov_db_priv_delete(uint32_t db, uint32_t key) {
  DataOwner owner = {};
  const uint32_t status = client_of(db, &owner);
  if (status != ROV_OK) return status;
  return with_writer(db, [&](View& view) { return rov::client_data_del(view, owner, key); });
}

uint32_t rov_db_priv_read(uint32_t db, rov_priv_t* priv) {
  DataOwner owner = {};
  uint32_t status = check_priv(priv);
  if (status == ROV_OK) status = client_of(db, &owner);
  if (status != ROV_OK) return status;
  return with_newest(db, [&](View& view) {
    Bytes data;
    const uint32_t found = rov::client_data_get(view, owner, priv->key, &data);
    return found == ROV_OK ? give(data, priv) : found;
  });
}

uint32_t rov_db_priv_recover2(uint32_t db, uint32_t after_key, uint32_t flags, rov_priv_t* priv) {
  if (flags != 0) return bad_argument(3);
  if (priv == nullptr || (priv->data == nullptr && priv->len != 0)) return bad_argument(4);
  DataOwner owner = {};
  const uint32_t status = client_of(db, &owner);
  if (status != ROV_OK) return status;
  return with_newest(db, [&](View& view) {
    uint32_t key = 0;
    Bytes data;
    uint32_t found = rov::client_data_next(view, owner, after_key, &key);
    if (found == ROV_OK) found = rov::client_data_get(view, owner, key, &data);
    if (found != ROV_OK) return found;
    priv->key = key;
    return give(data, priv);
  });
}

uint32_t rov_ses_priv_write(uint32_t ses, const rov_priv_t* priv, uint32_t flags) {
  if (flags != 0) return bad_argument(3);
  Target target;
  uint32_t status = check_write(priv);
  if (status == ROV_OK) status = target_of(ses, &target);
  if (status != ROV_OK) return status;
  return with_writer(target.db, [&](View& view) {
    return rov::client_data_put(view, target.owner, priv->key,
                                {static_cast<const uint8_t*>(priv->data), priv->len});
  });
}

uint32_t rov_ses_priv_delete(uint32_t ses, uint32_t key, uint32_t flags) {
  if ((flags & ~uint32_t{ROV_PRIV_ALL}) != 0) return bad_argument(3);
  Target target;
  const uint32_t status = target_of(ses, &target);
  if (status != ROV_OK) return status;
  return with_writer(target.db, [&](View& view) {
    return flags != 0 ? rov::client_data_del_all(view, target.owner)
                      : rov::client_data_del(view, target.owner, key);
  });
}

uint32_t rov_ses_priv_read(uint32_t ses, rov_priv_t* priv) {
  Target target;
  uint32_t status = check_priv(priv);
  if (status == ROV_OK) status = target_of(ses, &target);
  if (status != ROV_OK) return status;
  return with_newest(target.db, [&](View& view) {
    Bytes data;
    const uint32_t found = rov::client_data_get(view, target.owner, priv->key, &data);
    return found == ROV_OK ? give(data, priv) : found;
  });
}

uint32_t rov_ses_priv_recover(uint32_t ses, uint32_t after_key, rov_priv_t* priv) {
  return rov_ses_priv_recover2(ses, after_key, 0, priv);
}

uint32_t rov_ses_priv_recover2(uint32_t ses, uint32_t after_key, uint32_t flags, rov_priv_t* priv) {
  if ((flags & ~uint32_t{ROV_PRIV_KEEP}) != 0) return bad_argument(3);
  if (priv == nullptr || (priv->data == nullptr && priv->len != 0)) return bad_argument(4);
  Target target;
  const uint32_t status = target_of(ses, &target);
  if (status != ROV_OK) return status;
  const bool keep = (flags & ROV_PRIV_KEEP) != 0;
  const auto work = [&](View& view) {
    return take_over(view, target.owner, after_key, keep, priv);
  };
  return keep ? with_newest(target.db, work) : with_writer(target.db, work);
}
