// Policy files made into a state, in a database that nobody else sees.
#pragma once

#include <string>
#include <vector>

#include "fleet/state/state.h"
#include "policy/base/policy.h"
#include "policy/change/words.h"
#include "policy/model/model.h"

namespace qim::fleet {

// What policy files hold.
struct Wanted {
  std::vector<qimctl::Policy> nodes;  // of those in the native format
  qimctl::Model model;                // of all others
  bool prune = false;                 // lists that they do not have go
};

struct PushTarget {
  State state;
  std::vector<qimctl::DifferenceLine> lines;  // what becomes of access lists
};

// What applying the files to a database of that state makes of it. Throws InputError and
// DatabaseError.
PushTarget build_target(const State& from, Wanted wanted);

// What differs between the access lists of two states.
std::vector<qimctl::DifferenceLine> difference_of_lists(const State& before, const State& after);

}  // namespace qim::fleet
