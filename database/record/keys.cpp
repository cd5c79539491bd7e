#include "database/record/keys.h"

namespace rov {

bool parse_node(uint32_t node, Bytes value, NodeView* view) {
  if (value.len < kNodeHead) return false;
  const uint8_t* at = value.data;
  const uint32_t form = load<uint16_t>(at + 10);
  view->refs = load<uint32_t>(at + 4);
  view->links = load<uint16_t>(at + 8) + ((form & kFull) != 0 ? 0x10000U : 0U);
  view->link_len = (form & kPairs) != 0 ? kLinkBytes : kShortLink;
  view->dset_len = (form & kNamed) != 0 ? kNameBytes : 0;
  view->flags = 0;
  view->clients = 0;
  const bool marked = (form & kMarked) != 0;
  const uint32_t head = marked ? kNodeHead + kMarkBytes : kNodeHead;
  const uint32_t links = view->links * view->link_len;
  if (value.len < head + view->dset_len + links || form > kForms) return false;
  if (marked) {
    view->flags = load<uint32_t>(at + kNodeHead);
    view->clients = load<uint32_t>(at + kNodeHead + 4);
    // Edits rely on it that the head is as long as its contents need.
    if (head_bytes(*view) != head) return false;
  }
  view->dset = at + head;
  view->tlv = view->dset + view->dset_len;
  view->end = at + value.len;
  view->link = view->end - links;
  view->tlv_len = static_cast<uint32_t>(view->link - view->tlv);
  view->asked = view->link;
  view->node = node;
  return true;
}

void write_node_head(const NodeView& view, uint8_t* value) {
  const bool marked = head_bytes(view) != kNodeHead;
  const uint32_t form = (view.dset_len != 0 ? kNamed : 0U) | (marked ? kMarked : 0U) |
                        (view.link_len == kLinkBytes ? kPairs : 0U) |
                        (view.links > 0xffff ? kFull : 0U);
  store<uint32_t>(value, 0);
  store(value + 4, view.refs);
  store(value + 8, static_cast<uint16_t>(view.links));
  store(value + 10, static_cast<uint16_t>(form));
  if (!marked) return;
  store(value + kNodeHead, view.flags);
  store(value + kNodeHead + 4, view.clients);
}

void write_node(const NodeView& view, uint8_t* value) {
  write_node_head(view, value);
  uint8_t* at = value + head_bytes(view);
  const Bytes parts[] = {{view.dset, view.dset_len},
                         {view.tlv, view.tlv_len},
                         {view.link, view.links * view.link_len}};
  for (const Bytes& part : parts) {
    if (part.len == 0) continue;
    memcpy(at, part.data, part.len);
    at += part.len;
  }
}

void write_link(const Link& link, uint32_t len, uint8_t* to) {
  store(to, link.field);
  store(to + 2, link.tag);
  store(to + 4, link.node);
  store(to + 8, link.val);
  if (len == kLinkBytes) store(to + kShortLink, link.node2);
}

uint32_t find_link(const NodeView& view, uint32_t field) {
  uint32_t low = 0;
  uint32_t high = view.links;
  while (low < high) {
    const uint32_t middle = low + (high - low) / 2;
    if (view.field_at(middle) < field) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low;
}

uint32_t Chunk::find(uint32_t node) const {
  uint32_t low = 0;
  uint32_t high = count;
  while (low < high) {
    const uint32_t middle = low + (high - low) / 2;
    if (id(middle) < node) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low;
}

bool parse_chunk(Bytes value, Chunk* chunk) {
  if (value.len < kChunkHead) return false;
  chunk->count = load<uint16_t>(value.data + 4);
  chunk->more = load<uint16_t>(value.data + 6) != 0;
  // Only a first chunk may be empty, while others follow.
  if (chunk->count > kChunkMax || (chunk->count == 0 && !chunk->more)) return false;
  if (value.len != chunk_bytes(chunk->count)) return false;
  chunk->ids = value.data + kChunkHead;
  chunk->fields = chunk->ids + size_t{4} * chunk->count;
  return true;
}

}  // namespace rov
