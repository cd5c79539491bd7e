// Every node of a database as far as access lists are made of it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "policy/base/policy.h"
#include "policy/store/id_blocks.h"

namespace qimctl {

struct FilterNode {
  uint32_t id = 0;
  uint32_t group = 0;
  uint32_t match = 0;
  uint32_t nomatch = 0;
  uint32_t next = 0;
  uint32_t action = 0;
  bool plain = true;  // nothing else is said of it
  bool named = false;
  bool used = false;  // belongs to a list that was read
  std::string name;
  std::vector<Criterion> criteria;
};

struct ActionNode {
  uint32_t id = 0;
  uint32_t group = 0;
  uint32_t type = 0;
  uint32_t next = 0;
  std::string args;
};

struct PoliceNode {
  uint32_t id = 0;
  uint32_t group = 0;
  uint32_t next = 0;
  uint32_t name = 0;
  bool plain = true;
  qim_action_bw_t committed{};
  qim_action_bw_t peak{};
};

struct GroupNode {
  uint32_t id = 0;
  uint32_t subtype = 0;
  uint32_t first = 0;
  uint32_t count = 0;
  uint32_t fallback = 0;
  uint32_t name = 0;
  bool plain = true;
};

struct DefNode {
  uint32_t id = 0;
  uint32_t group = 0;
  uint32_t type = 0;
  bool plain = true;
};

// A Pinst or an Edest.
struct PlaceNode {
  uint32_t id = 0;
  uint32_t group = 0;
  qim_pinst_fields_t fields{};
  uint32_t target = 0;
  uint32_t name = 0;
};

// Nodes of one type, in the order of identifiers.
template <typename Row>
class NodeTable {
 public:
  Row& add(uint32_t id) {
    Row& row = rows_.emplace_back();
    row.id = id;
    return row;
  }
  Row* find(uint32_t id) {
    const auto at =
        std::lower_bound(rows_.begin(), rows_.end(), id,
                         [](const Row& row, uint32_t wanted) { return row.id < wanted; });
    return at != rows_.end() && at->id == id ? &*at : nullptr;
  }
  const Row* find(uint32_t id) const { return const_cast<NodeTable*>(this)->find(id); }
  std::vector<Row>& rows() { return rows_; }

 private:
  std::vector<Row> rows_;
};

struct NodeScan {
  NodeTable<FilterNode> filters;
  NodeTable<ActionNode> actions;
  NodeTable<PoliceNode> polices;
  NodeTable<GroupNode> groups;  // of access lists
  NodeTable<DefNode> defs;
  NodeTable<PlaceNode> instances;
  NodeTable<PlaceNode> destinations;
  std::vector<std::pair<uint32_t, uint32_t>> members;  // group number and node, ascending
  std::vector<uint32_t> undecodable;                   // ascending
  IdBlocks ids;
};

NodeScan scan_nodes(uint32_t session);

// "is not in the database", "can't be decoded", "is no Filter"
std::string what_is_wrong(const NodeScan& scan, uint32_t session, uint32_t id, const char* wanted);

}  // namespace qimctl
