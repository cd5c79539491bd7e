// The policy instance behind a data set. The database fills in the node's parameters, so the read
// needs no query of its own for them.
#include <string.h>

#include "lib/export.h"
#include "lib/report.h"
#include "rov.h"

namespace {

// Asks the database with `query` for the parameters of a data set's node, and reads that node.
template <class Query>
uint32_t read_dset(uint32_t ses, qim_node_t* out, const char* function, int32_t line,
                   qim_lib_ctx_t* ctx, Query query) {
  rov_node_parms_t parms;
  memset(&parms, 0, sizeof(parms));
  const uint32_t status = query(&parms);
  if (status != ROV_OK) {
    qim::report(status, function, line, ctx);
    return status;
  }
  return qim_node_read_int(ses, 0, &parms, 0, out);
}

}  // namespace

QIM_API uint32_t qim_ses_pinst_get(uint32_t ses, uint32_t selector, qim_node_t* out) {
  return read_dset(
      ses, out, "qim_ses_pinst_get", 86, qim_lib_get(),
      [ses, selector](rov_node_parms_t* parms) { return rov_ses_dset_get(ses, selector, parms); });
}

// Asks through the session itself; the lookup of enforcement destinations asks through its base
// session.
QIM_API uint32_t qim_ses_pinst_name_get(uint32_t ses, const qim_pinst_t* pinst, qim_node_t* out) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  qim_dsetname_t name;
  qim_pinst_to_dsetname(&pinst->fields, &name);
  return read_dset(ses, out, "qim_ses_pinst_name_get", 151, ctx,
                   [ses, &name](rov_node_parms_t* parms) {
                     return rov_ses_dset_name_get(ses, sizeof(name), &name, parms);
                   });
}

QIM_API uint32_t qim_node_pinst_get(uint32_t ses, qim_node_id_t node_id, uint32_t selector,
                                    qim_node_t* out) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  rov_node_id_t id;
  const uint32_t status = qim_to_rov_node_id(node_id, &id);
  if (status != ROV_OK) {
    qim::report(status, "qim_node_pinst_get", 633, ctx);
    return status;
  }
  return read_dset(ses, out, "qim_node_pinst_get", 639, ctx,
                   [ses, id, selector](rov_node_parms_t* parms) {
                     return rov_node_dset_get(ses, id, selector, parms);
                   });
}
