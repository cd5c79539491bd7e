// Nodes as the native format's text, written without JSON values in between: for documents of more
// nodes than one likes to wait for.
#pragma once

#include <string>

#include "policy/store/stored_node.h"

namespace qimctl {

// Appends the node in one line, in terms of its record: its head and body, without comments. `record`
// has its criteria and arguments. `name` is its data-set name as JSON, "" = none. Links and
// private data are those of `stored`.
void append_record_form(std::string& to, const qim_node_t& record, const std::string& name,
                        const StoredNode& stored);

// The same in terms of what the database keeps.
void append_raw_form(std::string& to, const StoredNode& stored);

}  // namespace qimctl
