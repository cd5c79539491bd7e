// The library context and the switch from one for the process to one for each thread.
#pragma once

#include "qim.h"

namespace qim {

// The context of the process. Once per-thread contexts are on, it only serves as the template that
// they are copied from.
extern qim_lib_ctx_t process_ctx;

}  // namespace qim
