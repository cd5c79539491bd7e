// States as bytes: writing, reading, cutting.
#include "fleet/state/state.h"

#include <algorithm>
#include <utility>

namespace qim::fleet {

namespace {

constexpr std::string_view state_magic = "QSS1";
constexpr size_t head_bytes = 8;
constexpr size_t dset_bytes = 21;
constexpr uint32_t most_tlv = 16U << 20;
constexpr uint32_t most_links = 65536;

constexpr size_t least_piece = most_piece / 8;
constexpr uint32_t cuts = 256;  // one node of so many ends a piece that is long enough

NodeView read_node(WireReader& in, uint32_t after) {
  NodeView node;
  node.id = in.u32();
  if (node.id <= after) in.refuse("a node's identifier does not follow the one before");
  node.flags = in.u32();
  node.dset = read_dset(in);
  node.tlv = read_tlv(in);
  node.links = read_links(in);
  return node;
}

// The finaliser of MurmurHash3 (Appleby): neighbouring identifiers differ in it everywhere.
uint32_t mixed(uint32_t hash) {
  hash ^= hash >> 16;
  hash *= 0x85ebca6bU;
  hash ^= hash >> 13;
  hash *= 0xc2b2ae35U;
  return hash ^ hash >> 16;
}

}  // namespace

NodeLink LinkList::at(size_t n) const {
  const size_t at = n * link_bytes;
  return {static_cast<uint16_t>(load_u16(bytes_, at)),
          static_cast<uint16_t>(load_u16(bytes_, at + 2)), load_u32(bytes_, at + 4),
          load_u32(bytes_, at + 8), load_u32(bytes_, at + 12)};
}

void append_link(WireWriter& out, const NodeLink& link) {
  out.u16(link.field);
  out.u16(link.tag);
  out.u32(link.node);
  out.u32(link.val);
  out.u32(link.node2);
}

void append_node(WireWriter& out, const NodeView& node) {
  out.u32(node.id);
  out.u32(node.flags);
  out.u8(static_cast<uint32_t>(node.dset.size()));
  out.bytes(node.dset);
  out.sized(node.tlv);
  out.u32(static_cast<uint32_t>(node.links.size()));
  out.bytes(node.links.bytes());
}

std::string_view read_dset(WireReader& in) {
  const uint32_t length = in.u8();
  if (length != 0 && length != dset_bytes) in.refuse("a data-set name has 21 bytes or none");
  return in.bytes(length);
}

std::string_view read_tlv(WireReader& in) {
  const uint32_t length = in.u32();
  if (length > most_tlv) in.refuse("a node's TLV data are longer than 16 MiB");
  return in.bytes(length);
}

LinkList read_links(WireReader& in) {
  const uint32_t count = in.u32();
  if (count > most_links) in.refuse("a node has more than 65536 links");
  const LinkList links(in.bytes(count * LinkList::link_bytes));
  for (size_t n = 0; n < links.size(); n++) {
    const NodeLink link = links.at(n);
    if (n != 0 && link.field <= links.at(n - 1).field) in.refuse("links are not in order");
    if (link.node == 0) in.refuse("a link leads to node 0");
  }
  return links;
}

State::State() : State(StateBuilder().finish()) {}

State State::parse(std::string bytes) {
  std::vector<size_t> nodes;
  WireReader in(bytes, "snapshot");
  if (in.bytes(state_magic.size()) != state_magic) in.refuse("it is no snapshot of this version");
  const uint32_t count = in.u32();
  uint32_t after = 0;
  for (uint32_t n = 0; n < count; n++) {
    nodes.push_back(in.at());
    after = read_node(in, after).id;
  }
  if (!in.done()) in.refuse("more follows than its nodes");
  return {std::move(bytes), std::move(nodes)};
}

NodeView State::at(size_t n) const {
  WireReader in(records(n, n + 1), "snapshot");
  NodeView node;
  node.id = in.u32();
  node.flags = in.u32();
  node.dset = in.bytes(in.u8());
  node.tlv = in.bytes(in.u32());
  node.links = LinkList(in.bytes(in.u32() * LinkList::link_bytes));
  return node;
}

std::string_view State::records(size_t from, size_t to) const {
  const auto place = [this](size_t n) { return n < nodes_.size() ? nodes_[n] : bytes_.size(); };
  return std::string_view(bytes_).substr(place(from), place(to) - place(from));
}

StateBuilder::StateBuilder() {
  out_.bytes(state_magic);
  out_.u32(0);
}

void StateBuilder::add(const NodeView& node) {
  nodes_.push_back(out_.size());
  append_node(out_, node);
}

State StateBuilder::finish() {
  out_.patch_u32(state_magic.size(), static_cast<uint32_t>(nodes_.size()));
  return {out_.take(), std::move(nodes_)};
}

std::vector<std::string_view> cut_pieces(const State& state) {
  const std::string_view bytes = state.bytes();
  std::vector<std::string_view> chunks;
  size_t begin = 0;
  const auto cut = [&](size_t end) {
    // A node may be longer than a piece.
    while (begin < end) {
      chunks.push_back(bytes.substr(begin, std::min(most_piece, end - begin)));
      begin += chunks.back().size();
    }
  };
  size_t end = head_bytes;
  for (size_t n = 0; n < state.size(); n++) {
    const size_t next = end + state.records(n, n + 1).size();
    if (next - begin > most_piece) cut(end);
    end = next;
    if (end - begin >= least_piece && mixed(state.at(n).id) % cuts == 0) cut(end);
  }
  cut(end);
  return chunks;
}

}  // namespace qim::fleet
