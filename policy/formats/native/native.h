// The native format: JSON, one to one with nodes, links, data-set names and private data
// (docs/native-format.md).
#pragma once

#include <string>

#include "policy/base/json.h"
#include "policy/base/policy.h"

namespace qimctl {

inline constexpr const char* native_format_name = "qim-policy";

// What files name the schema by, so that editors find it wherever a file lies (docs/catalog.json).
inline constexpr const char* native_schema_name = "urn:qim:schema:policy:1";

// The type of nodes whose contents are given as the database keeps them.
inline constexpr const char* raw_type_name = "Raw";

// The checksum of a text, as the member `checksum` has it.
std::string checksum_text(const std::string& text);
std::string checksum_digits(uint32_t checksum);

// Reads one node that follows the schema.
Node read_native_node(JsonView value);

// Reads a document. `file` names it in places. Throws InputError with everything that breaks the
// format. What a document alone can't show, such as links that lead nowhere, is left to
// check_policy and the writer.
Policy read_native(const std::string& text, const std::string& file);

}  // namespace qimctl
