// `qimctl args`: the arguments of an action or default.
#pragma once

#include <cstdint>

#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

// Throws DatabaseError.
void print_args(const ReadSession& session, uint32_t id, OutputForm form);

}  // namespace qimctl
