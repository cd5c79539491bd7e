// Access lists of the IETF model (RFC 8519) in their JSON encoding (RFC 7951) as a policy.
#pragma once

#include <string>

#include "policy/base/policy.h"

namespace qimctl {

// The member that holds the access lists; it may lie anywhere in a larger document.
inline constexpr const char* rfc8519_root = "ietf-access-control-list:acls";

// Reads the access lists in `text`, and maps them to nodes as docs/rfc8519.md says. The findings
// list what became of each access list, and everything that was left out or carried differently. An
// entry with something that no node can carry is left out whole. `file` names the input in places.
// The same text gives the same nodes, in the same order and with the same identifiers, whatever the
// file is called. Throws InputError with everything that is wrong with the text.
Policy read_rfc8519(const std::string& text, const std::string& file);

}  // namespace qimctl
