// Writes policies into a database: records are built, encoded by the policy library, and stored
// with their links, data-set names and private data.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "policy/base/policy.h"
#include "policy/store/database.h"

namespace qimctl {

struct StoreOptions {
  bool replace =
      false;  // nodes that the database has already are replaced, links and private data with them
  bool dangling = false;           // links may lead to nodes that are nowhere
  std::function<void()> stored{};  // called for every node, when it is stored
};

struct StoreCounts {
  size_t nodes = 0;
  size_t links = 0;
  size_t replaced = 0;  // of the nodes
};

// Writes all nodes of `policies` through `session`, which the caller commits. Throws InputError
// with every node that the database has already (unless `replace`) and every link whose target is
// neither in the policies nor in the database, and DatabaseError when the database refuses
// something; the session is to be dropped then.
StoreCounts write_policies(const std::vector<Policy>& policies, const WriteSession& session,
                           const StoreOptions& options);

// The flags that the database keeps of a node.
uint32_t database_flags(const Node& node);

// The TLV form of a node's record: what rov_edit_node_put takes. Empty for data-set nodes.
std::vector<uint8_t> encode_node(const Node& node);
// The same into `room`; how many bytes, nothing when it is not that simple.
std::optional<uint32_t> encode_small(const Node& node, std::span<uint8_t> room);

}  // namespace qimctl
