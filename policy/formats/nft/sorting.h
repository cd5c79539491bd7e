// Sorting packets where they come or leave, by what is certain of them.
#pragma once

#include <cstdint>
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

// What entries ask for behind the part of a header that every packet with it has.
struct Depth {
  bool tcp_options = false;
  uint32_t icmp_bytes = 0;  // behind the checksum

  void add(const Depth& other);
};

// Adds the chains that sort the packets of a device, the base chain last. `place` is "in.eth0".
void add_sorting(std::vector<Chain>& chains, const std::string& device, bool egress,
                 const std::string& place, const Targets& targets, const Depth& depth);

}  // namespace qimctl::nft
