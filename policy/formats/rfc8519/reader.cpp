// The access lists and their entries.
#include "policy/formats/rfc8519/reader.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "policy/base/criteria.h"

namespace qimctl::rfc8519 {

namespace {

struct TypeName {
  std::string_view name;
  uint32_t bits;
};

constexpr std::array list_types{
    TypeName{"eth-acl-type", acl_type_eth},
    TypeName{"ipv4-acl-type", acl_type_ipv4},
    TypeName{"ipv6-acl-type", acl_type_ipv6},
    TypeName{"mixed-eth-ipv4-acl-type", acl_type_eth | acl_type_ipv4},
    TypeName{"mixed-eth-ipv6-acl-type", acl_type_eth | acl_type_ipv6},
    TypeName{"mixed-eth-ipv4-ipv6-acl-type", acl_type_eth | acl_type_ipv4 | acl_type_ipv6},
};

constexpr std::array forwarding_actions{ActionType::accept, ActionType::drop, ActionType::reject};

ListType read_list_type(Notes& notes, const Value& leaf) {
  if (!leaf) return {};
  const auto identity = read_identity(notes, leaf);
  if (!identity) return {acl_type_unknown, false, {}};
  if (identity->foreign) {
    notes.finding(Fate::approximated, leaf,
                  "access list of the type " + in_quotes(identity->name) +
                      ", which is of another model, carried without a type");
    return {acl_type_unknown, false, identity->name};
  }
  std::vector<std::string_view> names;
  for (const TypeName& type : list_types) {
    if (type.name == identity->name) return {type.bits, true, identity->name};
    names.push_back(type.name);
  }
  notes.problem(leaf, in_quotes(identity->name) + " is not a type; use " + alternatives(names));
  return {acl_type_unknown, false, {}};
}

void read_forwarding(Notes& notes, const Value& leaf, Entry& entry,
                     std::vector<Obstacle>& obstacles) {
  const auto identity = read_identity(notes, leaf);
  if (!identity) return;
  if (identity->foreign) {
    obstacles.push_back(
        {notes.place(leaf), "the action " + in_quotes(identity->name) + " of another model"});
    return;
  }
  std::array<std::string_view, forwarding_actions.size()> names;
  for (size_t i = 0; i < names.size(); i++) {
    names[i] = action_name(static_cast<uint32_t>(forwarding_actions[i]));
    if (names[i] != identity->name) continue;
    entry.forwarding = forwarding_actions[i];
    return;
  }
  notes.problem(leaf, in_quotes(identity->name) + " is not an action; use " + alternatives(names));
}

void read_logging(Notes& notes, const Value& leaf, Entry& entry, std::vector<Obstacle>& obstacles) {
  const auto identity = read_identity(notes, leaf);
  if (!identity) return;
  const std::string_view log = action_name(static_cast<uint32_t>(ActionType::log_syslog));
  if (identity->foreign) {
    obstacles.push_back(
        {notes.place(leaf), "the logging " + in_quotes(identity->name) + " of another model"});
  } else if (identity->name == log) {
    entry.log = true;
  } else if (identity->name != "log-none") {
    notes.problem(leaf, in_quotes(identity->name) + " is not a kind of logging; use " +
                            alternatives({log, "log-none"}));
  }
}

void read_actions(Notes& notes, const Value& actions, Entry& entry,
                  std::vector<Obstacle>& obstacles) {
  const Object object(notes, actions, "\"actions\"", {"forwarding", "logging"});
  note_obstacles(notes, object, obstacles);
  if (!actions.json.is_object()) return;
  const Value forwarding = object.require(notes, "forwarding");
  if (forwarding) read_forwarding(notes, forwarding, entry, obstacles);
  if (const Value logging = object.find("logging")) {
    read_logging(notes, logging, entry, obstacles);
  }
}

// Reads one access list.
class ListReader {
 public:
  explicit ListReader(Reading& reading) : reading_(reading), notes_(reading.notes) {}

  void read(const Value& value);

 private:
  void read_entries(const Value& aces);
  void read_entry(const Value& value);
  void read_entry_name(const Object& object, Entry& entry);
  void read_statistics(const Value& value);
  void sum_up();

