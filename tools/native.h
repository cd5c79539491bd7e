// The native format: JSON, one to one with nodes, links, data-set names and private data
// (docs/native-format.md).
#pragma once

#include <string>

#include "tools/policy.h"

namespace qimctl {

inline constexpr const char* native_format_name = "qim-policy";

// Reads a document. `file` names it in places. Throws InputError with everything that breaks the
// format. What a document alone can't show, such as links that lead nowhere, is left to
// check_policy and the writer.
Policy read_native(const std::string& text, const std::string& file);

}  // namespace qimctl
