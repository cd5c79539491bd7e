// Reading a node into a client's record: opened, copied, closed, so that clients never hold what is
// the library's.
#include "lib/export.h"
#include "lib/report.h"
#include "mem.h"
#include "qim.h"
#include "rov.h"

QIM_API uint32_t qim_node_read_int(uint32_t ses, qim_node_id_t node_id,
                                   const rov_node_parms_t* parms, int32_t type, qim_node_t* dst) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  // A client that ignores the status finds an empty record and not what was there before.
  memset_s(dst, sizeof(*dst), 0, sizeof(*dst));
  if (node_id == 0 && parms != nullptr) node_id = qim_from_rov_node_id(&parms->id);
  qim_node_t* node = nullptr;
  uint32_t status = qim_int_node_open(ses, node_id, parms, type, &node, ctx);
  if (status != ROV_OK) {
    // Even when only a scratch buffer could not be freed and a node came back: callers get nothing
    // of a failed open.
    qim::report(status, "qim_node_read_int", 1301, ctx);
    return status;
  }
  status = qim_node_cp(ses, node, dst);
  if (status != ROV_OK) qim::report(status, "qim_node_read_int", 1307, ctx);
  // The node is closed whatever became of the copy, whose failure comes first.
  const uint32_t closed = qim_int_node_close(node, ctx);
  status = status != ROV_OK ? status : closed;
  if (status != ROV_OK) qim::report(status, "qim_node_read_int", 1315, ctx);
  return status;
}

QIM_API uint32_t qim_node_read(uint32_t ses, qim_node_id_t node_id, int32_t type, qim_node_t* dst) {
  return qim_node_read_int(ses, node_id, nullptr, type, dst);
}

// Both names are entry points of clients that expect no difference between them.
QIM_API uint32_t qim_node_read_no_nedest(uint32_t ses, qim_node_id_t node_id, int32_t type,
                                         qim_node_t* dst) {
  return qim_node_read_int(ses, node_id, nullptr, type, dst);
}
