// Reading every node of a database once.
#include "policy/store/node_scan.h"

#include <memory>

#include "policy/base/criteria_codes.h"
#include "policy/base/names.h"
#include "policy/store/node_image.h"

namespace qimctl {

namespace {

class Scanner {
 public:
  Scanner(uint32_t session, Detail detail, Stored* seen)
      : session_(session), detail_(detail), seen_(seen) {}

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
  Detail detail_;
  Stored* seen_;
  NodeScan scan_;
  uint32_t first_ = 0;  // the run of identifiers that goes on, 0 = none
  uint32_t last_ = 0;
};

void Scanner::visit(const rov_node_parms_t& parms) {
  const uint32_t id = qim_from_rov_node_id(&parms.id);
  reserve(id);
  if (seen_ != nullptr) seen_->add(session_, parms.id);
  qim_node_t* node = nullptr;
  const uint32_t status = qim_int_node_open(session_, id, &parms, 0, &node, qim_lib_get());
  if (is_about_contents(status)) {
    scan_.undecodable.push_back(id);
    return;
  }
  if (status != ROV_OK) require(status, "read node " + node_id_text(id));
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
  if (detail_ != Detail::outline && node.group != 0)
    scan_.members.emplace_back(node.group, node.id);
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
  const qim_criterion_t* name = name_of(filter);
  FilterNode row;
  row.id = node.id;
  row.group = node.group;
  row.match = filter.match;
  row.nomatch = filter.nomatch;
  row.next = filter.ln_081;
  row.named = name != nullptr;
  row.plain = (!row.named || name == filter.crit) && node.flags == 0 && filter.flags == 0;
  scan_.filters.add(row);
  scan_.actions_of.push_back(linked_node(session_, node.id, QIM_LN_FILTER_TRUE));
  const std::string_view text =
      row.named ? std::string_view(reinterpret_cast<const char*>(name->args), name->args_len)
                : std::string_view();
  scan_.names.push_back(entry_name_hash(text));
  if (detail_ != Detail::whole) return;
  FilterContents& contents = scan_.contents.emplace_back();
  contents.name = text;
  contents.criteria.reserve(filter.crit_cnt);
  read_criteria(filter, contents.criteria);
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
  row.name = linked_node(session_, node.id, QIM_LN_POLICE_NAME);
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
  row.name = linked_node(session_, node.id, QIM_LN_GROUP_NAME);
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
  if (node.type == QIM_NODE_EDEST) row.name = linked_node(session_, node.id, QIM_LN_EDEST_NAME);
}

}  // namespace

bool FilterTable::continues(const Run& run, const FilterNode& filter) {
  return filter.id == run.last + 1 && filter.id == run.next && filter.group == run.first.group &&
         filter.match == run.first.match && filter.nomatch == run.first.nomatch &&
         filter.plain == run.first.plain && filter.named == run.first.named;
}

void FilterTable::add(const FilterNode& filter) {
  const uint32_t at = count_++;
  if (!runs_.empty() && continues(runs_.back(), filter)) {
    runs_.back().last = filter.id;
    runs_.back().next = filter.next;
    return;
  }
  runs_.push_back({filter, filter.id, filter.next});
  runs_.back().first.at = at;
}

std::optional<FilterNode> FilterTable::find(uint32_t id) const {
  const auto run =
      std::lower_bound(runs_.begin(), runs_.end(), id,
                       [](const Run& one, uint32_t wanted) { return one.last < wanted; });
  if (run == runs_.end() || run->first.id > id) return {};
  FilterNode filter = run->first;
  filter.at += id - filter.id;
  filter.id = id;
  filter.next = id == run->last ? run->next : id + 1;
  return filter;
}

bool FilterTable::use(uint32_t id) {
  const auto behind = used_.upper_bound(id);
  if (behind != used_.begin()) {
    uint32_t& last = std::prev(behind)->second;
    if (id <= last) return false;
    if (id == last + 1) {
      last = id;
      return true;
    }
  }
  used_.emplace_hint(behind, id, id);
  return true;
}

uint64_t entry_name_hash(std::string_view name) {
  return std::hash<std::string_view>()(name);
}

NodeScan scan_nodes(uint32_t session, Detail detail, Stored* seen) {
  return Scanner(session, detail, seen).scan();
}

uint32_t linked_node(uint32_t session, uint32_t id, uint16_t field) {
  qim_link_t link;
  const uint32_t status = qim_link_field_get(session, id, field, &link);
  if (status == ROV_ERR_NO_LINK) return 0;
  if (status != ROV_OK)
    require(status, "read the link " + slot_name(field) + " of node " + node_id_text(id));
  return link.node;
}

const qim_criterion_t* name_of(const qim_filter_t& filter) {
  const qim_criterion_t* at = filter.crit;
  while (at != nullptr && at->type != criterion_name) at = at->next;
  return at;
}

void read_criteria(const qim_filter_t& filter, std::vector<Criterion>& criteria) {
  const qim_criterion_t* name = name_of(filter);
  size_t count = 0;
  for (const qim_criterion_t* at = filter.crit; at != nullptr; at = at->next) {
    if (at == name) continue;
    if (count == criteria.size()) criteria.emplace_back();
    criteria[count].type = at->type;
    criteria[count].args.assign(at->args, at->args + at->args_len);
    count++;
  }
  criteria.resize(count);
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
