// The pool functions with the context's own pool. A node is freed through the context that its
// close is given, which must name the pool that its open took it from.
#pragma once

#include "mem.h"
#include "qim.h"

namespace qim::node {

inline uint32_t qim_mem_free(void* block, qim_lib_ctx_t* lib) {
  return mem_free(block, &lib->db_parms.mem);
}

inline uint32_t qim_mem_alloc_ary(uint32_t count, const mem_request_t* requests,
                                  qim_lib_ctx_t* lib) {
  return mem_alloc_ary(count, requests, &lib->db_parms.mem);
}

}  // namespace qim::node
