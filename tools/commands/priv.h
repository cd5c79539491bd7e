// `qimctl priv`: this tool's private data on a node.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "policy/store/database.h"

namespace qimctl {

// All throw DatabaseError.
void print_private(const ReadSession& session, uint32_t id, bool json);
// No data takes them away.
void set_private(const ReadSession& session, uint32_t id, const std::vector<uint8_t>& data);

}  // namespace qimctl
