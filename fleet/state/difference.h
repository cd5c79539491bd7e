// What makes one state of another, in few bytes.
//
//   difference   "QSD1"  changes:4  change ...      by ascending identifier
//   change       id:4 form:1, then as the form says
//     removed    nothing
//     added      flags:4 name TLV data links        as in a state
//     changed    flags:4 name TLV data              if its contents change
//                fields:4 field:2 ...               links that go, ascending; if links change
//                links:4 link ...                   links that come or change, ascending
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "fleet/state/state.h"

namespace qim::fleet {

// Field codes as they lie in bytes.
class FieldList {
 public:
  FieldList() = default;
  explicit FieldList(std::string_view bytes) : bytes_(bytes) {}
  size_t size() const { return bytes_.size() / 2; }
  uint16_t at(size_t n) const { return static_cast<uint16_t>(load_u16(bytes_, 2 * n)); }

 private:
  std::string_view bytes_;
};

enum class NodeFate { removed, added, changed };

struct NodeChange {
  NodeFate fate = NodeFate::changed;
  bool contents = false;  // flags, name and TLV data of a changed node are given
  NodeView node;          // its links: those that come or change
  FieldList gone;         // links of a changed node that go
};

// What makes `from` into `to`.
std::string difference(const State& from, const State& to);

// What bytes say; it shows parts of them. Throws ForgedError for anything that `difference` would not
// have made.
std::vector<NodeChange> parse_difference(std::string_view bytes);

// The state that such changes make. Throws ForgedError when `from` is not one that they can be made
// to.
State changed(const State& from, const std::vector<NodeChange>& changes);

}  // namespace qim::fleet
