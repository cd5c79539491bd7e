// Keys and values of the store.
//
//   table       key                              value
//   ---------   ------------------------------   ------------------------------------------------
//   nodes       node:4                           crc:4 refs:4 links:2 form:2
//                                                flags:4 clients:4 (if kMarked)
//                                                name:21 (if kNamed)  TLV  links x link
//   referrers   node:4 lowest:4                  crc:4 count:2 more:2
//                                                count x referrer:4  count x field:2
//   data sets   named:1 name:21 (if any) node:4  crc:4
//   private     node:4 client:4                  crc:4 bytes
//   clients     client:4 process:4 session:4     crc:4 stamp:8 start:8 bytes
//               key:4
//   changes     revision:8 number:4              crc:4 kind:4 field:4 node:4 user:8 dset_len:4
//                                                dset_len x name
//               0:12                             crc:4 count:4 pruned:8
//   users       user:8                           crc:4 uid:4 group:4 time:8 name:36
//
//   link        field:2 tag:2 node:4 val:4 node2:4 (if kPairs)
//
// Numbers in keys are in network order, so that the order of the bytes is the order of the numbers;
// in values they are in host order and at any alignment. A node is its 32-bit number, the first
// word of the database's 16-byte identifier; 0 is none. `crc` is the checksum over the key and the
// value (store.h).
//
// nodes: everything of one node together, links in field order. `refs` is the number of nodes that
// refer to it, `clients` that of clients with private data on it, so that most nodes need no look
// elsewhere. `form` says what most nodes can do without: it is there only where something needs it.
// The TLV data take what is left of the value.
//
// referrers: the nodes that refer to a node, in ascending order, each with the lowest field code of
// those of its links that lead there. They are kept in chunks of at most kChunkMax; a chunk holds
// those that are not below `lowest` and below the next chunk's `lowest`. The first has `lowest` 0
// and is there whenever there is any; its `more` is 1 when others follow. A node that does not
// exist may have referrers.
//
// data sets: the nodes that are data sets, by name, then number; those without name come first.
// clients: what a client keeps on the database (process and session 0) or on one of its sessions.
//   `start` is when that process started, so that a later one of its number is not taken for it;
//   `stamp` is the commit before the one that wrote it. Marks lie here, too, under an owner that no
//   client has: client 0 and process 0, and their names, filled up with zeros, as session and key.
// changes: what each commit changed, in its order, the newest of them. The record under twelve
//   zeros has their count and the newest commit whose changes are not all there any more.
// users: who commits; a user is a client's identity and a process.
#pragma once

#include "database/base/bytes.h"
#include "database/base/crc32c.h"
#include "rov_types.h"

namespace rov {

constexpr uint32_t kNameBytes = 21;
constexpr uint32_t kMaxTlv = 16U << 20;     // bytes of a node's TLV data
constexpr uint32_t kMaxPrivate = 1U << 20;  // bytes of one client's private data on one node
constexpr uint32_t kMaxClients = 0xffff;    // clients with private data on one node

// ---- Identifiers --------------------------------------------------------------------------------

// The node's number; 0 when the identifier can name no node.
[[nodiscard]] inline uint32_t number_of(const rov_node_id_t& id) {
  if ((id.word[1] | id.word[2] | id.word[3]) != 0) return 0;
  return load_be32(id.word);
}
inline bool is_zero(const rov_node_id_t& id) {
  return (id.word[0] | id.word[1] | id.word[2] | id.word[3]) == 0;
}
inline rov_node_id_t id_of(uint32_t number) {
  rov_node_id_t id = {};
  write_be32(id.word, number);
  return id;
}

// ---- Keys ---------------------------------------------------------------------------------------

// A key being built.
struct Key {
  uint8_t bytes[32];
  uint32_t len;

