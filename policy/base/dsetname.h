// Data-set names as JSON and as text.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "policy/base/json.h"
#include "qim.h"

namespace qimctl {

// A name in network order as the native format writes it: structured by its format, or, of a format
// without structure, as 42 hexadecimal digits. What a structured form would not give back byte for
// byte is written as digits too.
JsonValue dset_to_json(const qim_dsetname_t& name);

// The reverse, in network order. `value` must follow the native format's schema.
qim_dsetname_t dset_from_json(JsonView value);

// A name in network order from its 42 hexadecimal digits. Nothing for anything else.
std::optional<qim_dsetname_t> dset_from_hex(const std::string& text);

// "interface 17 vrf 1 vlan 0 vdc 0, type 5, in"
std::string dset_text(const qim_pinst_fields_t& fields);
// The same without what is 0, and with words for the types that have some: "interface 17 vrf 1, access
// list in stage 2, in".
std::string dset_words(const qim_pinst_fields_t& fields);
// "access list in stage 2", "type 5"; "" for 0.
std::string policy_type_words(uint32_t type);

// A destination in words, as dset_text writes it: "interface 17 vrf 1 vlan 0 vdc 0", "service 3
// srv_def 4", "generic vdc 1 v8 2 ...". Members that are left out are 0. Nothing for anything else.
std::optional<qim_policy_dest_t> dest_from_words(const std::vector<std::string>& words);

// "in" for QIM_DIR_IN, "out" for all else.
const char* direction_name(uint8_t dir);

}  // namespace qimctl
