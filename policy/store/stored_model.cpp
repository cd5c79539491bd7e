// Making access lists of nodes again.
#include "policy/store/stored_model.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <unordered_map>
#include <unordered_set>

#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/model/name_hash.h"
#include "policy/store/node_scan.h"
#include "rov.h"

namespace qimctl {

namespace {

// Why something is no access list.
struct Damage {
  std::string why;
  uint32_t at = 0;  // as in Unreadable
};

bool is_forwarding(uint32_t type) {
  return type >= QIM_ACTION_ACCEPT && type <= QIM_ACTION_REJECT;
}

PartKey forward_key(const Deed& deed) {
  return {Part::forward, deed.policer, static_cast<uint32_t>(deed.forwarding), 0, deed.log};
}

void read_contents(const qim_filter_t& filter, Entry& entry) {
  const qim_criterion_t* name = name_of(filter);
  entry.name.assign(name->args, name->args + name->args_len);
  read_criteria(filter, entry.criteria);
}

// A filter, open as long as this is.
class OpenFilter {
 public:
  OpenFilter(uint32_t session, uint32_t id) {
    const uint32_t status =
        qim_int_node_open(session, id, nullptr, QIM_NODE_FILTER, &node_, qim_lib_get());
    if (status != ROV_OK) require(status, "read node " + node_id_text(id));
  }
  ~OpenFilter() { qim_int_node_close(node_, qim_lib_get()); }
  OpenFilter(const OpenFilter&) = delete;
  OpenFilter& operator=(const OpenFilter&) = delete;

  const qim_filter_t& get() const { return node_->body.filter; }

 private:
  qim_node_t* node_ = nullptr;
};

// Entries whose action is known are all there is to be read of a list that is sound so far.
void each_entry(uint32_t session, const StoredList& list,
                const std::function<void(const Entry&)>& visit) {
  Entry entry;
  for (uint32_t id = list.first; id != 0;) {
    const OpenFilter filter(session, id);
    const Deed& deed = list.deeds.at(linked_node(session, id, QIM_LN_FILTER_TRUE));
    read_contents(filter.get(), entry);
    entry.forwarding = deed.forwarding;
    entry.log = deed.log;
    entry.policer = deed.policer;
    visit(entry);
    id = filter.get().ln_081;
  }
}

class ModelReader {
 public:
  ModelReader(uint32_t session, Detail detail, Stored* seen = nullptr)
      : session_(session), detail_(detail), scan_(scan_nodes(session, detail, seen)) {}

  StoredModel read();

 private:
  // A list as far as it has been read. Words are made of it for what is wrong alone.
  struct Reading {
    const GroupNode& group;
    AccessList list;
    StoredList stored;
    size_t entry = 0;             // that is being read, from 1
    std::vector<uint64_t> names;  // hashes of those of all entries
    std::map<std::string, Policer> policers;

    std::string where() const { return "entry " + std::to_string(entry); }
    std::string where(uint32_t node) const {
      return where() + ", node " + node_id_text(node) + ",";
    }
  };

  void read_list(const GroupNode& group);
  void read_default(Reading& reading);
  void read_entries(Reading& reading);
  void read_entry(Reading& reading, const FilterNode& filter);
  void check_names(Reading& reading) const;
  const Deed& deed_of(Reading& reading, uint32_t action);
  Deed read_chain(Reading& reading, uint32_t action);
  void read_police(Reading& reading, const PoliceNode& police, Deed& deed);
  void read_log(Reading& reading, uint32_t id, Deed& deed);
  void read_place(const PlaceNode& destination);
  std::string name_of(uint32_t action, const char* whose) const;
  // A part belongs to the list; a second one of its kind makes the list irregular.
  void note(Reading& reading, const PartKey& key, uint32_t id, uint32_t group) const;
  static void note(StoredList& stored, const PartKey& key, uint32_t id, bool same_group);
  Damage damage(uint32_t id, const char* wanted, const std::string& what);
  std::vector<uint32_t> members_of(uint32_t group) const;
  void sort_attachments();

