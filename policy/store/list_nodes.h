// Access lists as policy nodes.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "policy/base/policy.h"
#include "policy/model/model.h"

namespace qimctl {

// What a node of a list is there for, apart from the Filters.
enum class Part {
  group,
  fallback,        // the Def
  list_name,       // the Actions that name the list, an interface, a policer
  instance,        // a Pinst for each direction and stage
  destination,     // an Edest for each interface and direction
  interface_name,  //
  log,
  policer_name,
  police,  // for each policer, with and without logging behind it
  forward  // for each forwarding action, with what follows it
};

// Tells the parts of one list apart: what a part is there for does not change while its node does.
struct PartKey {
  Part part = Part::group;
  std::string text{};   // the interface or the policer
  uint32_t number = 0;  // the forwarding action, or the direction
  uint32_t stage = 0;
  bool log = false;

  // NOLINTNEXTLINE(modernize-use-nullptr): the compiler compares with 0, not this
  auto operator<=>(const PartKey&) const = default;
};

// The identifiers of a list's nodes.
struct ListIds {
  std::map<PartKey, uint32_t> parts;
  std::vector<uint32_t> filters;  // by entry

  uint32_t group() const { return parts.at({Part::group}); }
};

// Makes the nodes of one list: its Group, its Def, a Pinst for each direction and stage that it is
// applied in, an Edest for each interface there, the Actions and Polices that its entries use, the
// Actions that hold names, a Filter for each entry. docs/rfc8519.md describes them.
class ListNodes {
 public:
  // All live as long as this object. `attachments` are those of the list.
  ListNodes(const Model& model, const AccessList& list,
            const std::vector<const Attachment*>& attachments);

  // The parts in the order in which a new list's nodes are numbered; the Filters follow.
  const std::vector<PartKey>& parts() const { return order_; }
  // How many nodes there are.
  uint32_t count() const;
  // The identifiers of a new list, whose block begins there.
  ListIds number(uint32_t first) const;

  // A node; `ids` has all that the list needs.
  Node part(const PartKey& key, const ListIds& ids) const;
  Node filter(size_t index, const ListIds& ids) const;
  // The same into a node that was another filter's, but for the place.
  void fill_filter(size_t index, const ListIds& ids, Node& node) const;

 private:
  void add(const PartKey& key, const Place& place);
  void add_attachments(const std::vector<const Attachment*>& attachments);
  void add_actions();
  void fill(const PartKey& key, const ListIds& ids, Node& node) const;
  void fill_group(const ListIds& ids, Node& node) const;
  void fill_police(const PartKey& key, const ListIds& ids, Node& node) const;

  const Model& model_;
  const AccessList& list_;
  std::vector<PartKey> order_;
  std::map<PartKey, const Place*> places_;
  std::map<PartKey, uint32_t> stages_;  // of destinations
};

// The nodes of every list, list by list, in blocks of their own, as in a database that has none.
// Every attachment must name a list of the model. Places are those of the model.
std::vector<Node> make_nodes(const Model& model);

// The attachments of each list, in the order of the model.
std::map<std::string_view, std::vector<const Attachment*>> attachments_by_list(const Model& model);

// What an entry's forwarding action, and what its log or police part is called among parts.
PartKey forward_key(const Entry& entry);

}  // namespace qimctl
