// Single edits of a write session, with failures in words.
#pragma once

#include <cstdint>

#include "policy/base/policy.h"

namespace qimctl {

// A node's contents, and its private data if it has any. Its links stay as they are in the database.
void put_node(uint32_t session, const Node& node);
void put_link(uint32_t session, uint32_t owner, const Link& link);
void delete_link(uint32_t session, uint32_t owner, uint16_t field);
void delete_node(uint32_t session, uint32_t id);

// Is there such a node?
bool is_stored(uint32_t session, uint32_t id);

// How a stored node differs from one that is wanted.
struct NodeDifference {
  bool contents = false;         // or private data
  std::vector<Link> links;       // that are missing or others
  std::vector<uint16_t> extras;  // fields of links that are too many

  bool any() const { return contents || !links.empty() || !extras.empty(); }
};
// `node` must be stored.
NodeDifference difference_from_stored(uint32_t session, const Node& node);

}  // namespace qimctl
