// What the programmable platform's database holds. A test says it in a line or two:
//
//   fake::node(7).filter({.match = 1, .criteria = {{5, {1, 2, 3}}}}).link(0x081, 9);
//   fake::node(8).pinst().dset_name(name).referrers({11, 12});
//   fake::node(9).data_set().dset_name(name);
#ifndef TESTS_SUPPORT_FAKE_NODES_H
#define TESTS_SUPPORT_FAKE_NODES_H

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "rov_types.h"
#include "tlv.h"

namespace fake {

using Bytes = std::vector<std::uint8_t>;

// Contents of a node's body, field by field.
struct Criterion {
  std::uint32_t type = 0;
  Bytes args = {};
};
struct Filter {
  std::uint32_t flags = 0;
  std::uint32_t match = 0;
  std::uint32_t nomatch = 0;
  std::vector<Criterion> criteria = {};
};
struct Hfilter {
  std::uint32_t type = 0;
  std::uint32_t true_act = 0;
  std::uint32_t false_act = 0;
  std::uint32_t nomatch_act = 0;
};
struct Action {
  std::uint32_t type = 0;
  Bytes args = {};
};
struct Haction {
  std::uint32_t type = 0;
};
struct Bandwidth {
  std::uint32_t rate_units = 0;
  std::uint64_t rate = 0;
  std::uint32_t burst_units = 0;
  std::uint64_t burst = 0;
};
struct Police {
  Bandwidth committed = {};
  Bandwidth peak = {};
};
struct Group {
  std::uint32_t type = 0;
  std::uint32_t subtype = 0;
};
struct Def {
  std::uint32_t type = 0;
  Bytes args = {};
};

// A link of a node.
struct Link {
  std::uint32_t node = 0;
  std::uint32_t node2 = 0;
  std::uint32_t val = 0;
  std::uint16_t tag = 0;
};

class Node {
 public:
  explicit Node(std::uint32_t id) : id_(id) {}

  // The header fields that travel in the TLV.
  Node& group(std::uint32_t v);
  Node& flags(std::uint32_t v);

  // The body; the node's type follows from it. A node without one has a TLV without body.
  Node& filter(const Filter& v);
  Node& action(const Action& v);
  Node& ifelse();
  Node& hfilter(const Hfilter& v);
  Node& haction(const Haction& v);
  Node& police(const Police& v);
  Node& group_body(const Group& v);
  Node& pinst();
  Node& def(const Def& v);
  Node& edest();
  // A body of any type and contents, known or not; and the whole TLV as it stands.
  Node& body(std::uint32_t type, const Tlv& contents);
  Node& tlv(const Bytes& bytes);

  Node& link(std::uint16_t field, std::uint32_t to);
  Node& link(std::uint16_t field, const Link& v);
  Node& referrers(const std::vector<std::uint32_t>& v);
  // The flag that marks a data-set node, and the second data part.
  Node& data_set();
  Node& dset_name(const Bytes& v);
  Node& priv(const Bytes& v);
  Node& priv_ptr(std::uintptr_t v);
  // Counts that the parameters carry in place of the true ones.
  Node& links_total(std::uint32_t v);
  Node& refs(std::uint32_t v);

  std::uint32_t id() const { return id_; }
  const std::map<std::uint32_t, rov_link_t>& links() const { return links_; }
  const std::vector<std::uint32_t>& referring() const { return referrers_; }
  const Bytes& name() const { return dset_; }
  const Bytes& private_data() const { return priv_; }
  bool is_data_set() const { return (db_flags_ & ROV_NODE_DSET) != 0; }
  Bytes tlv_bytes() const;
  // The database's parameter record; what the library must not read is garbage.
  rov_node_parms_t parms() const;

 private:
  std::uint32_t id_;
  std::uint32_t group_ = 0;
  std::uint32_t flags_ = 0;
  std::uint32_t db_flags_ = 0;
  std::optional<Tlv> body_;
  std::optional<Bytes> raw_;
  std::map<std::uint32_t, rov_link_t> links_;
  std::vector<std::uint32_t> referrers_;
  std::optional<std::uint32_t> links_total_;
  std::optional<std::uint32_t> refs_;
  Bytes dset_;
  Bytes priv_;
  std::uintptr_t priv_ptr_ = 0;
};

// The node of that identifier, made on first use.
Node& node(std::uint32_t id);
// Whether there is one.
const Node* find_node(std::uint32_t id);
void remove_node(std::uint32_t id);

}  // namespace fake

#endif
