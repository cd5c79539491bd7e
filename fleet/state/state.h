// The whole policy content of a database as bytes that are the same on every machine.
//
//   state    "QSS1"  nodes:4  node ...               by ascending identifier
//   node     id:4 flags:4 name:1 name bytes (21 or none)
//            length:4 TLV data  links:4 link ...     by ascending field code
//   link     field:2 tag:2 node:4 value:4 second node:4
//
// Numbers are in network order. What clients keep on nodes, and marks, are no part of it: they are
// the device's own.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fleet/state/wire.h"

namespace qim::fleet {

struct NodeLink {
  uint16_t field = 0;
  uint16_t tag = 0;
  uint32_t node = 0;
  uint32_t val = 0;
  uint32_t node2 = 0;

  bool operator==(const NodeLink&) const = default;
};

// Links as they lie in bytes.
class LinkList {
 public:
  static constexpr size_t link_bytes = 16;

  LinkList() = default;
  explicit LinkList(std::string_view bytes) : bytes_(bytes) {}
  size_t size() const { return bytes_.size() / link_bytes; }
  NodeLink at(size_t n) const;
  std::string_view bytes() const { return bytes_; }

 private:
  std::string_view bytes_;
};
void append_link(WireWriter& out, const NodeLink& link);

// A node; what it shows lies somewhere else.
struct NodeView {
  uint32_t id = 0;
  uint32_t flags = 0;
  std::string_view dset;  // data-set name: 21 bytes or none
  std::string_view tlv;
  LinkList links;

  bool same_contents(const NodeView& other) const {
    return flags == other.flags && dset == other.dset && tlv == other.tlv;
  }
};

class State {
 public:
  State();  // of no nodes
  // Throws ForgedError for anything that no StateBuilder would have made.
  static State parse(std::string bytes);

  const std::string& bytes() const { return bytes_; }
  size_t size() const { return nodes_.size(); }
  NodeView at(size_t n) const;
  // The bytes of nodes [from, to).
  std::string_view records(size_t from, size_t to) const;
  bool operator==(const State& other) const { return bytes_ == other.bytes_; }

 private:
  friend class StateBuilder;
  State(std::string bytes, std::vector<size_t> nodes)
      : bytes_(std::move(bytes)), nodes_(std::move(nodes)) {}

  std::string bytes_;
  std::vector<size_t> nodes_;  // where each begins
};

// Adds nodes in ascending order of identifiers.
class StateBuilder {
 public:
  StateBuilder();
  void add(const NodeView& node);
  // Nothing is added afterwards.
  State finish();

 private:
  WireWriter out_;
  std::vector<size_t> nodes_;
};

void append_node(WireWriter& out, const NodeView& node);

// Parts of a node that differences have, too.
std::string_view read_dset(WireReader& in);
std::string_view read_tlv(WireReader& in);
LinkList read_links(WireReader& in);

// A state's bytes cut into pieces of at most `most_piece` bytes. Where they are cut depends on the
// nodes around, so that states that differ in few nodes have most pieces in common.
constexpr size_t most_piece = 512 * size_t{1024};
std::vector<std::string_view> cut_pieces(const State& state);

}  // namespace qim::fleet
