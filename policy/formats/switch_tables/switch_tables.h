// Access lists in the configuration database of a switch as a model (docs/formats.md).
#pragma once

#include <string>

#include "policy/model/model.h"

namespace qimctl {

// The tables of access lists, of their rules, and of types that lists may be of.
inline constexpr const char* switch_lists_table = "ACL_TABLE";
inline constexpr const char* switch_rules_table = "ACL_RULE";
inline constexpr const char* switch_types_table = "ACL_TABLE_TYPE";

// Reads these tables, and the policers that rules name, from a database in JSON. The findings list what
// became of each access list, and everything that was left out or carried differently. Throws
// InputError with everything that is wrong with the text.
ModelInput read_switch_tables(const std::string& text, const std::string& file);

}  // namespace qimctl
