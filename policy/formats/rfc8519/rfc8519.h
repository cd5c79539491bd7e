// Access lists of the IETF model (RFC 8519) in their JSON encoding (RFC 7951) as a model.
#pragma once

#include <string>

#include "policy/model/model.h"
#include "policy/model/read_options.h"

namespace qimctl {

// The member that holds the access lists; it may lie anywhere in a larger document.
inline constexpr const char* rfc8519_root = "ietf-access-control-list:acls";
// That of a device profile (RFC 8520), beside it.
inline constexpr const char* profile_root = "ietf-mud:mud";

// Reads the access lists in `text`. The findings list what became of each access list, and everything
// that was left out or carried differently. An entry with something that nothing here can carry is
// left out whole. `file` names the input in places, which have paths but no lines in the model. Throws
// InputError with everything that is wrong with the text.
ModelInput read_rfc8519(const std::string& text, const std::string& file,
                        const ReadOptions& options = {});

// Writes the lists of these names, all when there is none, and where they are attached. Reading the
// text gives the same model again; the findings name every exception.
ModelText write_rfc8519(const Model& model, const std::vector<std::string>& names = {});

}  // namespace qimctl