  Reading& reading_;
  Notes& notes_;
  Value value_;
  AccessList list_;
  ListType type_;
  std::set<std::string> names_;
  size_t entries_ = 0;  // that the input has
  size_t counted_ = 0;  // that came with counters,
  Value counters_;      // of which these are the first
};

void ListReader::read(const Value& value) {
  const Object object(notes_, value, "an access list", {"name", "type", "aces"});
  if (!value.json.is_object()) return;
  value_ = value;
  list_.place = notes_.place(value);
  const Value name_leaf = object.require(notes_, "name");
  const auto name = name_leaf ? read_name(notes_, name_leaf, longest_name) : std::nullopt;
  list_.name = name.value_or("");
  if (name && !reading_.list_names.insert(*name).second) {
    notes_.problem(name_leaf,
                   "access list " + in_quotes(*name) + " comes twice; rename or remove one");
  }
  type_ = read_list_type(notes_, object.find("type"));
  list_.type = type_.bits;
  skip_foreign(notes_, object);
  if (const Value aces = object.find("aces")) read_entries(aces);
  sum_up();
  reading_.model.lists.push_back(std::move(list_));
}

void ListReader::read_entries(const Value& aces) {
  const Object object(notes_, aces, "\"aces\"", {"ace"});
  skip_foreign(notes_, object);
  const std::vector<Value> entries = elements(notes_, object.find("ace"));
  list_.entries.reserve(entries.size());
  for (const Value& entry : entries) read_entry(entry);
}

void ListReader::read_entry(const Value& value) {
  entries_++;
  const Object object(notes_, value, "an entry", {"name", "matches", "actions", "statistics"});
  if (!value.json.is_object()) return;
  Entry entry;
  std::vector<Obstacle> obstacles;
  entry.place = notes_.place(value);
  read_entry_name(object, entry);
  note_obstacles(notes_, object, obstacles);
  if (const Value matches = object.find("matches")) {
    entry.criteria = read_matches(reading_, matches, type_, obstacles);
  }
  const Value actions = object.require(notes_, "actions");
  if (actions) read_actions(notes_, actions, entry, obstacles);
  if (const Value statistics = object.find("statistics")) read_statistics(statistics);
  if (!obstacles.empty()) return note_left_out(notes_, entry, obstacles);
  list_.entries.push_back(std::move(entry));
}

void ListReader::read_entry_name(const Object& object, Entry& entry) {
  const Value leaf = object.require(notes_, "name");
  const auto name = leaf ? read_name(notes_, leaf, longest_name) : std::nullopt;
  if (!name) return;
  entry.name = *name;
  if (!names_.insert(*name).second) {
    notes_.problem(leaf, "entry " + in_quotes(*name) +
                             " comes twice in its access list; rename or remove one");
  }
}

void ListReader::read_statistics(const Value& value) {
  const Object object(notes_, value, "\"statistics\"", {matched_packets, matched_octets});
  skip_foreign(notes_, object);
  if (read_counters(notes_, object) && counted_++ == 0) counters_ = value;
}

void ListReader::sum_up() {
  const std::string name = "access list " + in_quotes(list_.name);
  if (counted_ != 0) {
    notes_.finding(Fate::skipped, counters_,
                   name + ": counters of " + std::to_string(counted_) +
                       " entries left out, which are no policy");
  }
  notes_.finding(Fate::accepted, value_,
                 name + ": " + std::to_string(list_.entries.size()) + " of " +
                     std::to_string(entries_) + " entries");
  if (list_.entries.empty() && entries_ != 0)
    reading_.emptied.push_back({list_.name, entries_, list_.place});
}

void check_attachments(Reading& reading) {
  for (const Attachment& attachment : reading.model.attachments) {
    if (reading.list_names.contains(attachment.list)) continue;
    reading.notes.problem(attachment.place, "there is no access list " +
                                                in_quotes(attachment.list) +
                                                "; define it or remove it from the interface");
  }
}

}  // namespace

void read_acls(Reading& reading, const Value& acls) {
  Notes& notes = reading.notes;
  const Object object(notes, acls, "\"acls\"", {"acl", "attachment-points"});
  skip_foreign(notes, object);
  for (const Value& list : elements(notes, object.find("acl"))) ListReader(reading).read(list);
  if (const Value points = object.find("attachment-points")) {
    read_attachment_points(reading, points);
  }
  check_attachments(reading);
}

std::string list_type_name(uint32_t bits) {
  for (const TypeName& type : list_types)
    if (type.bits == bits) return std::string(type.name);
  return "";
}

void skip_foreign(Notes& notes, const Object& object) {
  for (const Foreign& member : object.foreign()) {
    notes.finding(Fate::skipped, member.value,
                  in_quotes(member.name) + " is of another model and is left out");
  }
}

// RFC 7951 section 6.1: 64-bit numbers are strings.
bool read_counters(Notes& notes, const Object& object) {
  bool any = false;
  for (const std::string_view name : {matched_packets, matched_octets}) {
    const Value leaf = object.find(name);
    if (!leaf) continue;
    any = true;
    const auto text = read_string(notes, leaf);
    if (!text) continue;
    const bool digits =
        !text->empty() && text->size() <= 20 &&
        std::all_of(text->begin(), text->end(), [](char c) { return c >= '0' && c <= '9'; });
    if (!digits) notes.problem(leaf, in_quotes(*text) + " is not a count in digits");
  }
  return any;
}

}  // namespace qimctl::rfc8519
