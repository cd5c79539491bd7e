// Publications: a data set with all that it leads to as one flat block.
//
// Every node is read in a call of its own, so that a long publication keeps nobody who changes the
// map waiting at the session's gate.
#include "database/session/publication.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "database/base/error.h"
#include "database/graph/datasets.h"
#include "database/graph/nodes.h"
#include "database/session/session.h"

namespace rov {
namespace {

// ---- Nodes to come ------------------------------------------------------------------------------

// Nodes to be visited, each once, in the order in which they were first met.
class NodeQueue {
 public:
  NodeQueue() = default;
  ~NodeQueue() {
    free(nodes_);
    free(cells_);
  }
  NodeQueue(const NodeQueue&) = delete;
  NodeQueue& operator=(const NodeQueue&) = delete;

  // Adds a node that is not there yet; 0 is none. False = out of memory.
  bool add(uint32_t node) {
    if (node == 0) return true;
    if (!reserve()) return false;
    uint32_t& cell = cells_[find(node)];
    if (cell != 0) return true;
    nodes_[count_++] = node;
    cell = count_;
    return true;
  }

  uint32_t count() const { return count_; }
  uint32_t at(uint32_t i) const { return nodes_[i]; }

 private:
  // The cell that holds the node's place counted from 1, or the free one where it belongs.
  uint32_t find(uint32_t node) const {
    uint32_t i = (node * 0x9e3779b9U) & mask_;
    while (cells_[i] != 0 && nodes_[cells_[i] - 1] != node) i = (i + 1) & mask_;
    return i;
  }

  // Keeps half of the cells free.
  bool reserve() {
    if (cells_ != nullptr && count_ < (mask_ + 1) / 2) return true;
    const uint32_t cells = cells_ == nullptr ? 64 : (mask_ + 1) * 2;
    auto* nodes = static_cast<uint32_t*>(realloc(nodes_, sizeof(uint32_t) * (cells / 2)));
    if (nodes == nullptr) return false;
    nodes_ = nodes;
    auto* fresh = static_cast<uint32_t*>(calloc(cells, sizeof(uint32_t)));
    if (fresh == nullptr) return false;
    free(cells_);
    cells_ = fresh;
    mask_ = cells - 1;
    for (uint32_t i = 0; i < count_; ++i) cells_[find(nodes_[i])] = i + 1;
    return true;
  }

