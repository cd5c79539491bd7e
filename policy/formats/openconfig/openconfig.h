// Access lists of the OpenConfig model in their JSON encoding (RFC 7951) as a model
// (docs/formats.md).
#pragma once

#include <string>
#include <vector>

#include "policy/model/model.h"

namespace qimctl {

// The member that holds the access lists, and that of a list's entries, which tells a file that is
// nothing but an array of lists.
inline constexpr const char* openconfig_root = "openconfig-acl:acl";
inline constexpr const char* openconfig_entries = "acl-entries";

// Reads a document that has the access lists at its top, or is an array of them. The findings list
// what became of each access list, and everything that was left out or carried differently. Throws
// InputError with everything that is wrong with the text.
ModelInput read_openconfig(const std::string& text, const std::string& file);

// Writes the lists of these names, all when there is none, and where they are attached. Reading the
// text gives the same model again; the findings name every exception.
ModelText write_openconfig(const Model& model, const std::vector<std::string>& names = {});

}  // namespace qimctl
