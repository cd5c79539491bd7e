// Making nodes of access lists and of where they are applied.
#include "policy/store/list_nodes.h"

#include <algorithm>
#include <set>
#include <utility>

#include "policy/model/name_hash.h"
#include "policy/store/id_blocks.h"

namespace qimctl {

namespace {

std::vector<uint8_t> bytes_of(const std::string& text) {
  return {text.begin(), text.end()};
}

qim_dsetname_t dset_of(const qim_policy_dest_t& dest, const PartKey& key, uint32_t stage) {
  qim_pinst_fields_t fields{};
  fields.dest = dest;
  fields.dir = static_cast<uint8_t>(key.number);
  fields.type = policy_type_access_list | stage;
  qim_dsetname_t name{};
  qim_pinst_to_dsetname(&fields, &name);
  return name;
}

// The generic format, which no interface's name has, keeps the names of instances apart from those
// of the interfaces that they are applied at.
qim_dsetname_t instance_name(uint32_t group, const PartKey& key) {
  qim_policy_dest_t dest{};
  dest.gen.fmt = QIM_DEST_GEN;
  dest.gen.v32a = group;
  return dset_of(dest, key, key.stage);
}

qim_dsetname_t destination_name(const PartKey& key, uint32_t stage) {
  qim_policy_dest_t dest{};
  dest.intf.fmt = QIM_DEST_IF;
  dest.intf.ifix = interface_index(key.text);
  return dset_of(dest, key, stage);
}

uint32_t node_type_of(Part part) {
  switch (part) {
    case Part::group:
      return QIM_NODE_GROUP;
    case Part::fallback:
      return QIM_NODE_DEF;
    case Part::instance:
      return QIM_NODE_PINST;
    case Part::destination:
      return QIM_NODE_EDEST;
    case Part::police:
      return QIM_NODE_POLICE;
    case Part::list_name:
    case Part::interface_name:
    case Part::log:
    case Part::policer_name:
    case Part::forward:
      break;
  }
  return QIM_NODE_ACTION;
}

// What follows a forwarding action or a policer in its chain.
void link_next(const std::string& policer, bool log, const ListIds& ids, Node& node) {
  if (policer.empty() && !log) return;
  const PartKey next =
      policer.empty() ? PartKey{Part::log} : PartKey{Part::police, policer, 0, 0, log};
  node.links.push_back({.field = QIM_LN_ACTION_NEXT, .node = ids.parts.at(next)});
}

void fill_name(const std::string& name, Node& node) {
  node.record.body.action.type = QIM_ACTION_NAME;
  node.args = bytes_of(name);
}

qim_action_bw_t bandwidth(const Policer& policer, uint64_t rate, uint64_t burst) {
  const auto unit = static_cast<uint32_t>(policer.unit);
  qim_action_bw_t bandwidth{};
  bandwidth.rate_units = unit;
  bandwidth.rate = rate;
  bandwidth.burst_units = unit;
  bandwidth.burst = burst;
  return bandwidth;
}

}  // namespace

PartKey forward_key(const Entry& entry) {
  return {Part::forward, entry.policer, static_cast<uint32_t>(entry.forwarding), 0, entry.log};
}

ListNodes::ListNodes(const Model& model, const AccessList& list,
                     const std::vector<const Attachment*>& attachments)
    : model_(model), list_(list) {
  add({Part::group}, list.place);
  add({Part::fallback}, list.place);
  add({Part::list_name}, list.place);
  add_attachments(attachments);
  add_actions();
}

void ListNodes::add(const PartKey& key, const Place& place) {
  if (places_.emplace(key, &place).second) order_.push_back(key);
}

// All instances before all destinations, both in the order in which the input names them.
void ListNodes::add_attachments(const std::vector<const Attachment*>& attachments) {
  for (const Attachment* at : attachments) add({Part::instance, "", at->dir, at->stage}, at->place);
  for (const Attachment* at : attachments) {
    const PartKey key{Part::destination, at->interface, at->dir};
    add(key, at->place);
    stages_[key] = at->stage;
  }
  for (const Attachment* at : attachments) add({Part::interface_name, at->interface}, at->place);
}

void ListNodes::add_actions() {
  std::map<PartKey, const Entry*> used;  // by the first entry
  for (const Entry& entry : list_.entries) used.emplace(forward_key(entry), &entry);
  for (const auto& [key, entry] : used) {
    if (entry->log) add({Part::log}, entry->place);
    if (entry->policer.empty()) continue;
    add({Part::policer_name, entry->policer}, entry->place);
    add({Part::police, entry->policer, 0, 0, entry->log}, entry->place);
  }
  for (const auto& [key, entry] : used) add(key, entry->place);
}

uint32_t ListNodes::count() const {
  return static_cast<uint32_t>(order_.size() + list_.entries.size());
}

ListIds ListNodes::number(uint32_t first) const {
  ListIds ids;
  for (const PartKey& key : order_) ids.parts.emplace(key, first++);
  ids.filters.reserve(list_.entries.size());
  for (size_t i = 0; i < list_.entries.size(); i++) ids.filters.push_back(first++);
  return ids;
}

Node ListNodes::part(const PartKey& key, const ListIds& ids) const {
  Node node;
  node.id = ids.parts.at(key);
  node.record.id = node.id;
  node.record.type = node_type_of(key.part);
  node.record.group = ids.group();
  node.place = *places_.at(key);
  if (key.part >= Part::log) node.place.path += "/actions";
  fill(key, ids, node);
  return node;
}

void ListNodes::fill(const PartKey& key, const ListIds& ids, Node& node) const {
  switch (key.part) {
    case Part::group:
      return fill_group(ids, node);
    case Part::fallback:
      node.record.body.def.type = static_cast<uint32_t>(list_.default_action);
      return;
    case Part::list_name:
      return fill_name(list_.name, node);
    case Part::instance:
      node.dset = instance_name(ids.group(), key);
      node.links.push_back({.field = QIM_LN_PINST, .node = ids.group()});
      return;
    case Part::destination: {
      const uint32_t stage = stages_.at(key);
      node.dset = destination_name(key, stage);
      const uint32_t instance = ids.parts.at({Part::instance, "", key.number, stage});
      node.links.push_back({.field = QIM_LN_PINST, .node = instance});
      const uint32_t name = ids.parts.at({Part::interface_name, key.text});
      node.links.push_back({.field = QIM_LN_EDEST_NAME, .node = name});
      return;
    }
    case Part::interface_name:
    case Part::policer_name:
      return fill_name(key.text, node);
    case Part::log:
      node.record.body.action.type = QIM_ACTION_LOG;
      return;
    case Part::police:
      return fill_police(key, ids, node);
    case Part::forward:
      break;
  }
  node.record.body.action.type = key.number;
  link_next(key.text, key.log, ids, node);
}

void ListNodes::fill_group(const ListIds& ids, Node& node) const {
  node.record.body.group.type = group_access_list;
  node.record.body.group.subtype = list_.type;
  if (!ids.filters.empty()) {
    node.links.push_back({.field = QIM_LN_GROUP_FIRST,
                          .node = ids.filters.front(),
                          .val = static_cast<uint32_t>(ids.filters.size())});
  }
  node.links.push_back({.field = QIM_LN_GROUP_DEF, .node = ids.parts.at({Part::fallback})});
  node.links.push_back({.field = QIM_LN_GROUP_NAME, .node = ids.parts.at({Part::list_name})});
}

void ListNodes::fill_police(const PartKey& key, const ListIds& ids, Node& node) const {
  const Policer& policer = *find_policer(model_, key.text);
  qim_police_t& police = node.record.body.police;
  police.comt_bw = bandwidth(policer, policer.committed_rate, policer.committed_burst);
  police.peak_bw = bandwidth(policer, policer.peak_rate, policer.peak_burst);
  link_next("", key.log, ids, node);
  node.links.push_back(
      {.field = QIM_LN_POLICE_NAME, .node = ids.parts.at({Part::policer_name, key.text})});
}

Node ListNodes::filter(size_t index, const ListIds& ids) const {
  Node node;
  fill_filter(index, ids, node);
  node.place = list_.entries[index].place;
  return node;
}

// What has room already keeps it: a list has very many filters.
void ListNodes::fill_filter(size_t index, const ListIds& ids, Node& node) const {
  const Entry& entry = list_.entries[index];
  const bool last = index + 1 == list_.entries.size();
  node.id = ids.filters[index];
  node.record.id = node.id;
  node.record.type = QIM_NODE_FILTER;
  node.record.group = ids.group();
  node.record.body.filter.match = QIM_LINK_TRUE;
  node.record.body.filter.nomatch = last ? QIM_LINK_NOMATCH : QIM_LINK_NEXT;
  node.criteria.resize(entry.criteria.size() + 1);
  node.criteria[0].type = criterion_name;
  node.criteria[0].args.assign(entry.name.begin(), entry.name.end());
  std::copy(entry.criteria.begin(), entry.criteria.end(), node.criteria.begin() + 1);
  node.links.clear();
  if (!last) node.links.push_back({.field = QIM_LN_FILTER_NEXT, .node = ids.filters[index + 1]});
  const uint32_t action = ids.parts.at(forward_key(entry));
  node.links.push_back({.field = QIM_LN_FILTER_TRUE, .node = action});
}

std::map<std::string_view, std::vector<const Attachment*>> attachments_by_list(const Model& model) {
  std::map<std::string_view, std::vector<const Attachment*>> attachments;
  for (const Attachment& attachment : model.attachments)
    attachments[attachment.list].push_back(&attachment);
  return attachments;
}

std::vector<Node> make_nodes(const Model& model) {
  auto attachments = attachments_by_list(model);
  std::vector<Node> nodes;
  IdBlocks blocks;
  for (const AccessList& list : model.lists) {
    const ListNodes made(model, list, attachments[list.name]);
    const ListIds ids = made.number(blocks.take(list.name, made.count()));
    for (const PartKey& key : made.parts()) nodes.push_back(made.part(key, ids));
    for (size_t i = 0; i < list.entries.size(); i++) nodes.push_back(made.filter(i, ids));
  }
  return nodes;
}

}  // namespace qimctl
