// Start-up, parameter blocks, registrations and sessions.

#include "recorder.h"
#include "rov.h"

using fake::detail::enter;
using fake::detail::enter_with;
using fake::detail::spoil;

extern "C" {

uint32_t rov_lib_init(uint32_t id, uint32_t* lib_out) {
  if (const auto status = enter("rov_lib_init", id, lib_out)) return *status;
  *lib_out = fake::settings().lib;
  return ROV_OK;
}

uint32_t rov_lib_defaults(uint32_t lib, uint32_t arg) {
  return enter("rov_lib_defaults", lib, arg).value_or(ROV_OK);
}

uint32_t rov_lib_init_locks(uint32_t lib, uint32_t wait_ms, uint32_t retry_ms, uint32_t holders,
                            uint32_t flags) {
  return enter("rov_lib_init_locks", lib, wait_ms, retry_ms, holders, flags).value_or(ROV_OK);
}

uint32_t rov_db_init_parms_init(rov_parms_t* parms, uint32_t version) {
  spoil(parms);
  if (const auto status = enter("rov_db_init_parms_init", parms, version)) return *status;
  parms->version = version;
  parms->size = sizeof *parms;
  parms->p = fake::settings().defaults;
  return ROV_OK;
}

uint32_t rov_db_init_parms_get(uint32_t db, uint32_t version, rov_parms_t* parms) {
  spoil(parms);
  if (const auto status = enter("rov_db_init_parms_get", db, version, parms)) return *status;
  parms->p = fake::settings().parms;
  return ROV_OK;
}

// Keeps a copy of the parameter block.
uint32_t rov_db_init(uint32_t lib, uint32_t version, uint32_t a1, uint32_t a2, uint32_t proto,
                     uint32_t a6, const rov_parms_t* parms, uint32_t flags, uint32_t* db_out) {
  if (const auto status = enter_with(parms, sizeof *parms, "rov_db_init", lib, version, a1, a2,
                                     proto, a6, parms, flags, db_out)) {
    return *status;
  }
  *db_out = fake::settings().db;
  return ROV_OK;
}

uint32_t rov_db_close(uint32_t db, uint32_t arg) {
  return enter("rov_db_close", db, arg).value_or(ROV_OK);
}

uint32_t rov_db_set_ps_sizes(uint32_t db, uint32_t max_nodes, uint32_t max_bytes) {
  return enter("rov_db_set_ps_sizes", db, max_nodes, max_bytes).value_or(ROV_OK);
}

uint32_t rov_db_reg_node_id_cnv(uint32_t db, rov_node_id_cnv_fn to, rov_node_id_cnv_fn from) {
  return enter("rov_db_reg_node_id_cnv", db, to, from).value_or(ROV_OK);
}

uint32_t rov_reg_show_output(uint32_t db, const rov_show_t* show) {
  return enter("rov_reg_show_output", db, show).value_or(ROV_OK);
}

uint32_t rov_reg_extract_pinst(uint32_t db, rov_extract_pinst_fn extract) {
  return enter("rov_reg_extract_pinst", db, extract).value_or(ROV_OK);
}

uint32_t rov_reg_dbg_dsetname_print(uint32_t db, rov_dsetname_print_fn print) {
  return enter("rov_reg_dbg_dsetname_print", db, print).value_or(ROV_OK);
}

uint32_t rov_ses_open_ro(uint32_t db, uint32_t* ses_out) {
  if (const auto status = enter("rov_ses_open_ro", db, ses_out)) return *status;
  *ses_out = fake::settings().ses;
  return ROV_OK;
}

uint32_t rov_ses_close(uint32_t ses) {
  return enter("rov_ses_close", ses).value_or(ROV_OK);
}

uint32_t rov_ses_orig_handle(uint32_t ses, uint32_t* base_out) {
  if (const auto status = enter("rov_ses_orig_handle", ses, base_out)) return *status;
  *base_out = fake::settings().base_ses;
  return ROV_OK;
}

uint32_t rov_ses_timeout(uint32_t ses) {
  return enter("rov_ses_timeout", ses).value_or(ROV_OK);
}

void rov_dbg_abort_chk(void) {
  (void)enter("rov_dbg_abort_chk");
}

}  // extern "C"
