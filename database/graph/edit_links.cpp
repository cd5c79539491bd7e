#include "database/base/error.h"
#include "database/graph/edit.h"
#include "database/graph/referrers.h"
#include "rov.h"

namespace rov {
namespace {

uint32_t lookup_owner(View& view, uint32_t owner, NodeView* found) {
  const uint32_t status = view_find_node(view, owner);
  *found = view.node;
  return status;
}

// Changes the number of referrers in a node that may not exist.
uint32_t change_refs(View& view, uint32_t node, int32_t change) {
  const uint32_t status = view_seek_node(view, node);
  if (status == ROV_ERR_NO_ITEM) return ROV_OK;
  if (status != ROV_OK) return status;
  NodeView found = view.node;
  uint8_t* value = own_node(view, found, 0);
  if (value == nullptr) return ROV_ERR_NO_MEM;
  found.refs += static_cast<uint32_t>(change);
  write_node_head(found, value);
  return ROV_OK;
}

uint32_t add_target(View& view, uint32_t owner, uint32_t target, uint32_t field) {
  if (target == 0 || view.edits->backlog.add({target, owner, field})) return ROV_OK;
  return fail(ROV_ERR_NO_MEM, Note::kNoMemory, sizeof(Reference));
}

// Notes the references of [from, to), which are to one node.
uint32_t settle_target(View& view, const Reference* from, const Reference* to) {
  uint32_t added = 0;
  const uint32_t status = referrers_add(view, from, to, &added);
  if (status != ROV_OK || added == 0) return status;
  return change_refs(view, from->target, static_cast<int32_t>(added));
}

uint32_t settle_all(View& view, const Backlog& backlog) {
  uint32_t status = ROV_OK;
  const Reference* from = backlog.begin();
  while (from != backlog.end() && status == ROV_OK) {
    const Reference* to = from;
    while (to != backlog.end() && to->target == from->target) ++to;
    status = settle_target(view, from, to);
    from = to;
  }
  return status;
}

bool leads_to(const Link& link, uint32_t target) {
  return link.node == target || link.node2 == target;
}

// After a link of the owner to the target has gone: another one may still lead there.
uint32_t drop_target(View& view, uint32_t owner, uint32_t target) {
  if (target == 0) return ROV_OK;
  NodeView node;
  uint32_t status = lookup_owner(view, owner, &node);
  if (status != ROV_OK) return status;
  for (uint32_t at = 0; at < node.links; ++at) {
    const Link link = read_link(node, at);
    if (leads_to(link, target)) return referrer_set_field(view, target, {owner, link.field});
  }
  bool removed = false;
  status = referrer_remove(view, target, owner, &removed);
  return status == ROV_OK && removed ? change_refs(view, target, -1) : status;
}

uint32_t drop_targets(View& view, uint32_t owner, const Link& link) {
  uint32_t status = drop_target(view, owner, link.node);
  if (status == ROV_OK && link.node2 != link.node) status = drop_target(view, owner, link.node2);
  return status;
}

// The place of a link within the node's value in the edits.
uint8_t* link_in(uint8_t* value, const NodeView& node, uint32_t at) {
  return value + (node.link_at(at) - (node.dset - head_bytes(node)));
}

// Rewrites a node that has links without second nodes as one whose links have room for them, with
// room for one more, and finds it again.
uint32_t widen_links(View& view, NodeView* node) {
  NodeView wide = *node;
  wide.link_len = kLinkBytes;
  const uint32_t len = node_bytes(wide);
  const Key key = node_key(node->node);
  uint8_t* value = view_replace(view, Table::kNodes, key, len, len + kLinkBytes);
  if (value == nullptr) return ROV_ERR_NO_MEM;
  wide.links = 0;
  write_node(wide, value);
  uint8_t* to = value + node_bytes(wide);
  wide.links = node->links;
  write_node_head(wide, value);
  for (uint32_t at = 0; at < node->links; ++at, to += kLinkBytes) {
    write_link(read_link(*node, at), kLinkBytes, to);
  }
  return lookup_owner(view, node->node, node);
}

uint32_t insert_link(View& view, NodeView node, uint32_t at, const Link& link) {
  uint8_t* value = own_node(view, node, node.link_len);
  if (value == nullptr) return ROV_ERR_NO_MEM;
  uint8_t* place = link_in(value, node, at);
  memmove(place + node.link_len, place, size_t{node.links - at} * node.link_len);
  write_link(link, node.link_len, place);
  ++node.links;
  write_node_head(node, value);
  return ROV_OK;
}

uint32_t overwrite_link(View& view, const NodeView& node, uint32_t at, const Link& link) {
  uint8_t* value = own_node(view, node, 0);
  if (value == nullptr) return ROV_ERR_NO_MEM;
  write_link(link, node.link_len, link_in(value, node, at));
  return ROV_OK;
}

uint32_t remove_link(View& view, NodeView node, uint32_t at) {
  uint8_t* value = own_node(view, node, 0);
  if (value == nullptr) return ROV_ERR_NO_MEM;
  uint8_t* place = link_in(value, node, at);
  memmove(place, place + node.link_len, size_t{node.links - at - 1} * node.link_len);
  --node.links;
  write_node_head(node, value);
  const uint32_t len = node_bytes(node);
  view_put(view, Table::kNodes, node_key(node.node), len, len);
  return ROV_OK;
}

// Puts a link in the place of another one in its field.
uint32_t replace_link(View& view, uint32_t owner, uint32_t at, const Link& link) {
  NodeView node;
  uint32_t status = edit_settle(view);
  if (status == ROV_OK) status = lookup_owner(view, owner, &node);
  if (status != ROV_OK) return status;
  const Link old = read_link(node, at);
  status = overwrite_link(view, node, at, link);
  // Targets that stay keep their entry; drop_targets finds the link that leads there now.
  return status == ROV_OK ? drop_targets(view, owner, old) : status;
}

bool has_field(const NodeView& node, uint32_t at, uint32_t field) {
  return at < node.links && node.field_at(at) == field;
}

}  // namespace

uint32_t edit_settle(View& view) {
  Backlog& backlog = view.edits->backlog;
  if (backlog.failure != 0) {
    return fail_text(backlog.failure,
                     "the write session failed before, while it noted what its links lead to (%s): "
                     "begin it again",
                     rov_status_name(backlog.failure));
  }
  if (backlog.empty()) return ROV_OK;
  Backlog taken;
  taken.take(backlog);
  taken.sort();
  backlog.failure = settle_all(view, taken);
  return backlog.failure;
}

uint32_t edit_link_put(View& view, uint32_t owner, const Link& link) {
  NodeView node;
  uint32_t status = lookup_owner(view, owner, &node);
  if (status == ROV_OK && link.node2 != 0 && node.link_len != kLinkBytes) {
    status = widen_links(view, &node);
  }
  if (status != ROV_OK) return status;
  const uint32_t at = find_link(node, link.field);
  if (has_field(node, at, link.field)) {
    const Link old = read_link(node, at);
    const bool same_targets = old.node == link.node && old.node2 == link.node2;
    if (same_targets) return overwrite_link(view, node, at, link);
    status = replace_link(view, owner, at, link);
  } else {
    status = insert_link(view, node, at, link);
  }
  if (status == ROV_OK) status = add_target(view, owner, link.node, link.field);
  if (status == ROV_OK) status = add_target(view, owner, link.node2, link.field);
  return status;
}

uint32_t edit_link_del(View& view, uint32_t owner, uint32_t field) {
  NodeView node;
  uint32_t status = edit_settle(view);
  if (status == ROV_OK) status = lookup_owner(view, owner, &node);
  if (status != ROV_OK) return status;
  const uint32_t at = find_link(node, field);
  if (!has_field(node, at, field)) return fail(ROV_ERR_NO_LINK, Note::kNoLink, owner, field);
  const Link old = read_link(node, at);
  status = remove_link(view, node, at);
  return status == ROV_OK ? drop_targets(view, owner, old) : status;
}

}  // namespace rov
