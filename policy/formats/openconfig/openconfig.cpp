// Reading access lists of the OpenConfig model, and where they are attached.
#include "policy/formats/openconfig/openconfig.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "policy/base/json_text.h"
#include "policy/formats/openconfig/entry_reader.h"
#include "policy/formats/parts/attachments.h"
#include "policy/formats/parts/list_builder.h"

namespace qimctl {

namespace openconfig {

namespace {

using formats::elements;
using formats::in_quotes;
using formats::longest_name;

constexpr std::string_view short_root = "acl";

class Reader {
 public:
  explicit Reader(const std::string& file) : notes_(file) {}

  ModelInput read(JsonView document);

 private:
  void read_acl(const Value& acl);
  void read_list(const Value& value);
  void read_members(const Value& value, formats::ListBuilder& builder, const SetType& type);
  void read_entries(const Value& value, formats::ListBuilder& builder, const SetType& type);
  void read_interface(const Value& value);
  void read_attached(const Value& sets, const std::string& interface, uint8_t dir);
  void skip(const Member& member) {
    notes_.finding(Fate::skipped, member.value,
                   in_quotes(member.spelled()) + " is not known here and is left out");
  }

  Notes notes_;
  formats::Interfaces interfaces_;
  formats::Attacher attacher_;
  ModelInput input_;
  std::set<std::string> names_;  // of lists
};

ModelInput Reader::read(JsonView document) {
  std::vector<std::pair<std::string_view, JsonView>> members;
  if (document.is_object()) members = document.members();
  const auto is_root = [](const auto& member) {
    return member.first == openconfig_root || member.first == short_root;
  };
  const auto root = std::find_if(members.begin(), members.end(), is_root);
  if (document.is_array()) {
    for (const Value& list : elements(notes_, {document})) read_list(list);
  } else if (root != members.end()) {
    read_acl({root->second});
    for (const auto& [name, json] : members)
      if (name != root->first && name != "$schema") skip({"", std::string(name), {json}});
  } else {
    notes_.problem(Value{document}, "has no access lists; they are in a member " +
                                        in_quotes(openconfig_root) +
                                        ", or all of the file is an array of them");
  }
  if (notes_.has_problems()) throw InputError(notes_.take_problems());
  input_.findings = std::move(notes_.findings());
  return std::move(input_);
}

// The lists first, for interfaces name them.
void Reader::read_acl(const Value& acl) {
  const std::vector<Member> members = members_of(notes_, acl);
  for (const Member& member : members) {
    if (member.spelled() == "acl-sets") {
      for (const Member& sets : members_of(notes_, member.value)) {
        if (sets.spelled() != "acl-set") {
          skip(sets);
          continue;
        }
        for (const Value& list : elements(notes_, sets.value)) read_list(list);
      }
    } else if (member.spelled() != "interfaces" && member.spelled() != "config") {
      skip(member);
    }
  }
  for (const Member& member : members) {
    if (member.spelled() != "interfaces") continue;
    for (const Member& interface : members_of(notes_, member.value)) {
      if (interface.spelled() != "interface") {
        skip(interface);
        continue;
      }
      for (const Value& one : elements(notes_, interface.value)) read_interface(one);
    }
  }
}

void Reader::read_list(const Value& value) {
  const Value name_leaf = leaf_of(value, "name");
  const Value type_leaf = leaf_of(value, "type");
  if (!name_leaf || !type_leaf)
    return notes_.problem(value, "an access list needs \"name\" and \"type\"");
  const auto name = read_name(notes_, name_leaf, longest_name);
  std::vector<std::string_view> type_names;
  for (const SetType& type : set_types) {
    type_names.push_back(type.name);
    if (!name || word_of(type_leaf) != type.name) continue;
    if (!names_.insert(*name).second)
      return notes_.problem(name_leaf, "access list " + in_quotes(*name) +
                                           " comes twice, of one type or of two; rename or remove "
                                           "one");
    formats::ListBuilder builder(notes_,
                                 {*name, type.bits, {}, ActionType::drop, notes_.place(value)});
    read_members(value, builder, type);
    builder.finish(input_);
    return;
  }
  if (name)
    notes_.problem(type_leaf, in_quotes(word_of(type_leaf)) + " is not a type; use " +
                                  formats::alternatives(type_names));
}

void Reader::read_members(const Value& value, formats::ListBuilder& builder, const SetType& type) {
  for (const Member& member : members_of(notes_, value)) {
    if (member.spelled() == "acl-entries") {
      for (const Member& entries : members_of(notes_, member.value))
        entries.spelled() == "acl-entry" ? read_entries(entries.value, builder, type)
                                         : skip(entries);
    } else if (member.spelled() != "name" && member.spelled() != "type" &&
               member.spelled() != "config") {
      skip(member);
    }
  }
  for (const Member& leaf : leaves_of(notes_, value))
    if (leaf.spelled() != "name" && leaf.spelled() != "type" && leaf.spelled() != "description")
      skip(leaf);
}

// In the order of their numbers. Entries are called by what describes them where that is a name: told
// from all others.
void Reader::read_entries(const Value& value, formats::ListBuilder& builder, const SetType& type) {
  std::map<uint32_t, EntryReading> readings;
  std::map<std::string, size_t> names;
  for (const Value& one : elements(notes_, value)) {
    EntryReading reading = read_entry(notes_, interfaces_, one, type);
    if (!reading.sequence) continue;
    if (!formats::name_obstacle(reading.description, longest_name).empty())
      reading.description.clear();
    names[std::to_string(*reading.sequence)]++;
    if (reading.description != std::to_string(*reading.sequence)) names[reading.description]++;
    const Place place = reading.entry.place;
    if (!readings.emplace(*reading.sequence, std::move(reading)).second)
      notes_.problem(place, "the sequence-id comes twice in its access list; change one");
  }
  for (auto& [sequence, reading] : readings) {
    const bool named = !reading.description.empty() && names[reading.description] == 1;
    reading.entry.name = named ? reading.description : std::to_string(sequence);
    builder.add(reading.entry, reading.choices, reading.obstacles);
  }
}

void Reader::read_interface(const Value& value) {
  const Value id = leaf_of(value, "id");
  if (!id) return notes_.problem(value, "an interface needs an \"id\", which is missing");
  const auto name = read_name(notes_, id, std::string::npos);
  if (!name) return;
  interfaces_.index(notes_, *name, id);
  for (const Member& member : members_of(notes_, value)) {
    if (member.spelled() == "ingress-acl-sets" || member.spelled() == "egress-acl-sets") {
      read_attached(member.value, *name,
                    member.name == "egress-acl-sets" ? dir_out : uint8_t{QIM_DIR_IN});
    } else if (member.spelled() != "id" && member.spelled() != "config" &&
               member.spelled() != "interface-ref") {
      skip(member);
    }
  }
}

void Reader::read_attached(const Value& sets, const std::string& interface, uint8_t dir) {
  for (const Member& member : members_of(notes_, sets)) {
    if (member.spelled() != "ingress-acl-set" && member.spelled() != "egress-acl-set") {
      skip(member);
      continue;
    }
    for (const Value& one : elements(notes_, member.value)) {
      const Value leaf = leaf_of(one, "set-name");
      if (!leaf) {
        notes_.problem(one, "an attached access list needs a \"set-name\", which is missing");
        continue;
      }
      const auto list = read_name(notes_, leaf, longest_name);
      if (!list) continue;
      if (names_.contains(*list)) {
        attacher_.attach(notes_, input_.model, {*list, interface, dir, 1, notes_.place(leaf)});
      } else {
        notes_.problem(leaf, "there is no access list " + in_quotes(*list) +
                                 "; define it or remove it from the interface");
      }
    }
  }
}

}  // namespace

}  // namespace openconfig

ModelInput read_openconfig(const std::string& text, const std::string& file) {
  const JsonDocument document = parse_json(text, file);
  return openconfig::Reader(file).read(document.view());
}

}  // namespace qimctl
