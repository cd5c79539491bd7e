// Reporting a failure at the place that found it.
#pragma once

#include "qim.h"

namespace qim {

// Most failures are reported only while the client asks for reports. `line` is a number fixed at
// the call site, unique within `function`: readers of logs know places by it, so it never changes.
inline void report(uint32_t status, const char* function, int32_t line, qim_lib_ctx_t* ctx) {
  if ((ctx->db_parms.dbg_flags & QIM_DBG_REPORT) != 0) qim_dbg_errors(status, function, line, ctx);
}

}  // namespace qim
