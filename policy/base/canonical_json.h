// JSON in its canonical form (RFC 8785): one text for all documents that say the same.
#pragma once

#include <optional>
#include <string>

#include "policy/base/json.h"

namespace qimctl {

// The canonical text of a value. Nothing when it holds a number of 2^53 or more, which this form, where
// numbers are doubles, can't tell from its neighbours.
std::optional<std::string> canonical_json(JsonView value);

}  // namespace qimctl
