// `qimctl edest`: where a policy instance is enforced.
#pragma once

#include <cstdint>

#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

// The enforcement destinations of a policy instance, one after the other, and what refers to it and
// can't be decoded, so that it may be one. Returns whether there is nothing such.
bool print_edests(const ReadSession& session, uint32_t pinst, OutputForm form);

// The one at a destination. Both throw DatabaseError.
void print_edest_at(const ReadSession& session, uint32_t pinst, const qim_policy_dest_t& dest,
                    OutputForm form);

}  // namespace qimctl
