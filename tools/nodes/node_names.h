// What nodes are called on the command line: by identifier, or by what people know them as.
#pragma once

#include <cstdint>
#include <string>

#include "policy/store/database.h"

namespace qimctl {

// The node that `text` names: an identifier, `LIST` (its Group), `LIST/ENTRY` (its Filter) or
// `if:eth0/in` (the Edest there; without direction where there is only one). Throws DatabaseError
// of status ROV_ERR_NO_ITEM where there is none, with what may have been meant, and UsageError where
// there are several.
uint32_t find_node(const ReadSession& session, const std::string& text);

// What a link of that field is for: "next", "true", "default"; its code where nothing says it.
std::string link_words(uint16_t field);

}  // namespace qimctl
