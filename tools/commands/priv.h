// `qimctl priv`: this tool's private data on a node.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

// All throw DatabaseError.
void print_private(const ReadSession& session, uint32_t id, OutputForm form);
// No data takes them away. Says nothing to people.
void set_private(const ReadSession& session, uint32_t id, const std::vector<uint8_t>& data,
                 OutputForm form);

}  // namespace qimctl
