// Access lists as policy nodes.
#pragma once

#include <string>
#include <vector>

#include "policy/base/policy.h"
#include "policy/formats/rfc8519/model.h"

namespace qimctl::rfc8519 {

// The nodes of every list, list by list: its Group, its Def, a Pinst for each direction and stage
// that it is applied in, an Edest for each interface there, the Actions that its entries use, a
// Filter for each entry. docs/rfc8519.md describes them. Every attachment must name a list of the
// model. Places hold paths, and `file`, but no lines.
std::vector<Node> make_nodes(const Model& model, const std::string& file);

}  // namespace qimctl::rfc8519
