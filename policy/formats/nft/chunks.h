// Long lists in pieces, so that packets meet few of their entries.
//
// What all entries of a piece ask for, such as a port or an address, is looked up in a set of all that they
// ask for: only packets that it holds go on into the piece. Each entry keeps its rule, and its counter.
#pragma once

#include <string>
#include <vector>

#include "policy/formats/nft/conditions.h"
#include "policy/formats/nft/ruleset.h"

namespace qimctl::nft {

// An entry's rules in a chain.
struct EntryRules {
  std::string key;
  std::vector<Rule> rules;
  std::vector<Span> spans;
};

// Adds the chain of a list, and in front of it those of its pieces. What ends a piece are the names of
// entries alone, so that an entry that comes or goes changes no piece but its own.
void add_in_pieces(std::vector<Chain>& chains, const std::string& name,
                   std::vector<EntryRules> entries);

}  // namespace qimctl::nft
