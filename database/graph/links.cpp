#include "database/graph/links.h"

#include "database/base/error.h"
#include "rov.h"

namespace rov {
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
