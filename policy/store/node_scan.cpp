// Reading every node of a database once.
#include "policy/store/node_scan.h"

#include <memory>

#include "policy/base/criteria_codes.h"
#include "policy/base/names.h"
#include "policy/store/node_image.h"

namespace qimctl {

namespace {

// A link that no slot holds, 0 when there is none. What a name's link carries beside its node does
// not matter.
uint32_t linked(uint32_t session, uint32_t id, uint16_t field) {
  qim_link_t link;
  const uint32_t status = qim_link_field_get(session, id, field, &link);
  if (status == ROV_ERR_NO_LINK) return 0;
  require(status, "read the link " + slot_name(field) + " of node " + node_id_text(id));
  return link.node;
}

class Scanner {
 public:
  explicit Scanner(uint32_t session) : session_(session) {}

  NodeScan scan() {
    each_node(session_, [this](const rov_node_parms_t& parms) { visit(parms); });
    if (first_ != 0) scan_.ids.reserve(first_, last_);
    std::sort(scan_.members.begin(), scan_.members.end());
    return std::move(scan_);
  }

 private:
  void visit(const rov_node_parms_t& parms);
  void reserve(uint32_t id);
  void add(const qim_node_t& node);
  void add_filter(const qim_node_t& node);
  void add_action(const qim_node_t& node);
  void add_police(const qim_node_t& node);
  void add_group(const qim_node_t& node);
  void add_def(const qim_node_t& node);
  void add_place(const qim_node_t& node, NodeTable<PlaceNode>& table);

  uint32_t session_;
  NodeScan scan_;
  uint32_t first_ = 0;  // the run of identifiers that goes on, 0 = none
  uint32_t last_ = 0;
};

void Scanner::visit(const rov_node_parms_t& parms) {
  const uint32_t id = qim_from_rov_node_id(&parms.id);
  reserve(id);
  qim_node_t* node = nullptr;
  const uint32_t status = qim_int_node_open(session_, id, &parms, 0, &node, qim_lib_get());
  if (is_about_contents(status)) {
    scan_.undecodable.push_back(id);
    return;
  }
  require(status, "read node " + node_id_text(id));
  const auto close = [](qim_node_t* open) { qim_int_node_close(open, qim_lib_get()); };
  const std::unique_ptr<qim_node_t, decltype(close)> owned(node, close);
  add(*node);
}

void Scanner::reserve(uint32_t id) {
  if (first_ != 0 && id != last_ + 1) {
    scan_.ids.reserve(first_, last_);
    first_ = 0;
  }
  if (first_ == 0) first_ = id;
  last_ = id;
}

void Scanner::add(const qim_node_t& node) {
  if (node.group != 0) scan_.members.emplace_back(node.group, node.id);
  switch (node.type) {
    case QIM_NODE_FILTER:
      return add_filter(node);
    case QIM_NODE_ACTION:
      return add_action(node);
    case QIM_NODE_POLICE:
      return add_police(node);
    case QIM_NODE_GROUP:
      return add_group(node);
    case QIM_NODE_DEF:
      return add_def(node);
    case QIM_NODE_PINST:
      return add_place(node, scan_.instances);
    case QIM_NODE_EDEST:
      return add_place(node, scan_.destinations);
    default:
      return;
  }
}

void Scanner::add_filter(const qim_node_t& node) {
  const qim_filter_t& filter = node.body.filter;
  FilterNode& row = scan_.filters.add(node.id);
  row.group = node.group;
  row.match = filter.match;
  row.nomatch = filter.nomatch;
  row.next = filter.ln_081;
  row.action = linked(session_, node.id, QIM_LN_FILTER_TRUE);
  row.criteria.reserve(filter.crit_cnt);
  for (const qim_criterion_t* at = filter.crit; at != nullptr; at = at->next) {
    if (at->type == criterion_name && !row.named) {
      row.named = true;
      row.plain = at == filter.crit;
      row.name.assign(at->args, at->args + at->args_len);
    } else {
      row.criteria.push_back({at->type, {at->args, at->args + at->args_len}});
    }
  }
  row.plain = row.plain && node.flags == 0 && filter.flags == 0;
}

void Scanner::add_action(const qim_node_t& node) {
  const qim_action_t& action = node.body.action;
  ActionNode& row = scan_.actions.add(node.id);
  row.group = node.group;
  row.type = action.type;
  row.next = action.ln_141;
  row.args.assign(action.args, action.args + action.args_len);
}

void Scanner::add_police(const qim_node_t& node) {
  const qim_police_t& police = node.body.police;
  PoliceNode& row = scan_.polices.add(node.id);
  row.group = node.group;
  row.next = police.ln_141;
  row.name = linked(session_, node.id, QIM_LN_POLICE_NAME);
  row.plain = police.ln_201.node == 0 && police.ln_202.node == 0 && police.ln_203.node == 0;
  row.committed = police.comt_bw;
  row.peak = police.peak_bw;
}

void Scanner::add_group(const qim_node_t& node) {
  const qim_group_t& group = node.body.group;
  if (group.type != group_access_list) return;
  GroupNode& row = scan_.groups.add(node.id);
  row.subtype = group.subtype;
  row.first = group.ln_281.node;
  row.count = group.ln_281.val;
  row.fallback = group.ln_282;
  row.name = linked(session_, node.id, QIM_LN_GROUP_NAME);
  row.plain = node.group == node.id && node.flags == 0;
}

void Scanner::add_def(const qim_node_t& node) {
  const qim_def_t& def = node.body.def;
  DefNode& row = scan_.defs.add(node.id);
  row.group = node.group;
  row.type = def.type;
  row.plain = def.args_len == 0 && def.ln_301 == 0 && def.ln_302.node == 0;
}

void Scanner::add_place(const qim_node_t& node, NodeTable<PlaceNode>& table) {
  PlaceNode& row = table.add(node.id);
  row.group = node.group;
  row.fields = node.body.pinst.fields;
  row.target = node.body.pinst.ln_2c1.node;
  if (node.type == QIM_NODE_EDEST) row.name = linked(session_, node.id, QIM_LN_EDEST_NAME);
}

}  // namespace

NodeScan scan_nodes(uint32_t session) {
  return Scanner(session).scan();
}

std::string what_is_wrong(const NodeScan& scan, uint32_t session, uint32_t id, const char* wanted) {
  rov_node_parms_t parms;
  if (id == 0) return "is not there";
  if (rov_node_parms_get(session, database_id(id), &parms) != ROV_OK)
    return "node " + node_id_text(id) + ", is not in the database";
  if (std::binary_search(scan.undecodable.begin(), scan.undecodable.end(), id))
    return "node " + node_id_text(id) + ", can't be decoded";
  return "node " + node_id_text(id) + ", is no " + wanted;
}

}  // namespace qimctl
