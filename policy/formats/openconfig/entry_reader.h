// Reading one entry of an access list.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "policy/formats/openconfig/codes.h"
#include "policy/formats/parts/criteria.h"
#include "policy/formats/parts/interfaces.h"
#include "policy/formats/parts/notes.h"

namespace qimctl::openconfig {

using formats::Notes;
using formats::Value;

// A member by its simple name. `module` is "" for one of the model itself.
struct Member {
  std::string module;
  std::string name;
  Value value;
  std::string spelled() const { return module.empty() ? name : module + ":" + name; }
};
// None, with a problem reported, when the value is no object. Annotations (RFC 7952) and, where there
// is configuration, state are left out.
std::vector<Member> members_of(Notes& notes, const Value& value);
// The leaves of a node are in a container "config" of it, those of a node that is only observed in
// "state".
std::vector<Member> leaves_of(Notes& notes, const Value& node);
// A leaf, which as a key stands beside them, too; nothing when it is in neither place.
Value leaf_of(const Value& node, std::string_view name);

// Without the module's prefix, which values may have, too. Anything but a text is spelled as it is.
std::string word_of(const Value& leaf);

// What one entry reads as. It is several entries when there are choices.
struct EntryReading {
  Entry entry;
  std::optional<uint32_t> sequence;
  std::string description;
  std::vector<formats::Choice> choices;
  std::vector<formats::Obstacle> obstacles;
};

EntryReading read_entry(Notes& notes, formats::Interfaces& interfaces, const Value& value,
                        const SetType& type);

}  // namespace qimctl::openconfig
