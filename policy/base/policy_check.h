// What a policy must hold to before it can be stored, whichever importer made it.
#pragma once

#include <vector>

#include "policy/base/policy.h"

namespace qimctl {

// The problems that the nodes of a policy have among themselves: two nodes of one identifier, two
// links of one field, a bare slot whose link carries more than a node, links to node 0, data-set
// names where there are none or missing where there must be one. `policies` are imported together.
std::vector<Problem> check_policies(const std::vector<Policy>& policies);

}  // namespace qimctl
