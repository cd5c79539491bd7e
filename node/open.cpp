// Opening a node: from an identifier to a decoded record in a block of the library's own.
//
// The database is asked twice, for the node's parameters and then for its data, for only the
// parameters say how much room the data need. A caller that has the parameters saves the first.
// All blocks come from one call of the pool, which gives all of them or none.
#include <string.h>

#include "lib/export.h"
#include "lib/report.h"
#include "node/decode.h"
#include "node/memory.h"
#include "node/resolve.h"
#include "rov.h"

namespace qim::node {
namespace {

constexpr const char* kOpen = "qim_int_node_open";

// The blocks of one open. The TLV data and the name are scratch; the entry takes the private data
// over.
struct Blocks {
  void* tlv = nullptr;
  void* name = nullptr;
  void* priv = nullptr;
  void* entry = nullptr;
};

uint32_t fail(uint32_t status, int32_t line, qim_lib_ctx_t* lib) {
  report(status, kOpen, line, lib);
  return status;
}

uint32_t alloc_blocks(const rov_node_parms_t& parms, Blocks& blocks, qim_lib_ctx_t* lib) {
  const mem_request_t requests[] = {
      {parms.tlv_len, &blocks.tlv},
      {parms.dset_len, &blocks.name},
      {parms.priv_len, &blocks.priv},
      {sizeof(qim_node_cache_entry_t), &blocks.entry},
  };
  const uint32_t status = qim_mem_alloc_ary(sizeof(requests) / sizeof(requests[0]), requests, lib);
  if (status == ROV_OK) {
    // The record's counts and slots start from zero, whether the allocator clears its blocks or
    // not.
    memset(blocks.entry, 0, sizeof(qim_node_cache_entry_t));
  }
  return status;
}

void fill_header(const rov_node_parms_t& parms, uint32_t ses, qim_node_id_t node_id, void* priv,
                 qim_node_cache_entry_t* entry) {
  entry->ses = ses;
  entry->node.id = node_id;
  entry->node.links_total = parms.links;
  entry->node.links_unfixed = parms.links;
  entry->node.refs = parms.refs;
  entry->node.priv_len = parms.priv_len;
  entry->node.priv_buf = static_cast<uint8_t*>(priv);
  entry->node.priv_ptr = parms.priv_ptr;
}

// A data-set node has no TLV record: its name makes it a policy instance, or it is nothing but a
// header.
uint32_t decode_dset(const rov_node_parms_t& parms, const Blocks& blocks, uint32_t ses,
                     qim_node_t* node) {
  if (parms.dset_len == 0) {
    node->type = QIM_NODE_DSET_NONAME;
    return ROV_OK;
  }
  node->type = QIM_NODE_DSET;
  return qim_pinst_dsetname_get(ses, parms.dset_len, blocks.name, node);
}

uint32_t decode(const rov_node_parms_t& parms, const Blocks& blocks, uint32_t ses, qim_node_t* node,
                qim_lib_ctx_t* lib) {
  if ((parms.flags & ROV_NODE_DSET) != 0) {
    const uint32_t status = decode_dset(parms, blocks, ses, node);
    return status == ROV_OK ? uint32_t{ROV_OK} : fail(status, 541, lib);
  }
  const uint32_t status =
      qim_node_from_tlva(ses, parms.tlv_len, blocks.tlv, parms.dset_len, blocks.name, node);
  return status == ROV_OK ? uint32_t{ROV_OK} : fail(status, 549, lib);
}

// The type is looked at only after the cache has been offered the node; clients rely on the order
// of these reports.
uint32_t check_type(int32_t required, const qim_node_t& node, qim_lib_ctx_t* lib) {
  if (required == 0 || static_cast<uint32_t>(required) == node.type) return ROV_OK;
  qim_dbg_errors(QIM_ERR_INTERNAL, kOpen, 563, lib);
  return fail(QIM_ERR_NODE_TYPE, 564, lib);
}

// Reads and decodes the node into the blocks; *node_out is set only when all of it succeeded.
uint32_t load(uint32_t ses, qim_node_id_t node_id, rov_node_id_t rov_id,
              const rov_node_parms_t& parms, int32_t type, Blocks& blocks, qim_node_t** node_out,
              qim_lib_ctx_t* lib) {
  uint32_t status = alloc_blocks(parms, blocks, lib);
  if (status != ROV_OK) return fail(status, 517, lib);
  status = rov_node_data_get(ses, rov_id, parms.tlv_len, blocks.tlv, parms.dset_len, blocks.name,
                             parms.priv_len, blocks.priv);
  if (status != ROV_OK) return fail(status, 524, lib);
  auto* entry = static_cast<qim_node_cache_entry_t*>(blocks.entry);
  fill_header(parms, ses, node_id, blocks.priv, entry);
  status = decode(parms, blocks, ses, &entry->node, lib);
  if (status != ROV_OK) return status;
  // A node that the cache could not keep is no failure; a lock that failed would be.
  status = qim_node_cache_add(ses, entry, lib);
  if (status != ROV_OK) return fail(status, 556, lib);
  status = check_type(type, entry->node, lib);
  if (status == ROV_OK) *node_out = &entry->node;
  return status;
}

// Frees a block if there is one. The first failure of an open is the one it returns.
void release(void* block, int32_t line, uint32_t& status, qim_lib_ctx_t* lib) {
  if (block == nullptr) return;
  const uint32_t freed = qim_mem_free(block, lib);
  if (freed != 0) {
    report(freed, kOpen, line, lib);
    status = status != ROV_OK ? status : freed;
  }
}

// Frees the scratch, and after a failure the entry and the private data. What decoding allocated
// inside the record is not walked then: a record that failed to decode cannot be trusted to say
// what it owns.
uint32_t clean_up(const Blocks& blocks, const rov_node_parms_t& parms, bool opened, uint32_t status,
                  qim_lib_ctx_t* lib) {
  if (!opened) {
    release(blocks.entry, 574, status, lib);
    release(blocks.priv, 579, status, lib);
  }
  release(blocks.tlv, 585, status, lib);
  if (parms.dset_len != 0) release(blocks.name, 590, status, lib);
  return status;
}

}  // namespace
}  // namespace qim::node

