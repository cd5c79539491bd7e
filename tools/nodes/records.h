// Nodes and bytes as answers to questions about them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

// A record in one line or as a document.
void print_record(const qim_node_t& record, OutputForm form);

// Several, with their number. `noun` names one of them.
void print_records(const std::vector<qim_node_t>& records, const char* noun, OutputForm form);

void print_bytes(const std::vector<uint8_t>& bytes, OutputForm form);

// Reads a node that must be of a type. `purpose` completes "cannot ... 0x00000001". Throws
// DatabaseError.
qim_node_t read_typed(const ReadSession& session, uint32_t id, uint32_t type,
                      const std::string& purpose);

}  // namespace qimctl