  uint32_t session_;
  Detail detail_;
  NodeScan scan_;
  StoredModel model_;
  std::unordered_map<std::string, uint32_t> names_;    // of lists, and their Groups
  std::unordered_map<uint32_t, size_t> by_group_;      // lists that were read
  std::unordered_map<std::string, Policer> policers_;  // of lists that were read
  std::set<std::tuple<size_t, std::string, uint8_t>> attached_;
};

StoredModel ModelReader::read() {
  for (const GroupNode& group : scan_.groups.rows()) read_list(group);
  for (const PlaceNode& destination : scan_.destinations.rows()) {
    try {
      read_place(destination);
    } catch (const Damage& damage) {
      model_.unreadable.push_back({destination.id, "", damage.why, {}, damage.at, false});
    }
  }
  for (StoredList& stored : model_.lists) {
    const size_t nodes = stored.ids.parts.size() + stored.ids.filters.size();
    stored.regular = stored.regular && nodes == stored.members.size();
  }
  sort_attachments();
  model_.ids = std::move(scan_.ids);
  return std::move(model_);
}

Damage ModelReader::damage(uint32_t id, const char* wanted, const std::string& what) {
  return {what + ", " + what_is_wrong(scan_, session_, id, wanted), id};
}

std::vector<uint32_t> ModelReader::members_of(uint32_t group) const {
  std::vector<uint32_t> members;
  auto at = std::lower_bound(scan_.members.begin(), scan_.members.end(),
                             std::pair<uint32_t, uint32_t>(group, 0));
  for (; at != scan_.members.end() && at->first == group; at++) members.push_back(at->second);
  return members;
}

std::string ModelReader::name_of(uint32_t action, const char* whose) const {
  if (action == 0) throw Damage{std::string(whose) + " has no name"};
  const ActionNode* name = scan_.actions.find(action);
  if (name == nullptr || name->type != QIM_ACTION_NAME)
    throw Damage{"node " + node_id_text(action) + ", where the name of " + whose +
                 " should be, is no name"};
  return name->args;
}

void ModelReader::note(StoredList& stored, const PartKey& key, uint32_t id, bool same_group) {
  const auto [at, added] = stored.ids.parts.emplace(key, id);
  stored.regular = stored.regular && same_group && at->second == id;
}

void ModelReader::note(Reading& reading, const PartKey& key, uint32_t id, uint32_t group) const {
  note(reading.stored, key, id, group == reading.group.id);
}

void ModelReader::read_list(const GroupNode& group) {
  Reading reading{group, {}, {}, 0, {}, {}};
  reading.stored.members = members_of(group.id);
  reading.stored.regular = group.plain;
  try {
    reading.list.name = name_of(group.name, "the list");
    reading.list.type = group.subtype;
    const auto [same, fresh] = names_.emplace(reading.list.name, group.id);
    if (!fresh) throw Damage{"node " + node_id_text(same->second) + " is a list of that name, too"};
    note(reading, {Part::group}, group.id, group.id);
    const uint32_t owner = scan_.actions.find(group.name)->group;
    note(reading, {Part::list_name}, group.name, owner);
    read_default(reading);
    read_entries(reading);
    for (const auto& [name, policer] : reading.policers) {
      const auto known = policers_.find(name);
      if (known != policers_.end() && !(known->second == policer))
        throw Damage{"another list has another policer of the name " + name};
    }
  } catch (const Damage& damage) {
    model_.unreadable.push_back({group.id, reading.list.name, damage.why,
                                 std::move(reading.stored.members), damage.at, group.name == 0});
    return;
  }
  for (const auto& [name, policer] : reading.policers) {
    if (policers_.emplace(name, policer).second) model_.model.policers.push_back(policer);
  }
  by_group_.emplace(group.id, model_.lists.size());
  model_.model.lists.push_back(std::move(reading.list));
  model_.lists.push_back(std::move(reading.stored));
}

void ModelReader::read_default(Reading& reading) {
  const DefNode* def = scan_.defs.find(reading.group.fallback);
  if (def == nullptr) throw damage(reading.group.fallback, "Def", "the default");
  if (!def->plain || !is_forwarding(def->type))
    throw Damage{"the default, node " + node_id_text(def->id) + ", is none of an access list"};
  reading.list.default_action = static_cast<ActionType>(def->type);
  note(reading, {Part::fallback}, def->id, def->group);
}

void ModelReader::read_entries(Reading& reading) {
  reading.stored.first = reading.group.first;
  for (uint32_t id = reading.group.first; id != 0;) {
    reading.entry++;
    const std::optional<FilterNode> filter = scan_.filters.find(id);
    if (!filter) throw damage(id, "Filter", reading.where());
    if (!scan_.filters.use(id))
      throw Damage{reading.where(id) + " was met before: the list is circular, or shares it"};
    read_entry(reading, *filter);
    id = filter->next;
  }
  reading.stored.entries = static_cast<uint32_t>(reading.entry);
  if (detail_ == Detail::hollow) reading.stored.names = reading.names;
  check_names(reading);
  if (reading.group.count != reading.entry) reading.stored.regular = false;
}

// Names are looked at only where two have the same hash.
void ModelReader::check_names(Reading& reading) const {
  std::sort(reading.names.begin(), reading.names.end());
  if (std::adjacent_find(reading.names.begin(), reading.names.end()) == reading.names.end()) return;
  std::unordered_set<std::string> names;
  each_entry(session_, reading.stored, [&names](const Entry& entry) {
    if (!names.insert(entry.name).second) throw Damage{"two entries are called " + entry.name};
  });
}

void ModelReader::read_entry(Reading& reading, const FilterNode& filter) {
  const bool last = filter.next == 0;
  if (!filter.named) throw Damage{reading.where(filter.id) + " has no name"};
  if (filter.match != QIM_LINK_TRUE)
    throw Damage{reading.where(filter.id) + " does not decide what it matches"};
  const uint32_t onward = last ? QIM_LINK_NOMATCH : QIM_LINK_NEXT;
  // Where nothing follows, Next is as good as Nomatch.
  if (filter.nomatch != onward && !(last && filter.nomatch == QIM_LINK_NEXT))
    throw Damage{reading.where(filter.id) + " does not lead on to the next one"};
  const Deed& deed = deed_of(reading, scan_.actions_of[filter.at]);
  reading.names.push_back(scan_.names[filter.at]);
  reading.stored.regular = reading.stored.regular && filter.plain &&
                           filter.group == reading.group.id && filter.nomatch == onward;
  if (detail_ == Detail::outline) return;
  Entry& entry = reading.list.entries.emplace_back();
  if (detail_ == Detail::whole) {
    FilterContents& contents = scan_.contents[filter.at];
    entry.name = std::move(contents.name);
    entry.criteria = std::move(contents.criteria);
  }
  entry.forwarding = deed.forwarding;
  entry.log = deed.log;
  entry.policer = deed.policer;
  reading.stored.ids.filters.push_back(filter.id);
}

// Entries share what they do, so it is read once.
const Deed& ModelReader::deed_of(Reading& reading, uint32_t action) {
  const auto known = reading.stored.deeds.find(action);
  if (known != reading.stored.deeds.end()) return known->second;
  return reading.stored.deeds.emplace(action, read_chain(reading, action)).first->second;
}

Deed ModelReader::read_chain(Reading& reading, uint32_t action) {
  const ActionNode* forward = scan_.actions.find(action);
  if (forward == nullptr) throw damage(action, "Action", "the action of " + reading.where());
  if (!is_forwarding(forward->type) || !forward->args.empty())
    throw Damage{"the action of " + reading.where(action) + " is none of an access list"};
  Deed deed;
  deed.forwarding = static_cast<ActionType>(forward->type);
  if (const PoliceNode* police = scan_.polices.find(forward->next)) {
    read_police(reading, *police, deed);
  } else if (forward->next != 0) {
    read_log(reading, forward->next, deed);
  }
  note(reading, forward_key(deed), forward->id, forward->group);
  return deed;
}

void ModelReader::read_police(Reading& reading, const PoliceNode& police, Deed& deed) {
  const uint32_t unit = police.committed.rate_units;
  const bool units = (unit == QIM_UNIT_BYTES || unit == QIM_UNIT_PACKETS) &&
                     police.committed.burst_units == unit && police.peak.rate_units == unit &&
                     police.peak.burst_units == unit;
  if (!police.plain || !units)
    throw Damage{"the policer of " + reading.where(police.id) + " is none of an access list"};
  const Policer policer{name_of(police.name, "the policer"),
                        static_cast<Policer::Unit>(unit),
                        police.committed.rate,
                        police.committed.burst,
                        police.peak.rate,
                        police.peak.burst};
  deed.policer = policer.name;
  if (police.next != 0) read_log(reading, police.next, deed);
  note(reading, {Part::police, policer.name, 0, 0, deed.log}, police.id, police.group);
  note(reading, {Part::policer_name, policer.name}, police.name,
       scan_.actions.find(police.name)->group);
  const auto [known, added] = reading.policers.emplace(policer.name, policer);
  if (!added && !(known->second == policer))
    throw Damage{"two policers are called " + policer.name};
}

void ModelReader::read_log(Reading& reading, uint32_t id, Deed& deed) {
  const ActionNode* log = scan_.actions.find(id);
  if (log == nullptr) throw damage(id, "Action", "what follows the action of " + reading.where());
  if (log->type != QIM_ACTION_LOG || log->next != 0 || !log->args.empty())
    throw Damage{"what follows the action of " + reading.where(id) + " is no logging"};
  deed.log = true;
  note(reading, {Part::log}, id, log->group);
}

// Places of policies that are no access lists, and of lists that could not be read, are passed over.
void ModelReader::read_place(const PlaceNode& destination) {
  const PlaceNode* instance = scan_.instances.find(destination.target);
  if (instance == nullptr) return;
  const auto list = by_group_.find(instance->target);
  if (list == by_group_.end()) return;
  StoredList& stored = model_.lists[list->second];
  const uint32_t group = instance->target;
  const qim_pinst_fields_t& fields = destination.fields;
  const qim_dest_if_t& at = fields.dest.intf;
  const bool plain = at.fmt == QIM_DEST_IF && at.vrf == 0 && at.vlan == 0 && at.vdc == 0;
  const uint32_t stage = fields.type & policy_type_stages;
  if (!plain || (fields.type & ~policy_type_stages) != policy_type_access_list || stage == 0)
    throw Damage{"its data-set name is none of an interface that a list is attached to"};

  Attachment attachment;
  attachment.list = model_.model.lists[list->second].name;
  attachment.interface = name_of(destination.name, "the interface");
  attachment.dir = fields.dir == QIM_DIR_IN ? uint8_t{QIM_DIR_IN} : dir_out;
  attachment.stage = stage;
  if (!attached_.emplace(list->second, attachment.interface, attachment.dir).second)
    throw Damage{attachment.list + " is attached to " + attachment_text(attachment) +
                 " by another node, too"};
  note(stored, {Part::instance, "", attachment.dir, stage}, instance->id,
       instance->group == group && instance->fields.type == fields.type &&
           instance->fields.dir == attachment.dir &&
           instance->fields.dest.gen.fmt == QIM_DEST_GEN &&
           instance->fields.dest.gen.v32a == group);
  note(stored, {Part::destination, attachment.interface, attachment.dir}, destination.id,
       destination.group == group && fields.dir == attachment.dir &&
           at.ifix == interface_index(attachment.interface));
  note(stored, {Part::interface_name, attachment.interface}, destination.name,
       scan_.actions.find(destination.name)->group == group);
  model_.model.attachments.push_back(std::move(attachment));
}

void ModelReader::sort_attachments() {
  std::sort(model_.model.attachments.begin(), model_.model.attachments.end(),
            [](const Attachment& a, const Attachment& b) {
              return std::tie(a.interface, a.dir, a.stage, a.list) <
                     std::tie(b.interface, b.dir, b.stage, b.list);
            });
}

}  // namespace

StoredModel read_stored_model(const ReadSession& session) {
  return read_stored_model(session.handle());
}

StoredModel read_stored_model(uint32_t session) {
  return ModelReader(session, Detail::whole).read();
}

StoredModel read_verified_model(ReadSession& session) {
  const Stored all = session.verify();
  Stored seen;
  StoredModel stored = ModelReader(session.handle(), Detail::whole, &seen).read();
  require_all_nodes(all, seen);
  return stored;
}

StoredModel read_outline(const ReadSession& session) {
  return ModelReader(session.handle(), Detail::outline).read();
}

StoredModel read_hollow_model(uint32_t session) {
  return ModelReader(session, Detail::hollow).read();
}

void fill_entries(uint32_t session, StoredModel& stored, size_t list, size_t from, size_t end) {
  for (size_t i = from; i < end; i++) {
    const OpenFilter filter(session, stored.lists[list].ids.filters[i]);
    read_contents(filter.get(), stored.model.lists[list].entries[i]);
  }
}

void each_stored_entry(const ReadSession& session, const StoredList& list,
                       const std::function<void(const Entry&)>& visit) {
  each_entry(session.handle(), list, visit);
}

const StoredList* find_stored(const StoredModel& stored, std::string_view name) {
  for (size_t i = 0; i < stored.lists.size(); i++) {
    if (stored.model.lists[i].name == name) return &stored.lists[i];
  }
  return nullptr;
}

std::string unreadable_text(const Unreadable& unreadable) {
  return "cannot be read as an access list: " + unreadable.why;
}

std::string unreadable_name(const Unreadable& unreadable) {
  return unreadable.name.empty() ? "node " + node_id_text(unreadable.node)
                                 : quoted(unreadable.name);
}

void no_list(const StoredModel& stored, const std::string& name, const std::string& attempt) {
  for (const Unreadable& list : stored.unreadable) {
    if (list.name != name || name.empty()) continue;
    throw DatabaseError(
        QIM_ERR_INTERNAL, attempt,
        "it " + unreadable_text(list) + "; 'qimctl delete acl --force' removes what is left of it");
  }
  throw DatabaseError(ROV_ERR_NO_ITEM, attempt,
                      "there is none of that name; 'qimctl acl' names those that are");
}

}  // namespace qimctl
