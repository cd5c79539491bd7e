// JSON values as YAML 1.2, in blocks.
#pragma once

#include <string>

#include "policy/base/json.h"

namespace qimctl {

// A document, with a line's end. Texts that other readers of YAML could take for something else are
// in quotes; what is no UTF-8 is replaced.
std::string to_yaml(const JsonValue& value);
// The same as an element of a list: "- id: ...".
std::string to_yaml_element(const JsonValue& value);

}  // namespace qimctl
