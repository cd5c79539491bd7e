// The operations that the library only passes on.

#include "recorder.h"
#include "rov.h"

using fake::detail::enter;

extern "C" {

uint32_t rov_db_show_internal(uint32_t db, const rov_show_req_t* req) {
  return enter("rov_db_show_internal", db, req).value_or(ROV_OK);
}

uint32_t rov_db_ses_exists(uint32_t db, uint32_t ses, uint32_t* exists) {
  return enter("rov_db_ses_exists", db, ses, exists).value_or(ROV_OK);
}

uint32_t rov_db_ses_lock_grant(uint32_t db, uint64_t user) {
  return enter("rov_db_ses_lock_grant", db, user).value_or(ROV_OK);
}

uint32_t rov_db_snapshot(uint32_t db, const char* name, uint32_t* snapshot) {
  return enter("rov_db_snapshot", db, name, snapshot).value_or(ROV_OK);
}

uint32_t rov_db_uri_snapshot(uint32_t db, const char* uri, const char* name, uint32_t* snapshot) {
  return enter("rov_db_uri_snapshot", db, uri, name, snapshot).value_or(ROV_OK);
}

uint32_t rov_db_uri_rm(uint32_t db, const char* uri) {
  return enter("rov_db_uri_rm", db, uri).value_or(ROV_OK);
}

uint32_t rov_db_priv_write(uint32_t db, const rov_priv_t* priv) {
  return enter("rov_db_priv_write", db, priv).value_or(ROV_OK);
}

uint32_t rov_db_priv_delete(uint32_t db, uint32_t key) {
  return enter("rov_db_priv_delete", db, key).value_or(ROV_OK);
}

uint32_t rov_db_priv_recover2(uint32_t db, uint32_t after_key, uint32_t flags, rov_priv_t* priv) {
  return enter("rov_db_priv_recover2", db, after_key, flags, priv).value_or(ROV_OK);
}

uint32_t rov_db_priv_read(uint32_t db, rov_priv_t* priv) {
  return enter("rov_db_priv_read", db, priv).value_or(ROV_OK);
}

uint32_t rov_ses_priv_write(uint32_t ses, const rov_priv_t* priv, uint32_t flags) {
  return enter("rov_ses_priv_write", ses, priv, flags).value_or(ROV_OK);
}

uint32_t rov_ses_priv_delete(uint32_t ses, uint32_t key, uint32_t flags) {
  return enter("rov_ses_priv_delete", ses, key, flags).value_or(ROV_OK);
}

uint32_t rov_ses_priv_recover(uint32_t ses, uint32_t after_key, rov_priv_t* priv) {
  return enter("rov_ses_priv_recover", ses, after_key, priv).value_or(ROV_OK);
}

uint32_t rov_ses_priv_recover2(uint32_t ses, uint32_t after_key, uint32_t flags, rov_priv_t* priv) {
  return enter("rov_ses_priv_recover2", ses, after_key, flags, priv).value_or(ROV_OK);
}

uint32_t rov_ses_priv_read(uint32_t ses, rov_priv_t* priv) {
  return enter("rov_ses_priv_read", ses, priv).value_or(ROV_OK);
}

uint32_t rov_ps_datasize(uint32_t ses, const void* dset_name, uint32_t* size) {
  return enter("rov_ps_datasize", ses, dset_name, size).value_or(ROV_OK);
}

uint32_t rov_ps_data(uint32_t ses, const void* dset_name, uint32_t len, void* buf) {
  return enter("rov_ps_data", ses, dset_name, len, buf).value_or(ROV_OK);
}

uint32_t rov_err_getprev(rov_err_t* err) {
  return enter("rov_err_getprev", err).value_or(ROV_OK);
}

uint32_t rov_err_retry_ok(uint32_t status, uint32_t tries) {
  return enter("rov_err_retry_ok", status, tries).value_or(ROV_OK);
}

uint32_t rov_cl_err_retry_ok(uint32_t status, uint32_t tries) {
  return enter("rov_cl_err_retry_ok", status, tries).value_or(ROV_OK);
}

uint32_t rov_db_reg_logger(uint32_t db, rov_logger_fn logger, void* arg) {
  return enter("rov_db_reg_logger", db, logger, arg).value_or(ROV_OK);
}

uint32_t rov_db_debug(uint32_t db, uint32_t flags) {
  return enter("rov_db_debug", db, flags).value_or(ROV_OK);
}

uint32_t rov_db_priv_post(uint32_t db, uint32_t key, uint32_t len, const void* data) {
  return enter("rov_db_priv_post", db, key, len, data).value_or(ROV_OK);
}

uint32_t rov_db_ntf(uint32_t db, rov_ntf_t* ntf) {
  return enter("rov_db_ntf", db, ntf).value_or(ROV_OK);
}

uint32_t rov_process_msg(uint32_t db, void* msg, uint32_t room, uint32_t* len) {
  return enter("rov_process_msg", db, msg, room, len).value_or(ROV_OK);
}

uint32_t rov_msg_is_rov(const void* msg) {
  return enter("rov_msg_is_rov", msg).value_or(ROV_OK);
}

uint32_t rov_db_usr_group(uint32_t db, uint32_t group) {
  return enter("rov_db_usr_group", db, group).value_or(ROV_OK);
}

uint32_t rov_usr_id_info(uint32_t db, uint64_t user, rov_usr_t* info) {
  return enter("rov_usr_id_info", db, user, info).value_or(ROV_OK);
}

}  // extern "C"
