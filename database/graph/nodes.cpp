// Nodes and their links, read.
#include "database/graph/nodes.h"

#include "database/base/error.h"
#include "database/graph/edit.h"
#include "database/graph/private.h"
#include "database/store/store.h"
#include "rov.h"

namespace rov {
namespace {

uint32_t check_want(const Want& want, uint32_t has) {
  if (want.len == 0) return ROV_OK;
  if (want.len < has) return fail(ROV_ERR_LENGTH, Note::kBuffer, want.len, has);
  if (want.buf == nullptr && has != 0)
    return fail_text(ROV_ERR_INVALID, "a buffer has a length but no address");
  return ROV_OK;
}

void copy_out(const Want& want, const uint8_t* data, uint32_t len) {
  if (want.len != 0 && len != 0) memcpy(want.buf, data, len);
}

}  // namespace

uint32_t node_parms(View& view, rov_node_parms_t* parms) {
  const NodeView& node = view.node;
  uint32_t priv_len = 0;
  if (node.clients != 0) {
    Bytes data;
    const uint32_t status = private_get(view, &data);
    if (status != ROV_OK) return status;
    priv_len = data.len;
  }
  *parms = {};
  parms->id = id_of(node.node);
  parms->flags = node.flags;
  parms->links = node.links;
  parms->refs = node.refs;
  parms->tlv_len = node.tlv_len;
  parms->dset_len = node.dset_len;
  parms->priv_len = priv_len;
  parms->priv_ptr = view.snapshot->env->pointers.get(view.client, node.node);
  return ROV_OK;
}

uint32_t node_parms_of(View& view, uint32_t node, rov_node_parms_t* parms) {
  const uint32_t status = find_settled_node(view, node);
  return status == ROV_OK ? node_parms(view, parms) : status;
}

uint32_t node_after(View& view, uint32_t after) {
  view.node.node = 0;
  Record record;
  uint32_t status = settle_edits(view);
  if (status != ROV_OK) return status;
  status = ROV_ERR_NO_ITEM;
  Key from = node_key(after);
  if (key_after(Table::kNodes, from, &from)) status = view_ge(view, Table::kNodes, from, &record);
  if (status == ROV_ERR_NO_ITEM) return fail(status, Note::kNoMoreNodes, after);
  if (status != ROV_OK) return status;
  const uint32_t node = load_be32(record.key.data);
  view.node_epoch = view.snapshot->epoch;
  if (parse_node(node, record.value, &view.node)) return ROV_OK;
  return fail(ROV_ERR_CORRUPT, Note::kBadNode, node);
}

uint32_t node_sum(View& view, uint32_t node, uint64_t* sum) {
  uint32_t status = find_settled_node(view, node);
  if (status != ROV_OK) return status;
  Record record;
  const Key own = node_key(node);  // to which the record's key leads
  status = view_get(view, Table::kNodes, own, &record);
  if (status == ROV_OK) *sum = record_crc(record.key, record.value);
  if (status != ROV_OK || view.node.clients == 0) return status;
  for (Key key = pair_key(node, 0);;) {
    status = view_ge(view, Table::kPrivate, key, &record);
    if (status == ROV_ERR_NO_ITEM || (status == ROV_OK && load_be32(record.key.data) != node))
      break;
    if (status != ROV_OK) return status;
    *sum += record_crc(record.key, record.value);
    if (!key_after(Table::kPrivate, record.key, &key)) break;
  }
  return ROV_OK;
}

uint32_t node_data(View& view, uint32_t number, const Want& tlv, const Want& dset,
                   const Want& priv) {
  uint32_t status = view_find_node(view, number);
  if (status != ROV_OK) return status;
  const NodeView& node = view.node;
  Bytes own;
  if (priv.len != 0) status = private_get(view, &own);
  if (status == ROV_OK) status = check_want(tlv, node.tlv_len);
  if (status == ROV_OK) status = check_want(dset, node.dset_len);
  if (status == ROV_OK) status = check_want(priv, own.len);
  if (status != ROV_OK) return status;
  copy_out(tlv, node.tlv, node.tlv_len);
  copy_out(dset, node.dset, node.dset_len);
  copy_out(priv, own.data, own.len);
  return ROV_OK;
}

// ---- Links --------------------------------------------------------------------------------------

namespace {

void fill_link(const NodeView& node, const uint8_t* at, rov_link_t* out) {
  const Link link = read_link(at, node.link_len);
  *out = {};
  out->owner = id_of(node.node);
  out->field = link.field;
  out->tag = link.tag;
  out->node = id_of(link.node);
  out->val = link.val;
  out->node2 = id_of(link.node2);
}

}  // namespace

uint32_t link_of_field(View& view, uint32_t node, uint32_t field, rov_link_t* out) {
  const uint32_t status = view_find_node(view, node);
  if (status != ROV_OK) return status;
  // A node's links are mostly asked for one after the other.
  const NodeView& found = view.node;
  const uint8_t* at = found.asked;
  if (at == found.end || load<uint16_t>(at) != field) {
    at = found.link_at(find_link(found, field));
    if (at == found.end || load<uint16_t>(at) != field) {
      return fail(ROV_ERR_NO_LINK, Note::kNoLink, node, field);
    }
  }
  view.node.asked = at + found.link_len;
  fill_link(found, at, out);
  return ROV_OK;
}

uint32_t link_number(View& view, uint32_t node, uint32_t number, rov_link_t* out) {
  const uint32_t status = view_find_node(view, node);
  if (status != ROV_OK) return status;
  if (number >= view.node.links) {
    return fail_text(ROV_ERR_NO_LINK, "node 0x%08x has no link number %u", node, number);
  }
  fill_link(view.node, view.node.link_at(number), out);
  return ROV_OK;
}

uint32_t link_matching(View& view, uint32_t node, uint32_t wanted, uint32_t width,
                       rov_link_t* out) {
  const uint32_t status = view_find_node(view, node);
  if (status != ROV_OK) return status;
  const uint32_t bits = width >= 32 ? UINT32_MAX : (1U << width) - 1;
  for (uint32_t at = 0; at < view.node.links; ++at) {
    const uint32_t field = view.node.field_at(at);
    if (((field ^ wanted) & bits) != 0) continue;
    fill_link(view.node, view.node.link_at(at), out);
    return ROV_OK;
  }
  return fail(ROV_ERR_NO_LINK, Note::kNoLink, node, wanted & bits);
}

}  // namespace rov
