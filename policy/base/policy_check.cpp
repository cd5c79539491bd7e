// What a policy must hold to, whichever importer made it.
#include "policy/base/policy_check.h"

#include <set>
#include <unordered_map>

#include "policy/base/names.h"
#include "schema/rows.h"

namespace qimctl {

namespace {

using qim::schema::Naming;
using qim::schema::NodeType;
using qim::schema::Row;
using qim::schema::Slot;

bool is_single_slot(const NodeType& type, uint16_t field) {
  const Row* row = qim::schema::slot_of(type, field);
  return row != nullptr && row->slot == Slot::single;
}

class Checker {
 public:
  void check(const Node& node) {
    if (node.raw) {
      check_raw(node);
      return;
    }
    const NodeType* type = qim::schema::node_type(node.record.type);
    if (type == nullptr) {
      report(node, "is of no known type");
      return;
    }
    check_id(node);
    check_name(node, *type);
    std::set<uint16_t> fields;
    for (const Link& link : node.links) {
      check_field(node, link, fields);
      check_link(node, *type, link);
    }
  }

  std::vector<Problem> take() { return std::move(problems_); }

 private:
  // What its contents are is nobody's business here.
  void check_raw(const Node& node) {
    check_id(node);
    std::set<uint16_t> fields;
    for (const Link& link : node.links) {
      check_field(node, link, fields);
      check_target(node, link);
    }
  }

  void check_field(const Node& node, const Link& link, std::set<uint16_t>& fields) {
    if (!fields.insert(link.field).second) {
      report(node, "has two links " + slot_name(link.field) + "; a node has one at most");
    }
  }

  void check_target(const Node& node, const Link& link) {
    if (link.node == 0) {
      report(node, "has a link " + slot_name(link.field) + " to node 0; leave the link out");
    }
  }

  void report(const Node& node, const std::string& message) {
    problems_.push_back({node.place, "node " + node_id_text(node.id) + " " + message});
  }

  void check_id(const Node& node) {
    if (node.id == 0) {
      problems_.push_back({node.place, "a node's identifier must not be 0"});
      return;
    }
    const auto [first, fresh] = places_.emplace(node.id, &node.place);
    if (fresh) return;
    const Place& place = *first->second;
    const std::string where = place.file == node.place.file ? place.path : place.file + place.path;
    report(node, "is there already, at " + where + "; give one of the two another identifier");
  }

  void check_name(const Node& node, const NodeType& type) {
    if (node.dset && type.naming == Naming::never) {
      report(node, std::string("has a data-set name, which no ") + type.name + " has; remove it");
    }
    if (!node.dset && type.naming == Naming::required) {
      report(node,
             "has no data-set name; add one, or make it a " + node_type_name(QIM_NODE_DSET_NONAME));
    }
  }

  void check_link(const Node& node, const NodeType& type, const Link& link) {
    check_target(node, link);
    if (is_single_slot(type, link.field) && (link.node2 != 0 || link.val != 0)) {
      report(node, "has a link " + slot_name(link.field) +
                       " with a node2 or val, which that slot can't hold; set both to 0");
    }
  }

  std::unordered_map<uint32_t, const Place*> places_;
  std::vector<Problem> problems_;
};

}  // namespace

std::vector<Problem> check_policies(const std::vector<Policy>& policies) {
  Checker checker;
  for (const Policy& policy : policies) {
    for (const Node& node : policy.nodes) checker.check(node);
  }
  return checker.take();
}

}  // namespace qimctl
