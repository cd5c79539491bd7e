// The table as the kernel has it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "policy/formats/nft/ruleset.h"

namespace qimctl::nft {

struct KernelRule {
  uint64_t handle = 0;
  std::string tag;  // "" = it is none of ours
  bool counts = false;
  uint64_t packets = 0;
  uint64_t bytes = 0;
};

struct KernelChain {
  std::string name;
  bool is_base = false;  // of which device is not told
  bool egress = false;
  std::vector<KernelRule> rules;
};

struct KernelTable {
  bool is_there = false;
  std::vector<std::string> limits;
  std::vector<KernelChain> chains;
};

// What is counted of entries, and of lists' defaults, in all chains: by the key that entry_key() has
// made of each.
struct Count {
  uint64_t packets = 0;
  uint64_t bytes = 0;
};
std::map<std::string, Count> counts_of(const KernelTable& table);

// The commands that make the kernel's table this one: what is the same stays, and its counters with it.
// Nothing when there is nothing to do.
struct Changes {
  std::string commands;  // "" = there are none
  size_t added = 0;      // rules
  size_t deleted = 0;
};
Changes changes(const KernelTable& there, const Ruleset& wanted);

}  // namespace qimctl::nft
