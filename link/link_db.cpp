// Links read from the database.
#include <string.h>

#include "lib/export.h"
#include "lib/report.h"
#include "rov.h"

namespace {

// qim_link_opt_get asks for the optional variant of a link field code, compared in all 16 bits.
constexpr uint32_t kCodeWidth = 16;

void qim_link_from_rov(qim_link_t* link, const rov_link_t& from) {
  // The owner is left out: the caller asked for a link of that node.
  link->node = qim_from_rov_node_id(&from.node);
  link->node2 = qim_from_rov_node_id(&from.node2);
  link->val = from.val;
  link->tag = from.tag;
  link->field = from.field;
}

// The shape that the getters share: `query` asks the database for the link of the identifier it is
// given.
template <class Query>
uint32_t get_link(qim_node_id_t node_id, qim_link_t* link, const char* function, int32_t id_line,
                  int32_t query_line, Query query) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  memset(link, 0, sizeof(*link));
  rov_node_id_t id;
  uint32_t status = qim_to_rov_node_id(node_id, &id);
  if (status != ROV_OK) {
    qim::report(status, function, id_line, ctx);
    return status;
  }
  rov_link_t found;  // the database fills it
  status = query(id, &found);
  if (status != ROV_OK) {
    qim::report(status, function, query_line, ctx);
    return status;
  }
  qim_link_from_rov(link, found);
  return ROV_OK;
}

}  // namespace

QIM_API uint32_t qim_link_field_get(uint32_t ses, qim_node_id_t node_id, uint16_t field,
                                    qim_link_t* link) {
  return get_link(node_id, link, "qim_link_field_get", 1034, 1038,
                  [ses, field](rov_node_id_t id, rov_link_t* found) {
                    return rov_node_ln_field_get(ses, id, field, found);
                  });
}

QIM_API uint32_t qim_link_get(uint32_t ses, qim_node_id_t node_id, uint32_t field,
                              qim_link_t* link) {
  return get_link(node_id, link, "qim_link_get", 1081, 1085,
                  [ses, field](rov_node_id_t id, rov_link_t* found) {
                    return rov_node_link_get(ses, id, field, found);
                  });
}

QIM_API uint32_t qim_link_opt_get(uint32_t ses, qim_node_id_t node_id, uint32_t field,
                                  qim_link_t* link) {
  return get_link(node_id, link, "qim_link_opt_get", 1128, 1133,
                  [ses, field](rov_node_id_t id, rov_link_t* found) {
                    return rov_node_link_match(ses, id, field, QIM_LN_OPTIONAL, QIM_LN_OPTIONAL,
                                               kCodeWidth, found);
                  });
}
