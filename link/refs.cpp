// The nodes that refer to a node.
#include <stdlib.h>

#include "lib/export.h"
#include "lib/report.h"
#include "rov.h"

namespace {

constexpr const char* kGetAll = "qim_ref_get_all";

uint32_t fail(uint32_t status, int32_t line, qim_lib_ctx_t* ctx) {
  qim::report(status, kGetAll, line, ctx);
  return status;
}

// Fetches as many referrers as the node had when it was opened. What the database no longer holds
// stays zero in `scratch` and comes out as identifier 0.
uint32_t gather(uint32_t ses, const qim_node_t* node, rov_node_id_t* scratch, qim_node_id_t* refs,
                qim_lib_ctx_t* ctx) {
  rov_node_id_t id;
  uint32_t status = qim_to_rov_node_id(node->id, &id);
  if (status != 0) {
    return fail(status, 164, ctx);
  }
  status = rov_node_ref_get_all(ses, id, scratch, node->refs);
  if (status != 0) {
    return fail(status, 170, ctx);
  }
  for (uint32_t i = 0; i < node->refs; i++) {
    refs[i] = qim_from_rov_node_id(&scratch[i]);
  }
  return 0;
}

}  // namespace

QIM_API uint32_t qim_ref_get(uint32_t ses, qim_node_id_t node_id, uint32_t index,
                             qim_node_id_t* ref) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  *ref = 0;
  rov_node_id_t id;
  uint32_t status = qim_to_rov_node_id(node_id, &id);
  if (status != 0) {
    qim::report(status, "qim_ref_get", 92, ctx);
    return status;
  }
  uint32_t total = 0;
  uint32_t field = 0;
  rov_node_id_t found = {};
  status = rov_node_ref_get(ses, id, index, &total, &field, &found);
  if (status == ROV_ERR_NO_ITEM) {
    return 0;  // past the last referrer: callers walk until they get 0
  }
  if (status != 0) {
    qim::report(status, "qim_ref_get", 101, ctx);
    return status;
  }
  *ref = qim_from_rov_node_id(&found);
  return 0;
}

QIM_API uint32_t qim_node_ref_get(uint32_t ses, qim_node_id_t node_id, uint32_t index,
                                  qim_node_id_t* ref) {
  return qim_ref_get(ses, node_id, index, ref);
}

QIM_API uint32_t qim_ref_get_all(uint32_t ses, const qim_node_t* node, qim_node_id_t** refs,
                                 uint32_t* count) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  *refs = nullptr;
  *count = 0;
  if (node->refs == 0) {
    return 0;
  }
  auto* scratch = static_cast<rov_node_id_t*>(calloc(node->refs, sizeof(rov_node_id_t)));
  if (scratch == nullptr) {
    return fail(QIM_ERR_NO_MEM, 141, ctx);
  }
  auto* found = static_cast<qim_node_id_t*>(malloc(node->refs * sizeof(qim_node_id_t)));
  if (found == nullptr) {
    free(scratch);
    return fail(QIM_ERR_NO_MEM, 152, ctx);
  }
  const uint32_t status = gather(ses, node, scratch, found, ctx);
  free(scratch);
  if (status != 0) {
    free(found);
    return status;
  }
  *refs = found;
  *count = node->refs;
  return 0;
}
