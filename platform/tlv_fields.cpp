// The helpers of callbacks that code byte strings.
#include <cstring>

#include "mem.h"
#include "platform/error.h"
#include "platform/tlv_codec.h"
#include "platform/tlv_journal.h"
#include "rov.h"

using tlv::missing;

extern "C" uint32_t rov_cpy_fld_to_tlv(const void* field, uint32_t field_len, void* out,
                                       uint32_t* len, uint32_t* done) {
  if (field == nullptr && field_len > 0) return missing(1);
  if (out == nullptr && field_len > 0) return missing(3);
  if (len == nullptr) return missing(4);
  if (done == nullptr) return missing(5);
  if (field_len > *len) {
    return rov::fail(ROV_ERR_TLV_ROOM, rov::Note::kBuffer, *len, field_len);
  }
  if (field_len > 0) std::memcpy(out, field, field_len);
  *len = field_len;
  *done = 1;
  return ROV_OK;
}

extern "C" uint32_t rov_tlv_to_bufptr(void** buf, uint32_t* buf_len, rov_mem_ctx_t* pool,
                                      const void* value, uint32_t len) {
  if (buf == nullptr) return missing(1);
  if (buf_len == nullptr) return missing(2);
  if (value == nullptr && len > 0) return missing(4);
  void* copy = nullptr;
  if (len > 0) {
    const uint32_t status =
        tlv::Journal::reserve() ? mem_zalloc(len, pool, &copy) : uint32_t{ROV_ERR_NO_MEM};
    if (status != ROV_OK) return rov::fail(status, rov::Note::kNoMemory, len);
    std::memcpy(copy, value, len);
    tlv::Journal::enter(copy, len);
  }
  *buf = copy;
  *buf_len = len;
  return ROV_OK;
}