QIM_API uint32_t qim_int_node_open(uint32_t ses, qim_node_id_t node_id,
                                   const rov_node_parms_t* parms, int32_t type,
                                   qim_node_t** node_out, qim_lib_ctx_t* lib) {
  using namespace qim::node;
  if (node_id == 0 && parms != nullptr) node_id = qim_from_rov_node_id(&parms->id);
  *node_out = nullptr;
  qim_node_cache_entry_t* cached = nullptr;
  uint32_t status = qim_node_cache_get(ses, node_id, &cached);
  if (status != ROV_OK) return fail(status, 486, lib);
  if (cached != nullptr) {
    *node_out = &cached->node;  // whatever its type: a cached node was checked when it was opened
    return ROV_OK;
  }
  rov_node_id_t rov_id;
  status = qim_to_rov_node_id(node_id, &rov_id);
  if (status != ROV_OK) return fail(status, 495, lib);
  rov_node_parms_t fetched;
  if (parms == nullptr) {
    memset(&fetched, 0, sizeof(fetched));
    status = rov_node_parms_get(ses, rov_id, &fetched);
    if (status != ROV_OK) return fail(status, 503, lib);
    parms = &fetched;
  }
  Blocks blocks;
  status = load(ses, node_id, rov_id, *parms, type, blocks, node_out, lib);
  // A node that opened stays opened when only its scratch could not be freed: the caller gets both
  // the node and the status, and decides.
  return clean_up(blocks, *parms, *node_out != nullptr, status, lib);
}
