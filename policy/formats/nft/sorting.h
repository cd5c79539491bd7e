// Sorting packets where they come or leave, by what is certain of them.
#pragma once

#include <string>
#include <vector>

#include "policy/formats/nft/conditions.h"
#include "policy/formats/nft/ruleset.h"

namespace qimctl::nft {

// Where packets of each kind go on: a chain, "" when nothing is done with them.
struct Targets {
  std::string of[5];

  const std::string& at(Kind kind) const { return of[static_cast<size_t>(kind)]; }
};

// Adds the chains that sort the packets of a device, the base chain last. `place` is "in.eth0".
void add_sorting(std::vector<Chain>& chains, const std::string& device, bool egress,
                 const std::string& place, const Targets& targets);

}  // namespace qimctl::nft
