// Freeing an open node with all that it owns.
//
// A node whose pointers and lengths disagree is not freed further: what they lead to cannot be
// trusted, and memory that is lost does less harm than memory that is freed twice.
#include "lib/export.h"
#include "lib/report.h"
#include "node/memory.h"
#include "rov.h"
#include "schema/args_field.h"
#include "schema/rows.h"

namespace qim::node {
namespace {

constexpr const char* kDestroy = "qim_lib_node_destroy";

uint32_t free_block(void* block, int32_t line, qim_lib_ctx_t* lib) {
  const uint32_t status = qim_mem_free(block, lib);
  if (status != ROV_OK) report(status, kDestroy, line, lib);
  return status;
}

// Arguments have both a buffer and a length, or neither.
uint32_t free_args(void* args, uint32_t args_len, int32_t line, qim_lib_ctx_t* lib) {
  if ((args != nullptr) != (args_len != 0)) {
    qim_dbg_errors(QIM_ERR_INTERNAL, kDestroy, line, lib);
    return QIM_ERR_INTERNAL;
  }
  return args == nullptr ? 0 : free_block(args, line + 5, lib);
}

uint32_t free_criteria(qim_criterion_t* crit, int32_t line, qim_lib_ctx_t* lib) {
  while (crit != nullptr) {
    qim_criterion_t* next = crit->next;
    uint32_t status = free_args(crit->args, crit->args_len, line, lib);
    if (status != ROV_OK) return status;
    status = free_block(crit, line + 11, lib);
    if (status != ROV_OK) return status;
    crit = next;
  }
  return ROV_OK;
}

// Frees what decoding allocated for the body.
uint32_t free_body(qim_node_t& node, qim_lib_ctx_t* lib) {
  const schema::NodeType* type = schema::node_type(node.type);
  if (type == nullptr) return ROV_OK;
  if (const schema::Row* row = schema::args_of(*type)) {
    const schema::Args args = schema::args_at(&node.body, row->position, row->length_at);
    return free_args(args.bytes, args.length, type->lines.free, lib);
  }
  if (schema::list_of(*type) != nullptr) {
    return free_criteria(node.body.filter.crit, type->lines.free, lib);
  }
  return ROV_OK;
}

}  // namespace
}  // namespace qim::node

QIM_API uint32_t qim_lib_node_destroy(qim_node_cache_entry_t* entry, qim_lib_ctx_t* lib) {
  using namespace qim::node;
  qim_node_t& node = entry->node;
  uint32_t status = free_body(node, lib);
  if (status != ROV_OK) return status;
  // Lengths from 2^31 on count as none: no database keeps private data of that size.
  if (static_cast<int32_t>(node.priv_len) > 0 && node.priv_buf != nullptr) {
    status = free_block(node.priv_buf, 682, lib);
    if (status != ROV_OK) return status;
  }
  return free_block(entry, 688, lib);
}
