// The database's own operations under this library's names: the same arguments in the same order,
// and the result unchanged. A client thus links one policy library and never the database.
#include "lib/export.h"
#include "qim.h"
#include "rov.h"

QIM_API uint32_t qim_lib_init_locks(uint32_t, uint32_t wait_ms, uint32_t retry_ms, uint32_t holders,
                                    uint32_t flags) {
  return rov_lib_init_locks(qim_lib_get()->rov_lib, wait_ms, retry_ms, holders, flags);
}

QIM_API uint32_t qim_db_init_parms_init(rov_parms_t* parms, uint32_t version) {
  return rov_db_init_parms_init(parms, version);
}

QIM_API uint32_t qim_db_set_ps_sizes(uint32_t db, uint32_t max_nodes, uint32_t max_bytes) {
  return rov_db_set_ps_sizes(db, max_nodes, max_bytes);
}

QIM_API uint32_t qim_db_snapshot(uint32_t db, const char* name, uint32_t* snapshot) {
  return rov_db_snapshot(db, name, snapshot);
}

QIM_API uint32_t qim_db_uri_snapshot(uint32_t db, const char* uri, const char* name,
                                     uint32_t* snapshot) {
  return rov_db_uri_snapshot(db, uri, name, snapshot);
}

QIM_API uint32_t qim_db_uri_rm(uint32_t db, const char* uri) {
  return rov_db_uri_rm(db, uri);
}

QIM_API uint32_t qim_ses_open_ro(uint32_t db, uint32_t* ses_out) {
  return rov_ses_open_ro(db, ses_out);
}

QIM_API uint32_t qim_db_ses_exists(uint32_t db, uint32_t ses, uint32_t* exists) {
  return rov_db_ses_exists(db, ses, exists);
}

QIM_API uint32_t qim_db_ses_lock_grant(uint32_t db, uint64_t user) {
  return rov_db_ses_lock_grant(db, user);
}

QIM_API uint32_t qim_ses_timeout(uint32_t ses) {
  return rov_ses_timeout(ses);
}

QIM_API uint32_t qim_ses_orig_handle(uint32_t ses, uint32_t* base_out) {
  return rov_ses_orig_handle(ses, base_out);
}

QIM_API uint32_t qim_db_show_internal(uint32_t db, const rov_show_req_t* req) {
  return rov_db_show_internal(db, req);
}

QIM_API uint32_t qim_db_priv_write(uint32_t db, const rov_priv_t* priv) {
  return rov_db_priv_write(db, priv);
}

QIM_API uint32_t qim_db_priv_delete(uint32_t db, uint32_t key) {
  return rov_db_priv_delete(db, key);
}

QIM_API uint32_t qim_db_priv_recover2(uint32_t db, uint32_t after_key, uint32_t flags,
                                      rov_priv_t* priv) {
  return rov_db_priv_recover2(db, after_key, flags, priv);
}

QIM_API uint32_t qim_db_priv_read(uint32_t db, rov_priv_t* priv) {
  return rov_db_priv_read(db, priv);
}

QIM_API uint32_t qim_ses_priv_write(uint32_t ses, const rov_priv_t* priv, uint32_t flags) {
  return rov_ses_priv_write(ses, priv, flags);
}

QIM_API uint32_t qim_ses_priv_delete(uint32_t ses, uint32_t key, uint32_t flags) {
  return rov_ses_priv_delete(ses, key, flags);
}

QIM_API uint32_t qim_ses_priv_recover(uint32_t ses, uint32_t after_key, rov_priv_t* priv) {
  return rov_ses_priv_recover(ses, after_key, priv);
}

QIM_API uint32_t qim_ses_priv_recover2(uint32_t ses, uint32_t after_key, uint32_t flags,
                                       rov_priv_t* priv) {
  return rov_ses_priv_recover2(ses, after_key, flags, priv);
}

QIM_API uint32_t qim_ses_priv_read(uint32_t ses, rov_priv_t* priv) {
  return rov_ses_priv_read(ses, priv);
}

QIM_API uint32_t qim_ps_datasize(uint32_t ses, const void* dset_name, uint32_t* size) {
  return rov_ps_datasize(ses, dset_name, size);
}

QIM_API uint32_t qim_ps_data(uint32_t ses, const void* dset_name, uint32_t len, void* buf) {
  return rov_ps_data(ses, dset_name, len, buf);
}

QIM_API uint32_t qim_err_getprev(rov_err_t* err) {
  return rov_err_getprev(err);
}

QIM_API uint32_t qim_err_retry_ok(uint32_t status, uint32_t tries) {
  return rov_err_retry_ok(status, tries);
}

QIM_API uint32_t qim_cl_err_retry_ok(uint32_t status, uint32_t tries) {
  return rov_cl_err_retry_ok(status, tries);
}

QIM_API uint32_t qim_db_priv_post(uint32_t db, uint32_t key, uint32_t len, const void* data) {
  return rov_db_priv_post(db, key, len, data);
}

QIM_API uint32_t qim_db_ntf(uint32_t db, rov_ntf_t* ntf) {
  return rov_db_ntf(db, ntf);
}

QIM_API uint32_t qim_process_msg(uint32_t db, void* msg, uint32_t room, uint32_t* len) {
  return rov_process_msg(db, msg, room, len);
}

QIM_API uint32_t qim_msg_is_qim(const void* msg) {
  return rov_msg_is_rov(msg);
}

QIM_API uint32_t qim_db_usr_group(uint32_t db, uint32_t group) {
  return rov_db_usr_group(db, group);
}

QIM_API uint32_t qim_usr_id_info(uint32_t db, uint64_t user, rov_usr_t* info) {
  return rov_usr_id_info(db, user, info);
}
