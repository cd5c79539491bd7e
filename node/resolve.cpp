// Resolving links: the database is asked for each link that a node's type can have, and the answers
// go into the slots of the record.
#include "node/resolve.h"

#include <string.h>

#include "lib/report.h"
#include "rov.h"

namespace qim::node {
namespace {

// A link that the node lacks leaves its slot zero.
uint32_t qim_list_get_fixed(uint32_t ses, qim_node_id_t id, uint16_t field, qim_link_t* link,
                            qim_node_t* node) {
  const uint32_t status = qim_link_field_get(ses, id, field, link);
  if (status == ROV_ERR_NO_LINK) return ROV_OK;
  if (status != ROV_OK) {
    report(status, "qim_list_get_fixed", 151, qim_lib_get());
    return status;
  }
  node->links_unfixed--;
  return ROV_OK;
}

uint32_t qim_link_get_fixed(uint32_t ses, qim_node_id_t id, uint16_t field, qim_node_id_t* target,
                            qim_node_t* node) {
  *target = 0;
  qim_link_t link;
  const uint32_t status = qim_list_get_fixed(ses, id, field, &link, node);
  if (status != ROV_OK) {
    report(status, "qim_link_get_fixed", 183, qim_lib_get());
    return status;
  }
  if (link.node2 != 0 || link.val != 0) {
    // A bare identifier cannot hold it, and dropping half of a link would change the policy.
    qim_dbg_errors(QIM_ERR_INTERNAL, "qim_link_get_fixed", 189, qim_lib_get());
    return QIM_ERR_INTERNAL;
  }
  *target = link.node;
  return ROV_OK;
}

uint32_t slot_get(uint32_t ses, const schema::Row& row, qim_node_t* node) {
  char* at = reinterpret_cast<char*>(&node->body) + row.position;
  if (row.slot == schema::Slot::single) {
    return qim_link_get_fixed(ses, node->id, row.link, reinterpret_cast<qim_node_id_t*>(at), node);
  }
  return qim_list_get_fixed(ses, node->id, row.link, reinterpret_cast<qim_link_t*>(at), node);
}

// A resolver's reports are numbered by the slot that failed.
constexpr int32_t kFirstSlotLine = 210;

}  // namespace

uint32_t links_get(uint32_t ses, const schema::NodeType& type, qim_node_t* node) {
  int32_t line = kFirstSlotLine;
  for (const schema::Row& row : *type.body) {
    if (row.slot == schema::Slot::none) continue;
    const uint32_t status = slot_get(ses, row, node);
    if (status != ROV_OK) {
      report(status, type.resolver, line, qim_lib_get());
      return status;
    }
    line++;
  }
  return ROV_OK;
}

uint32_t qim_pinst_dsetname_get(uint32_t ses, uint32_t name_len, const void* name,
                                qim_node_t* node) {
  const uint32_t status = links_get(ses, *schema::node_type(node->type), node);
  if (status != ROV_OK) return status;
  if (name == nullptr) return ROV_OK;
  qim_dsetname_t copy;  // decoding converts the name in place, and the buffer may be shorter
  memset(&copy, 0, sizeof(copy));
  memcpy(&copy, name, name_len < sizeof(copy) ? name_len : sizeof(copy));
  qim_pinst_from_dsetname(&node->body.pinst.fields, &copy);
  return ROV_OK;
}

}  // namespace qim::node
