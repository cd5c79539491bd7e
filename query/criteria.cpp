// A filter's criteria, rebuilt as a list inside the caller's buffer: the client frees nothing.
//
// A filter says beforehand how much room they take at most (crit_bytes), at any alignment that the
// buffer may have; a list that still does not fit was decoded from lengths that no filter has.
#include <string.h>

#include "lib/export.h"
#include "lib/report.h"
#include "qim.h"
#include "query/align.h"
#include "rov.h"

namespace qim::query {
namespace {

constexpr const char* kCriteriaGet = "qim_filter_criteria_get";

uint32_t fail(uint32_t status, int32_t line, qim_lib_ctx_t* ctx) {
  report(status, kCriteriaGet, line, ctx);
  return status;
}

// Writes each criterion and, at the next multiple of 8, its arguments; the next criterion follows
// at a multiple of 8. What was written stays when one does not fit.
uint32_t write_criteria(const qim_criterion_t* crit, uint32_t buf_len, void* buf,
                        qim_lib_ctx_t* ctx) {
  auto at = reinterpret_cast<uintptr_t>(buf);
  const uintptr_t end = at + buf_len;
  qim_criterion_t** link = nullptr;
  for (; crit != nullptr; crit = crit->next) {
    const uintptr_t args = qim_align8(at + sizeof(qim_criterion_t));
    // Compared as room first: where addresses have 32 bits the end of the arguments may wrap
    // around.
    if (args > end || crit->args_len > end - args || qim_align8(args + crit->args_len) > end) {
      return fail(QIM_ERR_INTERNAL, 240, ctx);
    }
    auto* record = reinterpret_cast<qim_criterion_t*>(at);
    *record = {nullptr, crit->type, crit->args_len, reinterpret_cast<uint8_t*>(args)};
    if (crit->args_len != 0) memcpy(record->args, crit->args, crit->args_len);
    if (link != nullptr) *link = record;
    link = &record->next;
    at = qim_align8(args + crit->args_len);
  }
  return ROV_OK;
}

// Records are written at the very start of the buffer, so it needs their alignment.
uint32_t copy_out(const qim_filter_t& filter, uint32_t buf_len, void* buf, qim_lib_ctx_t* ctx) {
  if (buf_len < filter.crit_bytes) return fail(QIM_ERR_BUF_SMALL, 214, ctx);
  if (reinterpret_cast<uintptr_t>(buf) % alignof(qim_criterion_t) != 0) {
    return fail(QIM_ERR_INVALID, 218, ctx);
  }
  if (buf_len != 0) memset(buf, 0, buf_len);
  return write_criteria(filter.crit, buf_len, buf, ctx);
}

}  // namespace
}  // namespace qim::query

QIM_API uint32_t qim_filter_criteria_get(uint32_t ses, qim_node_id_t node_id, uint32_t buf_len,
                                         void* buf) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  qim_node_t* node = nullptr;
  uint32_t status = qim_int_node_open(ses, node_id, nullptr, QIM_NODE_FILTER, &node, ctx);
  if (status != ROV_OK) return qim::query::fail(status, 209, ctx);
  status = qim::query::copy_out(node->body.filter, buf_len, buf, ctx);
  qim_int_node_close(node, ctx);
  return status;
}
