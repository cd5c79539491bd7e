// Access lists as a ruleset of the kernel's packet filter (docs/enforce.md).
#pragma once

#include <string>
#include <vector>

#include "policy/model/model.h"

namespace qimctl::nft {

// What libnftables takes in JSON, of the lists of these names, all when there is none, where they are
// attached. The findings name what the kernel can't do. There is no text then, for a part of a policy
// is another policy.
ModelText write_nft(const Model& model, const std::vector<std::string>& names = {});

}  // namespace qimctl::nft
