// `qimctl criteria`: a filter's criteria.
#pragma once

#include <cstdint>

#include "policy/store/database.h"

namespace qimctl {

// Throws DatabaseError.
void print_criteria(const ReadSession& session, uint32_t id, bool json);

}  // namespace qimctl
