// `qimctl list`: the nodes of a database.
#pragma once

#include <cstdint>
#include <optional>

#include "policy/store/database.h"

namespace qimctl {

struct ListOptions {
  std::optional<uint32_t> type;  // only nodes of this type
  bool json = false;
};

// Prints the nodes in ascending order of their identifiers. Throws DatabaseError.
void list_nodes(const ReadSession& session, const ListOptions& options);

}  // namespace qimctl
