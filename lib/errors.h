// Error reporting inside the library.
#pragma once

#include "qim.h"

// Runs the database's abort check where `status` calls for it. `listed`: 1 when the status is one
// of those that mean a programming or internal error. ctx may be NULL.
extern "C" void qim_dbg_abort_chk(uint32_t status, uint32_t listed, const qim_lib_ctx_t* ctx);
