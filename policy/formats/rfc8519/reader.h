// The model's tree, read into a Model. Each function reads one level of it.
#pragma once

#include <array>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "policy/formats/rfc8519/input.h"
#include "policy/model/model.h"

namespace qimctl::rfc8519 {

// What a reader works with and adds to.
struct Reading {
  Notes notes;
  Interfaces interfaces;
  std::set<std::string> list_names;
  Model model;
  std::vector<EmptiedList> emptied;
};

// Everything under "acls". What is wrong is in reading.notes afterwards.
void read_acls(Reading& reading, const Value& acls);

// Members of other modules, left out of something that is carried otherwise.
void skip_foreign(Notes& notes, const Object& object);

// The type of the access list that an entry is in. `checked` is false when it says nothing about
// the headers that its entries may match on: it is of another module, or in error.
struct ListType {
  uint32_t bits = acl_type_unknown;
  bool checked = true;
  std::string name;  // "" when the list has none
};

// The matches of an entry. A match that no criterion can carry is added to `obstacles`.
std::vector<Criterion> read_matches(Reading& reading, const Value& matches, const ListType& type,
                                    std::vector<Obstacle>& obstacles);

// Members of other modules in an entry itself or its actions are obstacles: they may narrow what it
// matches or change what it does.
void note_obstacles(const Notes& notes, const Object& object, std::vector<Obstacle>& obstacles);

// Where access lists are applied.
void read_attachment_points(Reading& reading, const Value& points);

// The directions of the access lists in a device profile, and the interface that the device is behind,
// "" = it is not known.
void read_device_profile(Reading& reading, const Value& profile, const std::string& interface);

// Counters that the source kept, which are no policy. Checks them; true when there are any.
bool read_counters(Notes& notes, const Object& object);

// The names of the counters, for the members that an object may have.
inline constexpr std::string_view matched_packets = "matched-packets";
inline constexpr std::string_view matched_octets = "matched-octets";

// The identity of a list's type, "" when there is none of these headers.
std::string list_type_name(uint32_t bits);

struct Direction {
  std::string_view name;
  uint8_t dir;
};
inline constexpr std::array directions{Direction{"ingress", QIM_DIR_IN},
                                       Direction{"egress", dir_out}};

// Longest name of a list or an entry, in characters.
inline constexpr size_t longest_name = 64;

}  // namespace qimctl::rfc8519