  operator Bytes() const { return {bytes, len}; }
};

inline Key node_key(uint32_t node) {
  Key key;
  write_be32(key.bytes, node);
  key.len = 4;
  return key;
}
// referrers: (node, lowest); private: (node, client).
inline Key pair_key(uint32_t node, uint32_t second) {
  Key key;
  write_be32(key.bytes, node);
  write_be32(key.bytes + 4, second);
  key.len = 8;
  return key;
}
// name: kNameBytes bytes, or NULL for a data set without name.
inline Key dset_key(const uint8_t* name, uint32_t node) {
  Key key;
  key.bytes[0] = name == nullptr ? 0 : 1;
  key.len = 1;
  if (name != nullptr) {
    memcpy(key.bytes + 1, name, kNameBytes);
    key.len += kNameBytes;
  }
  write_be32(key.bytes + key.len, node);
  key.len += 4;
  return key;
}
struct ClientKey {
  uint32_t client;
  uint32_t process;
  uint32_t session;
  uint32_t key;
};
constexpr uint32_t kClientKeyBytes = 16;
inline Key client_key(const ClientKey& parts) {
  Key key;
  write_be32(key.bytes, parts.client);
  write_be32(key.bytes + 4, parts.process);
  write_be32(key.bytes + 8, parts.session);
  write_be32(key.bytes + 12, parts.key);
  key.len = kClientKeyBytes;
  return key;
}
inline void write_be64(void* to, uint64_t value) {
  write_be32(to, static_cast<uint32_t>(value >> 32));
  write_be32(static_cast<uint8_t*>(to) + 4, static_cast<uint32_t>(value));
}
inline uint64_t load_be64(const uint8_t* from) {
  return uint64_t{load_be32(from)} << 32 | load_be32(from + 4);
}
constexpr uint32_t kChangeKeyBytes = 12;
inline Key change_key(uint64_t revision, uint32_t number) {
  Key key;
  write_be64(key.bytes, revision);
  write_be32(key.bytes + 8, number);
  key.len = kChangeKeyBytes;
  return key;
}
inline Key user_key(uint64_t user) {
  Key key;
  write_be64(key.bytes, user);
  key.len = 8;
  return key;
}
constexpr uint32_t kNamedKeyBytes = 1 + kNameBytes + 4;
constexpr uint32_t kUnnamedKeyBytes = 1 + 4;

// ---- Node values --------------------------------------------------------------------------------

constexpr uint32_t kNodeHead = 12;
constexpr uint32_t kMarkBytes = 8;
constexpr uint32_t kShortLink = 12;
constexpr uint32_t kLinkBytes = 16;

// Bits of a node's form.
constexpr uint32_t kNamed = 1;   // it has a name
constexpr uint32_t kMarked = 2;  // it has flags or clients with private data
constexpr uint32_t kPairs = 4;   // its links have second nodes
constexpr uint32_t kFull = 8;    // 65,536 links more than `links` says
constexpr uint32_t kForms = 15;

// A node value taken apart. Pointers lead into the value.
struct NodeView {
  uint32_t node = 0;  // 0 = none
  uint32_t flags = 0;
  uint32_t refs = 0;
  uint32_t tlv_len = 0;
  uint32_t links = 0;
  uint32_t link_len = kShortLink;  // of each link
  uint32_t dset_len = 0;
  uint32_t clients = 0;
  const uint8_t* dset = nullptr;
  const uint8_t* tlv = nullptr;
  const uint8_t* link = nullptr;   // the first one
  const uint8_t* end = nullptr;    // behind the last one
  const uint8_t* asked = nullptr;  // the link after the one that was found last

  bool is_dset() const { return dset_len != 0 || (flags & ROV_NODE_DSET) != 0; }
  const uint8_t* name() const { return dset_len != 0 ? dset : nullptr; }
  const uint8_t* link_at(uint32_t at) const { return link + size_t{at} * link_len; }
  uint16_t field_at(uint32_t at) const { return load<uint16_t>(link_at(at)); }
};

// False when the value's lengths disagree.
bool parse_node(uint32_t node, Bytes value, NodeView* view);
// Bytes of the head of a value with these parts, and of all of it.
[[nodiscard]] inline uint32_t head_bytes(const NodeView& view) {
  return (view.flags | view.clients) != 0 ? kNodeHead + kMarkBytes : kNodeHead;
}
[[nodiscard]] inline uint32_t node_bytes(const NodeView& view) {
  return head_bytes(view) + view.dset_len + view.tlv_len + view.links * view.link_len;
}
// Writes the head alone, or head, name, TLV data and links. `view` must not lie within `value`.
void write_node_head(const NodeView& view, uint8_t* value);
void write_node(const NodeView& view, uint8_t* value);

struct Link {
  uint16_t field;
  uint16_t tag;
  uint32_t node;
  uint32_t val;
  uint32_t node2;
};

// A link of `len` bytes.
inline Link read_link(const uint8_t* link, uint32_t len) {
  return {load<uint16_t>(link), load<uint16_t>(link + 2), load<uint32_t>(link + 4),
          load<uint32_t>(link + 8), len == kLinkBytes ? load<uint32_t>(link + kShortLink) : 0};
}
inline Link read_link(const NodeView& view, uint32_t at) {
  return read_link(view.link_at(at), view.link_len);
}
// Writes a link of `len` bytes, kShortLink or kLinkBytes.
void write_link(const Link& link, uint32_t len, uint8_t* to);
// Position of the first link whose field is not below `field`.
[[nodiscard]] uint32_t find_link(const NodeView& view, uint32_t field);

// ---- Referrers ----------------------------------------------------------------------------------

constexpr uint32_t kChunkHead = 8;
constexpr uint32_t kChunkMax = 160;  // four full chunks share a page of the engine
constexpr uint32_t kReferrerBytes = 6;

constexpr uint32_t chunk_bytes(uint32_t count) {
  return kChunkHead + count * kReferrerBytes;
}

// A chunk's value taken apart.
struct Chunk {
  const uint8_t* ids = nullptr;
  const uint8_t* fields = nullptr;
  uint32_t count = 0;
  bool more = false;

  [[nodiscard]] uint32_t id(uint32_t at) const { return load<uint32_t>(ids + size_t{4} * at); }
  uint16_t field(uint32_t at) const { return load<uint16_t>(fields + size_t{2} * at); }
  // Position of the first referrer that is not below `node`.
  [[nodiscard]] uint32_t find(uint32_t node) const;
};

bool parse_chunk(Bytes value, Chunk* chunk);

// ---- Checksums ----------------------------------------------------------------------------------

// Over the value's key and what follows its first four bytes.
[[nodiscard]] inline uint32_t record_crc(Bytes key, Bytes value) {
  // A node's number is seed enough, and saves a call on the read path.
  const uint32_t seed = key.len == 4 ? load_be32(key.data) : crc32c(0, key.data, key.len);
  return crc32c(seed, value.data + 4, value.len - 4);
}

}  // namespace rov
