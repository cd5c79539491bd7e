// Making nodes of access lists and of where they are applied.
#include "policy/store/list_nodes.h"

#include <map>
#include <set>
#include <utility>

#include "policy/model/name_hash.h"
#include "policy/store/id_blocks.h"

namespace qimctl {

namespace {

std::vector<uint8_t> bytes_of(const std::string& text) {
  return {text.begin(), text.end()};
}

qim_dsetname_t dset_of(const qim_policy_dest_t& dest, const Attachment& attachment) {
  qim_pinst_fields_t fields{};
  fields.dest = dest;
  fields.dir = attachment.dir;
  fields.type = policy_type_access_list | attachment.stage;
  qim_dsetname_t name{};
  qim_pinst_to_dsetname(&fields, &name);
  return name;
}

// The generic format, which no interface's name has, keeps the names of instances apart from those
// of the interfaces that they are applied at.
qim_dsetname_t instance_name(uint32_t group, const Attachment& attachment) {
  qim_policy_dest_t dest{};
  dest.gen.fmt = QIM_DEST_GEN;
  dest.gen.v32a = group;
  return dset_of(dest, attachment);
}

qim_dsetname_t destination_name(const Attachment& attachment) {
  qim_policy_dest_t dest{};
  dest.intf.fmt = QIM_DEST_IF;
  dest.intf.ifix = interface_index(attachment.interface);
  return dset_of(dest, attachment);
}

// An action chain that entries share: what becomes of the packet, and whether it is logged.
using Chain = std::pair<ActionType, bool>;
// What the destinations of one instance have in common: direction and stage.
using Instance = std::pair<uint8_t, uint32_t>;

// Builds the nodes of one list.
class ListBuilder {
 public:
  ListBuilder(const AccessList& list, const std::vector<const Attachment*>& attachments,
              std::vector<Node>& nodes);

  // How many identifiers build() uses.
  uint32_t count() const;
  void build(uint32_t first_id);

 private:
  Node& add(uint32_t type, const Place& place);
  void add_group();
  void add_default();
  void add_attachments();
  void add_actions();
  uint32_t add_action(ActionType type, bool log, Place place);
  void add_filter(size_t index);

  uint32_t filter_id(size_t index) const { return filters_ + static_cast<uint32_t>(index); }

  const AccessList& list_;
  const std::vector<const Attachment*>& attachments_;
  std::vector<Node>& nodes_;
  std::map<Chain, const Entry*> chains_;  // and the first entry that uses it
  std::map<Chain, uint32_t> chain_ids_;
  const Entry* first_logged_ = nullptr;
  std::set<Instance> instances_;

