// `qimctl criteria`: a filter's criteria.
#pragma once

#include <cstdint>

#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

// Throws DatabaseError.
void print_criteria(const ReadSession& session, uint32_t id, OutputForm form);

}  // namespace qimctl
