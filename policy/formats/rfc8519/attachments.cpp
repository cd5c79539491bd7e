// Where access lists are applied: interfaces, directions, and the order of the lists there.
#include <array>
#include <set>
#include <utility>

#include "policy/formats/rfc8519/reader.h"

namespace qimctl::rfc8519 {

namespace {

// The list is attached all the same: it is the safer half of what was asked for.
void note_approximated(Notes& notes, const Object& object) {
  for (const Foreign& member : object.foreign()) {
    notes.finding(Fate::approximated, member.value,
                  "attached without " + in_quotes(member.name) +
                      ", which is of another model and has no counterpart");
  }
}

// Reads the lists of one interface in one direction.
class SetReader {
 public:
  SetReader(Reading& reading, std::string interface, Direction direction)
      : reading_(reading),
        notes_(reading.notes),
        interface_(std::move(interface)),
        direction_(direction) {}

  void read(const Value& value);

 private:
  void read_set(const Value& value);
  void read_statistics(const Value& list);
  void attach(const Value& leaf, const std::string& list);

  Reading& reading_;
  Notes& notes_;
  std::string interface_;
  Direction direction_;
  std::set<std::string> lists_;
  uint32_t stage_ = 0;
};

void SetReader::read(const Value& value) {
  const Object direction(notes_, value, in_quotes(direction_.name), {"acl-sets"});
  note_approximated(notes_, direction);
  const Value sets = direction.find("acl-sets");
  if (!sets) return;
  const Object object(notes_, sets, "\"acl-sets\"", {"acl-set"});
  note_approximated(notes_, object);
  for (const Value& set : elements(notes_, object.find("acl-set"))) read_set(set);
}

void SetReader::read_set(const Value& value) {
  const Object object(notes_, value, "an attached access list", {"name", "ace-statistics"});
  if (!value.json.is_object()) return;
  note_approximated(notes_, object);
  read_statistics(object.find("ace-statistics"));
  const Value leaf = object.require(notes_, "name");
  const auto name = leaf ? read_name(notes_, leaf, longest_name) : std::nullopt;
  if (name) attach(leaf, *name);
}

void SetReader::attach(const Value& leaf, const std::string& list) {
  if (!lists_.insert(list).second) {
    notes_.problem(leaf, "access list " + in_quotes(list) + " is attached twice to " +
                             in_quotes(direction_.name) + " of one interface; remove one");
    return;
  }
  if (++stage_ > policy_type_stages) {
    notes_.problem(leaf, "more than " + std::to_string(policy_type_stages) +
                             " access lists at one interface; merge some of them");
    return;
  }
  reading_.model.attachments.push_back(
      {list, interface_, direction_.dir, stage_, notes_.place(leaf)});
}

void SetReader::read_statistics(const Value& list) {
  bool any = false;
  for (const Value& value : elements(notes_, list)) {
    const Object object(notes_, value, "a counter", {"name", matched_packets, matched_octets});
    skip_foreign(notes_, object);
    any = read_counters(notes_, object) || any;
  }
  if (any) {
    notes_.finding(Fate::skipped, list, "counters left out, which are no policy");
  }
}

void read_interface(Reading& reading, const Value& value, std::set<std::string>& known) {
  Notes& notes = reading.notes;
  const Object object(notes, value, "an attachment point",
                      {"interface-id", directions[0].name, directions[1].name});
  if (!value.json.is_object()) return;
  note_approximated(notes, object);
  const Value leaf = object.require(notes, "interface-id");
  const auto name = leaf ? read_name(notes, leaf, std::string::npos) : std::nullopt;
  if (name) {
    reading.interfaces.index(notes, *name, leaf);
    if (!known.insert(*name).second) {
      notes.problem(leaf, "interface " + in_quotes(*name) + " comes twice; merge the two");
    }
  }
  for (const Direction& direction : directions) {
    const Value sets = object.find(direction.name);
    if (sets) SetReader(reading, name.value_or(""), direction).read(sets);
  }
}

}  // namespace

void read_attachment_points(Reading& reading, const Value& points) {
  const Object object(reading.notes, points, "\"attachment-points\"", {"interface"});
  note_approximated(reading.notes, object);
  std::set<std::string> known;
  for (const Value& interface : elements(reading.notes, object.find("interface"))) {
    read_interface(reading, interface, known);
  }
}

}  // namespace qimctl::rfc8519