  uint32_t* nodes_ = nullptr;
  uint32_t* cells_ = nullptr;
  uint32_t mask_ = 0;
  uint32_t count_ = 0;
};

// ---- Publications -------------------------------------------------------------------------------

constexpr uint32_t kMagic = 0x51505542;  // "QPUB"
constexpr uint32_t kVersion = 1;
constexpr uint32_t kPublicationHead = 16;
constexpr uint32_t kNodeHead = 20;
constexpr uint32_t kLinkBytes = 16;

uint32_t padded(uint32_t len) {
  return (len + 3) & ~uint32_t{3};
}

// A publication being measured, or written where `out` is set.
struct Publication {
  uint32_t ses;
  uint32_t max_nodes = 0;
  uint32_t max_bytes = 0;
  uint8_t* out = nullptr;
  uint32_t room = 0;
  uint64_t bytes = kPublicationHead;
  uint32_t nodes = 0;
  NodeQueue queue = {};
};

// Room for `len` more bytes; NULL while only measuring or when there is none, which the length
// tells at the end.
uint8_t* take(Publication& pub, uint32_t len) {
  const uint64_t at = pub.bytes;
  pub.bytes += len;
  return pub.out != nullptr && pub.bytes <= pub.room ? pub.out + at : nullptr;
}

uint32_t check_limits(const Publication& pub) {
  const bool nodes = pub.max_nodes != 0 && pub.nodes > pub.max_nodes;
  const bool bytes = pub.max_bytes != 0 && pub.bytes > pub.max_bytes;
  if (!nodes && !bytes && pub.bytes <= UINT32_MAX) return ROV_OK;
  return fail_text(ROV_ERR_PS_SIZE,
                   "the publication exceeds %u nodes or %u bytes (0: no limit), found %u nodes "
                   "and %llu bytes so far: raise the limits or make the policy smaller",
                   pub.max_nodes, pub.max_bytes, pub.nodes,
                   static_cast<unsigned long long>(pub.bytes));
}

void write_node(uint8_t* at, const rov_node_parms_t& parms) {
  const uint32_t words[] = {number_of(parms.id), parms.flags, parms.tlv_len, parms.dset_len,
                            parms.links};
  for (const uint32_t word : words) {
    write_be32(at, word);
    at += sizeof word;
  }
}

// Name and TLV data, each padded with zeros.
uint32_t add_contents(Publication& pub, const rov_node_parms_t& parms) {
  uint8_t* name = take(pub, padded(parms.dset_len));
  uint8_t* tlv = take(pub, padded(parms.tlv_len));
  if (tlv == nullptr) return ROV_OK;
  memset(name, 0, padded(parms.dset_len));
  memset(tlv, 0, padded(parms.tlv_len));
  return with_view(pub.ses, [&](View& view) {
    return node_data(view, number_of(parms.id), {parms.tlv_len, tlv}, {parms.dset_len, name}, {});
  });
}

uint32_t add_links(Publication& pub, const rov_node_parms_t& parms) {
  for (uint32_t n = 0; n < parms.links; ++n) {
    rov_link_t link;
    const uint32_t status = with_view(
        pub.ses, [&](View& view) { return link_number(view, number_of(parms.id), n, &link); });
    if (status != ROV_OK) return status;
    const uint32_t node = number_of(link.node);
    const uint32_t node2 = number_of(link.node2);
    if (!pub.queue.add(node) || !pub.queue.add(node2)) {
      return fail(ROV_ERR_NO_MEM, Note::kNoMemory, pub.queue.count());
    }
    uint8_t* at = take(pub, kLinkBytes);
    if (at == nullptr) continue;
    write_be32(at, uint32_t{link.field} << 16 | link.tag);
    write_be32(at + 4, node);
    write_be32(at + 8, link.val);
    write_be32(at + 12, node2);
  }
  return ROV_OK;
}

// A link may lead to a node that is not there; nothing is published of it.
uint32_t add_node(Publication& pub, uint32_t node) {
  rov_node_parms_t parms;
  uint32_t status =
      with_view(pub.ses, [&](View& view) { return node_parms_of(view, node, &parms); });
  if (status == ROV_ERR_NO_ITEM) return ROV_OK;
  if (status != ROV_OK) return status;
  ++pub.nodes;
  uint8_t* head = take(pub, kNodeHead);
  if (head != nullptr) write_node(head, parms);
  status = add_contents(pub, parms);
  if (status == ROV_OK) status = add_links(pub, parms);
  return status == ROV_OK ? check_limits(pub) : status;
}

void write_head(const Publication& pub) {
  const uint32_t words[] = {kMagic, kVersion, pub.nodes, static_cast<uint32_t>(pub.bytes)};
  uint8_t* at = pub.out;
  for (const uint32_t word : words) {
    write_be32(at, word);
    at += sizeof word;
  }
}

// The node of that name, and the limits of the session's database.
uint32_t find_root(Publication& pub, const uint8_t* dset_name, uint32_t* root) {
  Access access(pub.ses);
  if (access.failed()) return access.status();
  pub.max_nodes = access.session().db->ps_max_nodes;
  pub.max_bytes = access.session().db->ps_max_bytes;
  return dataset_named(access.view(), dset_name, root);
}

uint32_t publish(Publication& pub, const uint8_t* dset_name) {
  uint32_t root = 0;
  uint32_t status = find_root(pub, dset_name, &root);
  if (status != ROV_OK) return status;
  if (!pub.queue.add(root)) return fail(ROV_ERR_NO_MEM, Note::kNoMemory, 1);
  for (uint32_t i = 0; i < pub.queue.count(); ++i) {
    status = add_node(pub, pub.queue.at(i));
    if (status != ROV_OK) return status;
  }
  if (pub.out == nullptr) return ROV_OK;
  if (pub.bytes > pub.room) {
    return fail(ROV_ERR_LENGTH, Note::kBuffer, pub.room, static_cast<uint32_t>(pub.bytes));
  }
  write_head(pub);
  return ROV_OK;
}

}  // namespace

uint32_t publication_size(uint32_t ses, const uint8_t* dset_name, uint32_t* size) {
  Publication pub = {.ses = ses};
  const uint32_t status = publish(pub, dset_name);
  if (status == ROV_OK) *size = static_cast<uint32_t>(pub.bytes);
  return status;
}

uint32_t publication_write(uint32_t ses, const uint8_t* dset_name, uint8_t* out, uint32_t room) {
  Publication pub = {.ses = ses};
  pub.out = out;
  pub.room = room;
  return publish(pub, dset_name);
}

}  // namespace rov
