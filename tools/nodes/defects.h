// What is wrong with the policy in a database.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "policy/store/database.h"

namespace qimctl {

enum class Defect {
  undecodable,    // the policy library can't read the node
  dangling,       // a link leads to a node that is not there
  target_type,    // a link leads to a node of a type that it can't lead to
  unreferenced,   // nothing refers to the node, and it is no data set
  data_set_name,  // the data-set name and the node disagree
  same_place      // two enforcement destinations of one policy, or of one name
};

const char* defect_name(Defect defect);

struct Found {
  uint32_t node = 0;
  Defect defect = Defect::undecodable;
  std::string what;  // completes "node 0x... "
};

// What is wrong with the policy, in the order of nodes.
std::vector<Found> find_defects(const ReadSession& session);

}  // namespace qimctl
