// Nodes of access lists that are of no use any more.
#pragma once

#include <cstdint>
#include <vector>

#include "policy/store/stored_model.h"

namespace qimctl {

// The nodes that carry the group number of a list that can be read, are no part of it, and are led
// to by nothing but one another. Enforcement destinations are found by their names and never among
// them. In ascending order.
std::vector<uint32_t> garbage_of(uint32_t session, const StoredModel& stored);

}  // namespace qimctl
