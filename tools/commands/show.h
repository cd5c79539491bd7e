// `qimctl show`: one node with all that belongs to it.
#pragma once

#include <cstdint>

#include "policy/store/database.h"

namespace qimctl {

// Throws DatabaseError.
void show_node(const ReadSession& session, uint32_t id, bool json);

}  // namespace qimctl
