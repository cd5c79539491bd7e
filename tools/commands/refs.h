// `qimctl refs`: the nodes that refer to a node.
#pragma once

#include <cstdint>

#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

// Returns whether all of them could be decoded. Throws DatabaseError.
bool print_referrers(const ReadSession& session, uint32_t id, OutputForm form);

}  // namespace qimctl