  uint32_t group_ = 0;
  uint32_t default_ = 0;
  uint32_t filters_ = 0;
  uint32_t logger_ = 0;
  uint32_t next_ = 0;
};

ListBuilder::ListBuilder(const AccessList& list, const std::vector<const Attachment*>& attachments,
                         std::vector<Node>& nodes)
    : list_(list), attachments_(attachments), nodes_(nodes) {
  for (const Entry& entry : list_.entries) {
    chains_.emplace(Chain(entry.forwarding, entry.log), &entry);
    if (entry.log && first_logged_ == nullptr) first_logged_ = &entry;
  }
  for (const Attachment* attachment : attachments_) {
    instances_.emplace(attachment->dir, attachment->stage);
  }
}

uint32_t ListBuilder::count() const {
  const size_t actions = chains_.size() + (first_logged_ != nullptr ? 1 : 0);
  return static_cast<uint32_t>(2 + list_.entries.size() + actions + instances_.size() +
                               attachments_.size());
}

// Identifiers are given in the order in which the nodes are made, but links lead forward too. The
// filters come last: when a list of fewer entries replaces a stored one, those left over are
// filters that nothing leads to, and not destinations, which would still be found by their names.
void ListBuilder::build(uint32_t first_id) {
  next_ = first_id;
  group_ = first_id;
  default_ = first_id + 1;
  filters_ = first_id + count() - static_cast<uint32_t>(list_.entries.size());
  add_group();
  add_default();
  add_attachments();
  add_actions();
  for (size_t i = 0; i < list_.entries.size(); i++) add_filter(i);
}

Node& ListBuilder::add(uint32_t type, const Place& place) {
  Node& node = nodes_.emplace_back();
  node.id = next_++;
  node.record.id = node.id;
  node.record.type = type;
  node.record.group = group_;
  node.place = place;
  return node;
}

void ListBuilder::add_group() {
  Node& node = add(QIM_NODE_GROUP, list_.place);
  node.record.body.group.type = group_access_list;
  node.record.body.group.subtype = list_.type;
  node.priv = bytes_of(list_.name);
  const auto entries = static_cast<uint32_t>(list_.entries.size());
  if (entries != 0)
    node.links.push_back({.field = QIM_LN_GROUP_FIRST, .node = filters_, .val = entries});
  node.links.push_back({.field = QIM_LN_GROUP_DEF, .node = default_});
}

void ListBuilder::add_default() {
  Node& node = add(QIM_NODE_DEF, list_.place);
  node.record.body.def.type = static_cast<uint32_t>(ActionType::drop);
}

// All instances before all destinations, both in the order in which the input names them.
void ListBuilder::add_attachments() {
  std::map<Instance, uint32_t> ids;
  for (const Attachment* attachment : attachments_) {
    const auto [known, added] = ids.emplace(Instance(attachment->dir, attachment->stage), next_);
    if (!added) continue;
    Node& node = add(QIM_NODE_PINST, attachment->place);
    node.dset = instance_name(group_, *attachment);
    node.priv = bytes_of(list_.name);
    node.links.push_back({.field = QIM_LN_PINST, .node = group_});
  }
  for (const Attachment* attachment : attachments_) {
    Node& node = add(QIM_NODE_EDEST, attachment->place);
    node.dset = destination_name(*attachment);
    node.priv = bytes_of(attachment->interface);
    const uint32_t instance = ids.at(Instance(attachment->dir, attachment->stage));
    node.links.push_back({.field = QIM_LN_PINST, .node = instance});
  }
}

void ListBuilder::add_actions() {
  if (first_logged_ != nullptr) {
    logger_ = add_action(ActionType::log_syslog, false, first_logged_->place);
  }
  for (const auto& [chain, entry] : chains_) {
    chain_ids_[chain] = add_action(chain.first, chain.second, entry->place);
  }
}

uint32_t ListBuilder::add_action(ActionType type, bool log, Place place) {
  place.path += "/actions";
  Node& node = add(QIM_NODE_ACTION, place);
  node.record.body.action.type = static_cast<uint32_t>(type);
  if (log) node.links.push_back({.field = QIM_LN_ACTION_NEXT, .node = logger_});
  return node.id;
}

void ListBuilder::add_filter(size_t index) {
  const Entry& entry = list_.entries[index];
  const bool last = index + 1 == list_.entries.size();
  Node& node = add(QIM_NODE_FILTER, entry.place);
  node.record.body.filter.match = QIM_LINK_TRUE;
  node.record.body.filter.nomatch = last ? QIM_LINK_NOMATCH : QIM_LINK_NEXT;
  node.criteria = entry.criteria;
  node.priv = bytes_of(entry.name);
  if (!last) node.links.push_back({.field = QIM_LN_FILTER_NEXT, .node = filter_id(index + 1)});
  const uint32_t action = chain_ids_.at(Chain(entry.forwarding, entry.log));
  node.links.push_back({.field = QIM_LN_FILTER_TRUE, .node = action});
}

}  // namespace

std::vector<Node> make_nodes(const Model& model) {
  std::map<std::string_view, std::vector<const Attachment*>> attachments;
  for (const Attachment& attachment : model.attachments) {
    attachments[attachment.list].push_back(&attachment);
  }
  std::vector<Node> nodes;
  IdBlocks blocks;
  for (const AccessList& list : model.lists) {
    ListBuilder builder(list, attachments[list.name], nodes);
    builder.build(blocks.take(list.name, builder.count()));
  }
  return nodes;
}

}  // namespace qimctl
