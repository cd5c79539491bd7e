// The arguments of actions and defaults.
#include "query/args.h"

#include <string.h>

#include "lib/export.h"
#include "lib/report.h"
#include "rov.h"
#include "schema/args_field.h"
#include "schema/rows.h"

namespace qim::query {
namespace {

constexpr const char* kArgGet = "qim_node_arg_get";

}  // namespace

// A buffer that is too small is reported but answered with success and left untouched: callers that
// care look at the length first.
uint32_t args_get(uint32_t ses, qim_node_id_t node_id, uint32_t type, uint32_t buf_len, void* buf) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  qim_node_t* node = nullptr;
  const uint32_t status =
      qim_int_node_open(ses, node_id, nullptr, static_cast<int32_t>(type), &node, ctx);
  if (status != ROV_OK) {
    report(status, kArgGet, 279, ctx);
    return status;
  }
  const schema::Row* row = schema::args_of(*schema::node_type(type));
  const schema::Args args = schema::args_at(&node->body, row->position, row->length_at);
  if (buf_len < args.length) {
    report(QIM_ERR_BUF_SMALL, kArgGet, 284, ctx);
  } else if (args.length != 0) {
    memcpy(buf, args.bytes, args.length);
  }
  qim_int_node_close(node, ctx);
  return ROV_OK;
}

}  // namespace qim::query

QIM_API uint32_t qim_action_arg_get(uint32_t ses, qim_node_id_t node_id, uint32_t buf_len,
                                    void* buf) {
  return qim::query::args_get(ses, node_id, QIM_NODE_ACTION, buf_len, buf);
}

QIM_API uint32_t qim_def_arg_get(uint32_t ses, qim_node_id_t node_id, uint32_t buf_len, void* buf) {
  return qim::query::args_get(ses, node_id, QIM_NODE_DEF, buf_len, buf);
}
