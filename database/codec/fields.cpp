// The helpers of callbacks that code byte strings.
#include <cstring>

#include "database/base/error.h"
#include "database/codec/codec.h"
#include "database/codec/journal.h"
#include "database/memory/pool.h"
#include "mem.h"
#include "rov.h"

using tlv::missing;

namespace {

constexpr uint32_t kFew = 16;

// Copies 1 to kFew bytes, by stores that may overlap: most values are few bytes, for which a call
// of memcpy takes longer than copying them.
inline void copy_few(void* to, const void* from, uint32_t len) {
  auto* const out = static_cast<uint8_t*>(to);
  const auto* const in = static_cast<const uint8_t*>(from);
  if (len >= 8) {
    const auto last = rov::load<uint64_t>(in + len - 8);
    rov::store(out, rov::load<uint64_t>(in));
    rov::store(out + len - 8, last);
  } else if (len >= 4) {
    const auto last = rov::load<uint32_t>(in + len - 4);
    rov::store(out, rov::load<uint32_t>(in));
    rov::store(out + len - 4, last);
  } else {
    const uint8_t middle = in[len / 2];
    const uint8_t last = in[len - 1];
    out[0] = in[0];
    out[len / 2] = middle;
    out[len - 1] = last;
  }
}

// A zero-filled block for a value, which the thread's journal knows if there is one; nullptr, and
// why in *status.
void* make_block(uint32_t len, rov_mem_ctx_t* pool, uint32_t* status) {
  void* block = nullptr;
  *status = tlv::Journal::reserve() ? mem_zalloc(len, pool, &block) : uint32_t{ROV_ERR_NO_MEM};
  if (block == nullptr) {
    rov::fail(*status, rov::Note::kNoMemory, len);
    return nullptr;
  }
  tlv::Journal::enter(block, len);
  return block;
}

[[gnu::noinline]] uint32_t copy_to_block(void** buf, uint32_t* buf_len, rov_mem_ctx_t* pool,
                                         const void* value, uint32_t len) {
  if (buf == nullptr) return missing(1);
  if (buf_len == nullptr) return missing(2);
  if (value == nullptr && len > 0) return missing(4);
  void* block = nullptr;
  if (len > 0) {
    uint32_t status = ROV_OK;
    block = make_block(len, pool, &status);
    if (block == nullptr) return status;
    std::memcpy(block, value, len);
  }
  *buf = block;
  *buf_len = len;
  return ROV_OK;
}

[[gnu::noinline]] uint32_t copy_to_value(const void* field, uint32_t field_len, void* out,
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

}  // namespace

// Few bytes, nothing out of the ordinary: mostly so, and done without a call.

extern "C" uint32_t rov_cpy_fld_to_tlv(const void* field, uint32_t field_len, void* out,
                                       uint32_t* len, uint32_t* done) {
  const bool given = field != nullptr && out != nullptr && len != nullptr && done != nullptr;
  if (!given || field_len - 1 >= kFew || field_len > *len) {
    return copy_to_value(field, field_len, out, len, done);
  }
  copy_few(out, field, field_len);
  *len = field_len;
  *done = 1;
  return ROV_OK;
}

extern "C" uint32_t rov_tlv_to_bufptr(void** buf, uint32_t* buf_len, rov_mem_ctx_t* pool,
                                      const void* value, uint32_t len) {
  const bool given = buf != nullptr && buf_len != nullptr && value != nullptr;
  if (given && len - 1 < kFew && !tlv::Journal::is_kept()) {
    void* block = mem::take_at_hand(len, pool);
    if (block != nullptr) {
      copy_few(block, value, len);
      *buf = block;
      *buf_len = len;
      return ROV_OK;
    }
  }
  return copy_to_block(buf, buf_len, pool, value, len);
}
