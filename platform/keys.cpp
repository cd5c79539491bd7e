#include "platform/keys.h"

namespace rov {

bool parse_node(uint32_t node, Bytes value, NodeView* view) {
  if (value.len < kNodeHead) return false;
  const uint8_t* at = value.data;
  view->flags = load<uint32_t>(at + 4);
  view->refs = load<uint32_t>(at + 8);
  view->tlv_len = load<uint32_t>(at + 12);
  view->links = load<uint32_t>(at + 16);
  view->dset_len = at[20];
  view->clients = load<uint16_t>(at + 22);
  const uint64_t bytes =
      uint64_t{kNodeHead} + view->dset_len + view->tlv_len + uint64_t{view->links} * kLinkBytes;
  if (bytes != value.len || (view->dset_len != 0 && view->dset_len != kNameBytes)) return false;
  view->dset = at + kNodeHead;
  view->tlv = view->dset + view->dset_len;
  view->link = view->tlv + view->tlv_len;
  view->asked = 0;
  view->node = node;
  return true;
}

void write_node_head(const NodeView& view, uint8_t* value) {
  store<uint32_t>(value, 0);
  store(value + 4, view.flags);
  store(value + 8, view.refs);
  store(value + 12, view.tlv_len);
  store(value + 16, view.links);
  value[20] = static_cast<uint8_t>(view.dset_len);
  value[21] = 0;
  store(value + 22, static_cast<uint16_t>(view.clients));
}

void write_node(const NodeView& view, uint8_t* value) {
  write_node_head(view, value);
  uint8_t* at = value + kNodeHead;
  const Bytes parts[] = {
      {view.dset, view.dset_len}, {view.tlv, view.tlv_len}, {view.link, view.links * kLinkBytes}};
  for (const Bytes& part : parts) {
    if (part.len == 0) continue;
    memcpy(at, part.data, part.len);
    at += part.len;
  }
}

void write_link(const Link& link, uint8_t* to) {
  store(to, link.field);
  store(to + 2, link.tag);
  store(to + 4, link.node);
  store(to + 8, link.val);
  store(to + 12, link.node2);
}

uint32_t find_link(const NodeView& view, uint32_t field) {
  uint32_t low = 0;
  uint32_t high = view.links;
  while (low < high) {
    const uint32_t middle = low + (high - low) / 2;
    if (link_field(view.link + size_t{middle} * kLinkBytes) < field) {
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
