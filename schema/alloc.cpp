// The allocator of decoded records and of what hangs in them: the context's pool.
#include "lib/export.h"
#include "lib/report.h"
#include "mem.h"
#include "rov.h"

QIM_API uint32_t qim_tlv_struct_alloc(uint32_t size, void** out, uint32_t* out_size) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  *out = nullptr;
  *out_size = 0;
  // The outputs are clear until the block is there, whatever the allocator does to its own.
  void* block = nullptr;
  const uint32_t status = mem_zalloc(size, &ctx->db_parms.mem, &block);
  if (status != ROV_OK) {
    qim::report(status, "qim_tlv_struct_alloc", 51, ctx);
    return status;
  }
  *out_size = size;
  *out = block;
  return ROV_OK;
}
