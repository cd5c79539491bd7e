// Writing policies while a terminal shows how far it is.
#include "tools/nodes/write.h"

#include "tools/base/progress.h"

namespace qimctl {

StoreCounts write_with_progress(const std::vector<Policy>& policies, const WriteSession& session,
                                StoreOptions options) {
  size_t total = 0;
  for (const Policy& policy : policies) total += policy.nodes.size();
  Progress progress("storing nodes", total, progress_wanted());
  options.stored = [&progress] { progress.step(); };
  return write_policies(policies, session, options);
}

}  // namespace qimctl
