// `qimctl tree`: a policy expanded along its links.
#pragma once

#include <cstdint>

#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

struct TreeOptions {
  uint32_t depth = 100;  // levels below the first node
  OutputForm form = OutputForm::table;
};

// Prints the nodes that links lead to from `id` on. Lists, which chain their elements by the slot
// that leads to the next one, are shown as such: every element one level below what leads to the
// first. A node is expanded where it is met first; where it is met again it is marked as shared, or
// as a cycle when it leads to itself. Throws DatabaseError.
void print_tree(const ReadSession& session, uint32_t id, const TreeOptions& options);

}  // namespace qimctl
