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
  same_place,     // two enforcement destinations of one policy, or of one name
  unreadable      // an access list, or a place of one, that can't be read as such
};

const char* defect_name(Defect defect);

struct Found {
  uint32_t node = 0;
  Defect defect = Defect::undecodable;
  std::string what;  // completes "node 0x... "
};

// What is wrong with nodes, in their order; none of it is `unreadable`, which is for who reads lists.
std::vector<Found> find_defects(const ReadSession& session);

}  // namespace qimctl
