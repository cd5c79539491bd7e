// One rule: what it matches, and what it does.
#pragma once

#include <string>
#include <vector>

#include "policy/formats/iptables/lines.h"
#include "policy/formats/parts/criteria.h"
#include "policy/formats/parts/interfaces.h"

namespace qimctl::iptables {

struct Rule {
  Place place;
  std::string name;  // its comment, or else its text without the chain
  std::vector<formats::Choice> matches;
  std::string target;  // "" = it only counts
  bool is_goto = false;
  std::vector<std::string> options;  // of the target
};

// `line` begins with -A and the name of a chain.
Rule read_rule(Notes& notes, formats::Interfaces& interfaces, const Line& line, bool is_ipv6);

// Is there something in the rules that only IPv6 has?
bool speaks_ipv6(const Line& line);

}  // namespace qimctl::iptables
