// A policy as a ruleset of the kernel's packet filter (docs/enforce.md): one table of the netdev
// family, of which every chain is ours.
//
// The kernel takes packets apart in its own way, and not always as far as a trace does. So packets are
// sorted first, where they come or leave, by what is certain of them, and each list has up to a chain
// for each kind: what an entry asks for is then asked only of packets that the kernel and a trace see
// alike.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "policy/model/model.h"

namespace qimctl::nft {

inline constexpr const char* table_name = "qim";

// A rule. `tag` is its comment, which tells it from the others of its chain, and changes with it.
struct Rule {
  std::string tag;
  std::string expressions;  // JSON
};

// The chain of a list, or of an interface and direction. A base chain has a device.
struct Chain {
  std::string name;
  std::string device;  // "" = no base chain
  bool egress = false;
  std::vector<Rule> rules;
};

// A limit, by a name that changes with what it limits.
struct Limit {
  std::string name;
  uint64_t rate = 0;
  uint64_t burst = 0;
  bool bytes = false;  // packets
};

struct Ruleset {
  std::vector<Limit> limits;
  std::vector<Chain> chains;  // what is jumped to stands in front of what jumps
};

// Something that the kernel can't do: where ("LIST/ENTRY", "if:eth0/in") and what.
struct Refusal {
  std::string where;
  std::string what;
};

struct Translation {
  Ruleset ruleset;
  std::vector<Refusal> refusals;  // none, or else the ruleset is not to be used
};

// Of the lists that are attached somewhere.
Translation translate(const Model& model);

// The whole as JSON that libnftables takes: in place of the table that is there, if there is one.
std::string to_json(const Ruleset& ruleset);

}  // namespace qimctl::nft
