// What must hold of a policy before a device takes it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qim::fleet {

struct CheckOptions {
  bool allow_unknown = false;  // matches that only another data model understands
};

// Who refers to a node, which is to be taken away. Throws DatabaseError.
std::vector<uint32_t> referrers_of(uint32_t session, uint32_t node);

// Looks at nodes, ascending, that a session's edits touched; those that are gone are passed over. ""
// when all is well, otherwise what is wrong with the first. Throws DatabaseError.
std::string check_nodes(uint32_t session, const std::vector<uint32_t>& nodes,
                        const CheckOptions& options);

}  // namespace qim::fleet
