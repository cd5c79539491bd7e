#include "database/base/error.h"
#include "database/graph/datasets.h"
#include "database/graph/edit.h"
#include "database/graph/links.h"
#include "database/graph/private.h"
#include "database/graph/referrers.h"
#include "rov.h"

namespace rov {
namespace {

constexpr uint32_t kLinkSlack = 4 * kShortLink;  // a node rarely gets only one link

// Finds a node into *found, which outlives the view's memory of it. ROV_ERR_NO_ITEM without a note.
uint32_t lookup(View& view, uint32_t node, NodeView* found) {
  const uint32_t status = view_seek_node(view, node);
  *found = view.node;
  return status;
}

NodeView fresh_node(const rov_edit_node_t& from) {
  NodeView node;
  node.node = number_of(from.id);
  node.flags = from.flags;
  node.tlv_len = from.tlv_len;
  node.tlv = static_cast<const uint8_t*>(from.tlv);
  node.dset_len = from.dset_len;
  node.dset = static_cast<const uint8_t*>(from.dset);
  return node;
}

// Writes the node into a new buffer; its parts may lie in the old one.
uint32_t rewrite_node(View& view, const NodeView& node, uint32_t slack) {
  const uint32_t len = node_bytes(node);
  uint8_t* value = view_replace(view, Table::kNodes, node_key(node.node), len, len + slack);
  if (value == nullptr) return ROV_ERR_NO_MEM;
  write_node(node, value);
  return ROV_OK;
}

}  // namespace

uint8_t* own_node(View& view, const NodeView& node, uint32_t more) {
  const Key key = node_key(node.node);
  const uint32_t len = node_bytes(node);
  const uint32_t growth = node.links * node.link_len / 2;
  const uint32_t slack = more == 0 ? 0 : (growth > kLinkSlack ? growth : kLinkSlack);
  const uint8_t* now = node.dset - head_bytes(node);
  const Overlay::Edit* edit = view.edits->find(Table::kNodes, key);
  if (edit != nullptr && edit->value == now) {
    return view_put(view, Table::kNodes, key, len + more, len + more + slack);
  }
  uint8_t* value = view_replace(view, Table::kNodes, key, len + more, len + more + slack);
  if (value != nullptr) memcpy(value, now, len);
  return value;
}

uint32_t edit_clients(View& view, uint32_t node, int32_t change) {
  NodeView found;
  const uint32_t status = lookup(view, node, &found);
  if (status != ROV_OK) return status;
  found.clients += static_cast<uint32_t>(change);
  return rewrite_node(view, found, 0);
}

uint32_t edit_node_put(View& view, const rov_edit_node_t& from) {
  NodeView node = fresh_node(from);
  NodeView old;
  uint32_t status = lookup(view, node.node, &old);
  if (status != ROV_OK && status != ROV_ERR_NO_ITEM) return status;
  const bool existed = status == ROV_OK;
  if (existed) {
    node.refs = old.refs;
    node.links = old.links;
    node.link = old.link;
    node.link_len = old.link_len;
    node.clients = old.clients;
  } else {
    status = referrers_count(view, node.node, &node.refs);
    if (status != ROV_OK) return status;
  }
  status = dataset_index(view, existed ? &old : nullptr, &node);
  if (status != ROV_OK) return status;
  return rewrite_node(view, node, existed ? 0 : kLinkSlack);
}

uint32_t edit_node_del(View& view, uint32_t number) {
  NodeView node;
  uint32_t status = lookup(view, number, &node);
  if (status == ROV_ERR_NO_ITEM) return fail(status, Note::kNoNode, number);
  // From the last link to the first: each deletion leaves the ones before it where they are.
  while (status == ROV_OK && node.links > 0) {
    status = edit_link_del(view, number, node.field_at(node.links - 1));
    if (status == ROV_OK) status = lookup(view, number, &node);
  }
  if (status == ROV_OK) status = private_drop(view, number);
  if (status == ROV_OK) status = dataset_index(view, &node, nullptr);
  if (status == ROV_OK) status = view_erase(view, Table::kNodes, node_key(number));
  return status;
}

}  // namespace rov
