// Who refers to nodes that are to go.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qimctl {

// A node that is none of `nodes` (ascending) and has a link to one of them: "node 0x00300001
// (Hfilter)"; "" when there is none.
std::string outside_referrer(uint32_t session, const std::vector<uint32_t>& nodes);

// Is there one that leads to `id`?
bool has_outside_referrer(uint32_t session, uint32_t id, const std::vector<uint32_t>& nodes);

}  // namespace qimctl
