// The nodes that refer to a node.
#include <stdlib.h>
#include <string.h>

#include "lib/export.h"
#include "lib/report.h"
#include "rov.h"

namespace {

constexpr const char* kGetAll = "qim_ref_get_all";

uint32_t fail(uint32_t status, int32_t line, qim_lib_ctx_t* ctx) {
  qim::report(status, kGetAll, line, ctx);
  return status;
}

// The scratch array comes from calloc and the caller's from malloc, and who lets allocations fail
// tells them apart by that: a compiler that saw this beside malloc would make one calloc of both.
__attribute__((noinline)) void clear(qim_node_id_t* refs, uint32_t total) {
  memset(refs, 0, total * sizeof(*refs));
}

// Fetches as many referrers as the node had when it was opened. What the database no longer holds
// stays zero in `scratch` and comes out as identifier 0. The outputs are set before the database is
// asked, so that a logger that looks at them during a report finds a whole array.
uint32_t gather(uint32_t ses, const qim_node_t* node, rov_node_id_t* scratch, qim_node_id_t** refs,
                uint32_t* count, qim_lib_ctx_t* ctx) {
  const uint32_t total = node->refs;
  *count = total;
  auto* found = static_cast<qim_node_id_t*>(malloc(total * sizeof(qim_node_id_t)));
  if (found == nullptr) return fail(QIM_ERR_NO_MEM, 152, ctx);
  clear(found, total);
  *refs = found;
  rov_node_id_t id;
  uint32_t status = qim_to_rov_node_id(node->id, &id);
  if (status != ROV_OK) return fail(status, 164, ctx);
  status = rov_node_ref_get_all(ses, id, scratch, total);
  if (status != ROV_OK) return fail(status, 170, ctx);
  for (uint32_t i = 0; i < total; i++) found[i] = qim_from_rov_node_id(&scratch[i]);
  return ROV_OK;
}

// A failure leaves the caller nothing to free.
void take_back(qim_node_id_t** refs, uint32_t* count) {
  if (*refs != nullptr) {
    free(*refs);
    *refs = nullptr;
  }
  *count = 0;
}

}  // namespace

QIM_API uint32_t qim_ref_get(uint32_t ses, qim_node_id_t node_id, uint32_t index,
                             qim_node_id_t* ref) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  *ref = 0;
  rov_node_id_t id;
  uint32_t status = qim_to_rov_node_id(node_id, &id);
  if (status != ROV_OK) {
    qim::report(status, "qim_ref_get", 92, ctx);
    return status;
  }
  uint32_t total = 0;
  uint32_t field = 0;
  rov_node_id_t found = {};
  status = rov_node_ref_get(ses, id, index, &total, &field, &found);
  if (status == ROV_ERR_NO_ITEM) {
    return ROV_OK;  // past the last referrer: callers walk until they get 0
  }
  if (status != ROV_OK) {
    qim::report(status, "qim_ref_get", 101, ctx);
    return status;
  }
  *ref = qim_from_rov_node_id(&found);
  return ROV_OK;
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
  if (node->refs == 0) return ROV_OK;
  auto* scratch = static_cast<rov_node_id_t*>(calloc(node->refs, sizeof(rov_node_id_t)));
  if (scratch == nullptr) return fail(QIM_ERR_NO_MEM, 141, ctx);
  const uint32_t status = gather(ses, node, scratch, refs, count, ctx);
  if (status != ROV_OK) take_back(refs, count);
  free(scratch);
  return status;
}
