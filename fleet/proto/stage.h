// Who takes the next revision.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "fleet/proto/messages.h"

namespace qim::fleet {

// 0 to 99: a device stands at the same place for all stages of one rollout, so that who took a
// revision at 20 per cent is among those of 50, and at another one for the next salt.
uint32_t place_of(const std::string& device, const std::string& salt);

// Is the device one of those of the stage? A stage that is held has none that did not take the
// revision already, which the caller knows.
[[nodiscard]] bool is_in_stage(const Stage& stage, const std::string& device,
                               const std::vector<std::string>& labels);

// The number that a device should hold. `applied` is the one that it holds.
uint64_t wanted_revision(const Head& head, const std::string& device,
                         const std::vector<std::string>& labels, uint64_t applied);

}  // namespace qim::fleet
