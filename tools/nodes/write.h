// Writing policies while a terminal shows how far it is.
#pragma once

#include <vector>

#include "policy/store/store_policy.h"

namespace qimctl {

// As write_policies, which sees to options.stored here.
StoreCounts write_with_progress(const std::vector<Policy>& policies, const WriteSession& session,
                                StoreOptions options);

}  // namespace qimctl
