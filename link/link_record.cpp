// Links read from a decoded node record.
#include <string.h>

#include "lib/export.h"
#include "lib/report.h"
#include "link/slots.h"
#include "rov.h"

QIM_API uint32_t qim_link_ptr(const qim_node_t* node, uint16_t field, const qim_node_id_t** single,
                              const qim_link_t** full) {
  if (single != nullptr) *single = nullptr;
  if (full != nullptr) *full = nullptr;
  const qim::link::Place* place = qim::link::place_of(field);
  if (place == nullptr) return QIM_ERR_INVALID;
  if (!qim::link::has_type(*place, node->type)) return ROV_OK;
  const char* at = reinterpret_cast<const char*>(&node->body) + place->position;
  if (place->form == qim::schema::Slot::single) {
    if (single != nullptr) {
      *single = reinterpret_cast<const qim_node_id_t*>(at);
    }
  } else if (full != nullptr) {
    *full = reinterpret_cast<const qim_link_t*>(at);
  }
  return ROV_OK;
}

QIM_API uint32_t qim_link_val(uint32_t ses, const qim_node_t* node, uint16_t field,
                              qim_link_t* link) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  memset(link, 0, sizeof(*link));
  const qim_node_id_t* single = nullptr;
  const qim_link_t* full = nullptr;
  const uint32_t status = qim_link_ptr(node, field, &single, &full);
  if (status == QIM_ERR_INVALID && static_cast<int16_t>(field) < 0) {
    return qim_link_field_get(ses, node->id, field, link);  // no record holds these codes
  }
  if (status != ROV_OK) {
    qim::report(status, "qim_link_val", 1182, ctx);
    return status;
  }
  if (single != nullptr) {
    link->node = *single;
  } else {
    // NULL when nodes of this type have no such link: asking for one is the caller's error and
    // faults here rather than pass for an absent link. The volatile read keeps a compiler from
    // making something else of it.
    const qim_link_t* volatile slot = full;
    // NOLINTNEXTLINE(clang-analyzer-core.*): the fault is meant
    *link = *slot;
  }
  return ROV_OK;
}
