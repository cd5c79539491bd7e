// The arguments of actions and defaults.
#include <stddef.h>
#include <string.h>

#include "lib/export.h"
#include "lib/report.h"
#include "qim.h"

namespace {

constexpr const char* kArgGet = "qim_node_arg_get";

// Both record kinds have a length and a pointer, but at different places: named by their positions,
// they can be served by one function.
template <class T>
T member_at(const qim_node_t* node, size_t position) {
  T value;
  memcpy(&value, reinterpret_cast<const char*>(node) + position, sizeof(value));
  return value;
}

// A buffer that is too small is reported but answered with success and left untouched: callers that
// care look at the length first.
uint32_t qim_node_arg_get(uint32_t ses, qim_node_id_t node_id, int32_t type, size_t len_position,
                          size_t args_position, uint32_t buf_len, void* buf) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  qim_node_t* node = nullptr;
  const uint32_t status = qim_int_node_open(ses, node_id, nullptr, type, &node, ctx);
  if (status != 0) {
    qim::report(status, kArgGet, 279, ctx);
    return status;
  }
  const auto len = member_at<uint32_t>(node, len_position);
  if (buf_len < len) {
    qim::report(QIM_ERR_BUF_SMALL, kArgGet, 284, ctx);
  } else if (len != 0) {
    memcpy(buf, member_at<const uint8_t*>(node, args_position), len);
  }
  qim_int_node_close(node, ctx);
  return 0;
}

}  // namespace

QIM_API uint32_t qim_action_arg_get(uint32_t ses, qim_node_id_t node_id, uint32_t buf_len,
                                    void* buf) {
  return qim_node_arg_get(ses, node_id, QIM_NODE_ACTION, offsetof(qim_node_t, body.action.args_len),
                          offsetof(qim_node_t, body.action.args), buf_len, buf);
}

QIM_API uint32_t qim_def_arg_get(uint32_t ses, qim_node_id_t node_id, uint32_t buf_len, void* buf) {
  return qim_node_arg_get(ses, node_id, QIM_NODE_DEF, offsetof(qim_node_t, body.def.args_len),
                          offsetof(qim_node_t, body.def.args), buf_len, buf);
}
