// The order of lists at an interface.
#pragma once

#include <vector>

#include "policy/change/change.h"

namespace qimctl {

// All attachments that there are to be: those of the wanted lists in their order, at the stages that
// they have if that order allows it, and those of other lists behind what takes their stages.
std::vector<Attachment> attachments_after(const Model& old, const Model& wanted,
                                          const ChangeOptions& options);

// The positions of a longest sequence of ascending numbers: what need not be moved to get from one
// order to the other.
std::vector<bool> longest_ascending(const std::vector<size_t>& numbers);

}  // namespace qimctl
