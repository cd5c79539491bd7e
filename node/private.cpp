// Clients' private data on nodes. The database keeps it; the cache only has to stay true to it.
#include "lib/export.h"
#include "lib/report.h"
#include "rov.h"

namespace {

// A function's name and the lines at which it reports a failing cache and an identifier of 0.
struct Caller {
  const char* function;
  int32_t cache_line;
  int32_t id_line;
};

uint32_t to_rov_id(qim_node_id_t node, rov_node_id_t* id, const Caller& caller,
                   qim_lib_ctx_t* ctx) {
  const uint32_t status = qim_to_rov_node_id(node, id);
  if (status != ROV_OK) qim::report(status, caller.function, caller.id_line, ctx);
  return status;
}

// Before a write the node leaves the cache, so that no stale copy outlives it; the next open reads
// the database.
uint32_t begin_write(uint32_t ses, qim_node_id_t node, rov_node_id_t* id, const Caller& caller) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  const uint32_t status = qim_node_cache_rm(ses, node, ctx);
  if (status != ROV_OK) {
    qim::report(status, caller.function, caller.cache_line, ctx);
    return status;
  }
  return to_rov_id(node, id, caller, ctx);
}

// A read is answered by the cache if it holds the node: *entry is set then, and *id otherwise.
uint32_t begin_read(uint32_t ses, qim_node_id_t node, qim_node_cache_entry_t** entry,
                    rov_node_id_t* id, const Caller& caller) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  const uint32_t status = qim_node_cache_get(ses, node, entry);
  if (status != ROV_OK) {
    qim::report(status, caller.function, caller.cache_line, ctx);
    return status;
  }
  return *entry != nullptr ? 0 : to_rov_id(node, id, caller, ctx);
}

}  // namespace

QIM_API uint32_t qim_node_priv_set(uint32_t ses, qim_node_id_t node, const void* data,
                                   uint32_t len) {
  rov_node_id_t id;
  const uint32_t status = begin_write(ses, node, &id, {"qim_node_priv_set", 1370, 1373});
  return status != ROV_OK ? status : rov_node_priv_set(ses, &id, data, len);
}

QIM_API uint32_t qim_node_priv_get(uint32_t ses, qim_node_id_t node, uint32_t len, void* buf) {
  qim_node_cache_entry_t* entry = nullptr;
  rov_node_id_t id;
  const uint32_t status = begin_read(ses, node, &entry, &id, {"qim_node_priv_get", 1410, 1418});
  if (status != ROV_OK) return status;
  if (entry != nullptr) return rov_data_cpy(len, buf, entry->node.priv_len, entry->node.priv_buf);
  return rov_node_data_get(ses, id, 0, nullptr, 0, nullptr, len, buf);
}

QIM_API uint32_t qim_node_priv_ptr_set(uint32_t ses, qim_node_id_t node, void* ptr) {
  rov_node_id_t id;
  const uint32_t status = begin_write(ses, node, &id, {"qim_node_priv_ptr_set", 1464, 1467});
  return status != ROV_OK ? status : rov_node_priv_ptr_set(ses, &id, ptr);
}

QIM_API uint32_t qim_node_priv_ptr_get(uint32_t ses, qim_node_id_t node, void** out) {
  qim_node_cache_entry_t* entry = nullptr;
  rov_node_id_t id;
  const uint32_t status = begin_read(ses, node, &entry, &id, {"qim_node_priv_ptr_get", 1501, 1507});
  if (status != ROV_OK) return status;
  if (entry != nullptr) {
    *out = reinterpret_cast<void*>(entry->node.priv_ptr);
    return ROV_OK;
  }
  return rov_node_priv_ptr_get(ses, &id, out);
}
