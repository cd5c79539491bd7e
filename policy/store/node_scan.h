// Every node of a database as far as access lists are made of it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "policy/base/policy.h"
#include "policy/store/database.h"
#include "policy/store/id_blocks.h"

namespace qimctl {

struct FilterNode {
  uint32_t id = 0;
  uint32_t group = 0;
  uint32_t match = 0;
  uint32_t nomatch = 0;
  uint32_t next = 0;
  uint32_t at = 0;    // its number among the filters, from 0
  bool plain = true;  // nothing else is said of it
  bool named = false;
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

// Filters. Those of a list mostly follow one another and differ in nothing but what they match, so
// runs of them are kept, not each.
class FilterTable {
 public:
  // In ascending order of identifiers; gives filters their numbers.
  void add(const FilterNode& filter);
  std::optional<FilterNode> find(uint32_t id) const;
  // Takes a filter that is there for a list. False when one has it already.
  bool use(uint32_t id);

 private:
  struct Run {
    FilterNode first;
    uint32_t last;
    uint32_t next;  // of the last
  };
  static bool continues(const Run& run, const FilterNode& filter);

  std::vector<Run> runs_;
  std::map<uint32_t, uint32_t> used_;  // first to last of those that follow one another
  uint32_t count_ = 0;
};

// What is kept of each filter apart: what it is called and what it matches.
struct FilterContents {
  std::string name;
  std::vector<Criterion> criteria;
};

// `hollow` leaves out the contents of filters, `outline` all that takes room for each entry: who belongs
// to which group, too.
enum class Detail { whole, hollow, outline };

struct NodeScan {
  FilterTable filters;
  std::deque<uint32_t> actions_of;       // by number of the filter: where its link True leads
  std::deque<uint64_t> names;            // and a hash of its name
  std::vector<FilterContents> contents;  // and what it holds
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

// Of an entry's name.
uint64_t entry_name_hash(std::string_view name);

// seen: where given, every node is added to it as it is read.
NodeScan scan_nodes(uint32_t session, Detail detail, Stored* seen = nullptr);

// A link that no slot holds, 0 when there is none.
uint32_t linked_node(uint32_t session, uint32_t id, uint16_t field);

// The criterion that is a filter's name, NULL when there is none.
const qim_criterion_t* name_of(const qim_filter_t& filter);
// What it matches besides.
void read_criteria(const qim_filter_t& filter, std::vector<Criterion>& criteria);

// "is not in the database", "can't be decoded", "is no Filter"
std::string what_is_wrong(const NodeScan& scan, uint32_t session, uint32_t id, const char* wanted);

}  // namespace qimctl
