// The database's own operations that concern the context too.
#include "lib/export.h"
#include "qim.h"
#include "rov.h"

// The library's own reports go to the same logger. The context keeps it even if the database
// refuses it.
QIM_API uint32_t qim_db_reg_logger(uint32_t db, rov_logger_fn logger, void* arg) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  ctx->db_parms.logger = logger;
  ctx->db_parms.logger_arg = arg;
  return rov_db_reg_logger(db, logger, arg);
}

// The same flags for both libraries: a client that asks one for reports wants the other's, too.
QIM_API uint32_t qim_db_debug(uint32_t db, uint32_t flags) {
  qim_lib_get()->db_parms.dbg_flags = flags;
  return rov_db_debug(db, flags);
}

// Through the exported function, so that a client that puts its own in its place sees both.
QIM_API uint32_t qim_db_priv_recover(uint32_t db, uint32_t after_key, rov_priv_t* priv) {
  return qim_db_priv_recover2(db, after_key, 0, priv);
}
