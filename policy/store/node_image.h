// A node as a client of the policy library sees it: its record with all variable parts, its links,
// its data-set name.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "policy/store/database.h"
#include "qim.h"
#include "rov.h"

namespace qimctl {

struct NodeImage {
  qim_node_t record{};  // its pointers lead into `room`
  std::vector<uint64_t> room;
  std::vector<qim_link_t> links;       // by field code
  std::optional<qim_dsetname_t> dset;  // network order
};

// Reads a node whole. Throws DatabaseError; its status is ROV_ERR_NO_ITEM when there is no such
// node.
NodeImage read_node(const ReadSession& session, uint32_t id);

// The same without links and data-set name.
NodeImage read_contents(const ReadSession& session, uint32_t id);

// Reads a node's record alone.
qim_node_t read_record(const ReadSession& session, uint32_t id);

// The links of a node whose record was read.
std::vector<qim_link_t> read_links(const ReadSession& session, const qim_node_t& record);

// This tool's private data on a node whose record was read.
std::vector<uint8_t> read_private(const ReadSession& session, const qim_node_t& record);

// Do nodes of this type have criteria?
bool has_criteria(uint32_t type);

// Has the node a data-set name? A policy instance or enforcement destination of format 0 was stored
// without one.
bool has_dset(const qim_node_t& record);

// The data-set name, in network order, of the fields of a record, which hold its bytes in host
// order.
qim_dsetname_t name_of(const qim_pinst_fields_t& fields);

// Calls `visit` for every node of the database, in the order of identifiers. The library has no call
// for this, so the database itself is asked.
void each_node(uint32_t session, const std::function<void(const rov_node_parms_t&)>& visit);

}  // namespace qimctl
