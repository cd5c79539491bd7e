// C entries: what a client keeps on the database and on its sessions.
#include "database/session/client_data.h"

#include "database/entry/check.h"

namespace {

using rov::bad_argument;
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
