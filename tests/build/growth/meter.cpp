// The arguments of a meter. A node type that is tried in a copy of the tree; this is all the code
// that it takes.
#include "lib/export.h"
#include "query/args.h"

QIM_API uint32_t qim_meter_arg_get(uint32_t ses, qim_node_id_t node_id, uint32_t buf_len,
                                   void* buf) {
  return qim::query::args_get(ses, node_id, QIM_NODE_METER, buf_len, buf);
}
