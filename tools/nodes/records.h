// Nodes and bytes as answers to questions about them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

// A record in one line or as a document.
void print_record(const ReadSession& session, const qim_node_t& record, OutputForm form);

// A node of which several are listed: one that can't be decoded hides no other.
struct ListedNode {
  uint32_t id = 0;
  std::optional<qim_node_t> record;  // nothing: it can't be decoded
  std::string why;                   // "undecodable: ..."
};
// Throws DatabaseError for all that is not about the node's contents.
ListedNode read_listed(const ReadSession& session, uint32_t id);
JsonValue listed_to_json(const ListedNode& node);

// Several, with their number. `noun` names one of them. Returns whether all could be decoded.
bool print_records(const ReadSession& session, const std::vector<ListedNode>& nodes,
                   const char* noun, OutputForm form);

// The nodes that refer to one, in the order of identifiers.
std::vector<ListedNode> read_referrers(const ReadSession& session, const qim_node_t& record);

void print_bytes(const std::vector<uint8_t>& bytes, OutputForm form);

// Reads a node that must be of a type. `purpose` completes "cannot ... 0x00000001". Throws
// DatabaseError.
qim_node_t read_typed(const ReadSession& session, uint32_t id, uint32_t type,
                      const std::string& purpose);

}  // namespace qimctl
