// A policy instance's enforcement destinations, one by one.
#include "lib/export.h"
#include "lib/report.h"
#include "qim.h"
#include "rov.h"

namespace {

constexpr const char* kGetInt = "qim_pinst_edest_get_int";

// Looks at the i-th referrer: sets *found when it is the n-th enforcement destination, and counts
// the earlier ones.
uint32_t try_referrer(uint32_t ses, qim_node_id_t ref, uint32_t n, qim_node_t* out, uint32_t* count,
                      bool* found, qim_lib_ctx_t* ctx) {
  qim_node_t* node = nullptr;
  uint32_t status = qim_int_node_open(ses, ref, nullptr, 0, &node, ctx);
  if (status != ROV_OK) {
    qim::report(status, kGetInt, 1817, ctx);
    return status;
  }
  if (node->type == QIM_NODE_EDEST) {
    if (*count == n) {
      if (out != nullptr) qim_node_cp(ses, node, out);
      *found = true;
    } else {
      ++*count;
    }
  }
  status = qim_int_node_close(node, ctx);
  if (status != ROV_OK) qim::report(status, kGetInt, 1830, ctx);
  return status;
}

}  // namespace

// Nothing tests for the end: past the last referrer the identifier is 0, and opening that fails.
QIM_API uint32_t qim_pinst_edest_get_int(uint32_t ses, qim_node_id_t pinst_id, uint32_t n,
                                         qim_node_t* out, uint32_t* count) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  *count = 0;
  bool found = false;
  for (uint32_t i = 0; !found; i++) {
    qim_node_id_t ref = 0;
    uint32_t status = qim_node_ref_get(ses, pinst_id, i, &ref);
    if (status != ROV_OK) {
      qim::report(status, kGetInt, 1814, ctx);
      return status;
    }
    status = try_referrer(ses, ref, n, out, count, &found, ctx);
    if (status != ROV_OK) return status;
  }
  return ROV_OK;
}

// For clients that walk the destinations and count for themselves.
QIM_API uint32_t qim_pinst_edest_get(uint32_t ses, qim_node_id_t pinst_id, uint32_t n,
                                     qim_node_t* out) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  uint32_t count = 0;
  const uint32_t status = qim_pinst_edest_get_int(ses, pinst_id, n, out, &count);
  if (status != ROV_OK) qim::report(status, "qim_pinst_edest_get", 681, ctx);
  return status;
}
