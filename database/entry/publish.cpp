// C entries: publications, a data set with all that it leads to as one flat block.
#include "database/base/error.h"
#include "database/record/keys.h"
#include "database/session/node_queue.h"
#include "database/session/session.h"
#include "rov_edit.h"

namespace {

using rov::Access;
using rov::fail;
using rov::Note;

constexpr uint32_t kMagic = 0x51505542;  // "QPUB"
constexpr uint32_t kVersion = 1;
constexpr uint32_t kHead = 16;
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
  uint64_t bytes = kHead;
  uint32_t nodes = 0;
  rov::NodeQueue queue = {};
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
  return rov::fail_text(
      ROV_ERR_PS_SIZE,
      "the publication exceeds %u nodes or %u bytes (0: no limit), found %u nodes "
      "and %llu bytes so far: raise the limits or make the policy smaller",
      pub.max_nodes, pub.max_bytes, pub.nodes, static_cast<unsigned long long>(pub.bytes));
}

void write_node(uint8_t* at, const rov_node_parms_t& parms) {
  const uint32_t words[] = {rov::number_of(parms.id), parms.flags, parms.tlv_len, parms.dset_len,
                            parms.links};
  for (const uint32_t word : words) {
    rov::store_be32(at, word);
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
  return rov_node_data_get(pub.ses, parms.id, parms.tlv_len, tlv, parms.dset_len, name, 0, nullptr);
}

uint32_t add_links(Publication& pub, const rov_node_parms_t& parms) {
  for (uint32_t n = 0; n < parms.links; ++n) {
    rov_link_t link;
    const uint32_t status = rov_node_link_nth(pub.ses, parms.id, n, &link);
    if (status != ROV_OK) return status;
    const uint32_t node = rov::number_of(link.node);
    const uint32_t node2 = rov::number_of(link.node2);
    if (!pub.queue.add(node) || !pub.queue.add(node2)) {
      return fail(ROV_ERR_NO_MEM, Note::kNoMemory, pub.queue.count());
    }
    uint8_t* at = take(pub, kLinkBytes);
    if (at == nullptr) continue;
    rov::store_be32(at, uint32_t{link.field} << 16 | link.tag);
    rov::store_be32(at + 4, node);
    rov::store_be32(at + 8, link.val);
    rov::store_be32(at + 12, node2);
  }
  return ROV_OK;
}

// A link may lead to a node that is not there; nothing is published of it.
uint32_t add_node(Publication& pub, uint32_t node) {
  rov_node_parms_t parms;
  uint32_t status = rov_node_parms_get(pub.ses, rov::id_of(node), &parms);
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
    rov::store_be32(at, word);
    at += sizeof word;
  }
}

uint32_t find_limits(Publication& pub) {
  Access access(pub.ses);
  if (access.failed()) return access.status();
  pub.max_nodes = access.session().db->ps_max_nodes;
  pub.max_bytes = access.session().db->ps_max_bytes;
  return ROV_OK;
}

uint32_t publish(Publication& pub, const void* dset_name) {
  rov_node_parms_t parms;
  uint32_t status = find_limits(pub);
  if (status == ROV_OK) {
    status = rov_ses_dset_name_get(pub.ses, rov::kNameBytes, dset_name, &parms);
  }
  if (status != ROV_OK) return status;
  if (!pub.queue.add(rov::number_of(parms.id))) return fail(ROV_ERR_NO_MEM, Note::kNoMemory, 1);
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

uint32_t rov_ps_datasize(uint32_t ses, const void* dset_name, uint32_t* size) {
  if (dset_name == nullptr) return fail(ROV_ERR_INVALID, Note::kArgument, 2);
  if (size == nullptr) return fail(ROV_ERR_INVALID, Note::kArgument, 3);
  Publication pub = {.ses = ses};
  const uint32_t status = publish(pub, dset_name);
  if (status == ROV_OK) *size = static_cast<uint32_t>(pub.bytes);
  return status;
}

uint32_t rov_ps_data(uint32_t ses, const void* dset_name, uint32_t len, void* buf) {
  if (dset_name == nullptr) return fail(ROV_ERR_INVALID, Note::kArgument, 2);
  if (buf == nullptr) return fail(ROV_ERR_INVALID, Note::kArgument, 4);
  Publication pub = {.ses = ses, .out = static_cast<uint8_t*>(buf), .room = len};
  return publish(pub, dset_name);
}
