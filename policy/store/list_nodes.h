// Access lists as policy nodes.
#pragma once

#include <vector>

#include "policy/base/policy.h"
#include "policy/model/model.h"

namespace qimctl {

// The nodes of every list, list by list: its Group, its Def, a Pinst for each direction and stage
// that it is applied in, an Edest for each interface there, the Actions that its entries use, a
// Filter for each entry. docs/rfc8519.md describes them. Every attachment must name a list of the
// model. Places are those of the model.
std::vector<Node> make_nodes(const Model& model);

}  // namespace qimctl
