// `qimctl show`: one node with all that belongs to it.
#pragma once

#include <cstdint>

#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

// Both throw DatabaseError.
void show_node(const ReadSession& session, uint32_t id, OutputForm form);
// The node as the database's own show prints it.
void print_shown(const Database& database, const ReadSession& session, uint32_t id);

}  // namespace qimctl
