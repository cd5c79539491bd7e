// `qimctl list`: the nodes of a database.
#pragma once

#include <cstdint>
#include <optional>

#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

struct ListOptions {
  std::optional<uint32_t> type;  // only nodes of this type
  OutputForm form = OutputForm::table;
};

// Prints the nodes in ascending order of their identifiers. Returns false when there are some that
// can't be decoded: these stand among the others, with the reason, where no type is asked for.
// Throws DatabaseError.
bool list_nodes(const ReadSession& session, const ListOptions& options);

}  // namespace qimctl
