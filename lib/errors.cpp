// Reports of failures: one line for the client's logger, and the database's abort check.
//
// The library never ends the process by itself. It tells the database of failures that mean a
// mistake in a program, and the database's settings decide whether such a process goes on.
#include <stdio.h>

#include "lib/errors.h"
#include "lib/export.h"
#include "rov.h"

QIM_API_DATA char qim_dbgmsg[512] = {};
QIM_API_DATA uint32_t qim_dbg = 0;

namespace qim {
namespace {

constexpr uint32_t kSeverityError = 2;

// Statuses that mean a programming or internal error. QIM_ERR_NODE_TYPE and QIM_ERR_NO_EDEST are
// left out on purpose: lookups expect them. So is every status of another library.
constexpr uint32_t kListed[] = {
    QIM_ERR_GENERIC, QIM_ERR_NOT_SUPPORTED, QIM_ERR_INTERNAL,  QIM_ERR_THREAD,   QIM_ERR_INVALID,
    QIM_ERR_6,       QIM_ERR_VDC_RANGE,     QIM_ERR_BUF_SMALL, QIM_ERR_NOT_INIT, QIM_ERR_DEST_FMT,
    QIM_ERR_NO_MEM,
};

bool is_listed(uint32_t status) {
  for (const uint32_t code : kListed) {
    if (code == status) return true;
  }
  return false;
}

}  // namespace
}  // namespace qim

// An internal error always reaches the database's abort check, other listed statuses only under the
// strict flag or without a context.
void qim_dbg_abort_chk(uint32_t status, uint32_t listed, const qim_lib_ctx_t* ctx) {
  const bool strict = ctx == nullptr || (ctx->db_parms.dbg_flags & QIM_DBG_STRICT) != 0;
  if (listed == 0) return;
  if (strict || status == QIM_ERR_INTERNAL) rov_dbg_abort_chk();
}

QIM_API void qim_dbg_errors(uint32_t status, const char* function, int32_t line,
                            qim_lib_ctx_t* ctx) {
  const bool listed = qim::is_listed(status);
  if (ctx != nullptr && ctx->db_parms.logger != nullptr &&
      (listed || (ctx->db_parms.dbg_flags & QIM_DBG_ALL) != 0)) {
    // The bound is the one that qim.h tells: 510 characters, whatever the buffer could hold.
    snprintf(qim_dbgmsg, sizeof(qim_dbgmsg) - 1, "ERROR STATUS: 0x%x (%.64s/%d)\n", status,
             function, line);
    ctx->db_parms.logger(qim::kSeverityError, qim_dbgmsg, ctx->db_parms.logger_arg);
  }
  qim_dbg_abort_chk(status, listed ? 1 : 0, ctx);
}
