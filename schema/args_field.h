// Byte-string fields: a pointer `args` with its length in `args_len`.
#pragma once

#include "qim.h"
#include "rov.h"

namespace qim::schema {

template <class T>
uint32_t args_encode(const void* record, void**, void* out, uint32_t* len, uint32_t* done) {
  const T* rec = static_cast<const T*>(record);
  return rov_cpy_fld_to_tlv(rec->args, rec->args_len, out, len, done);
}

// Buffers come from the calling thread's own pool.
template <class T>
uint32_t args_decode(void* record, const void* value, uint32_t len, void**) {
  T* rec = static_cast<T*>(record);
  return rov_tlv_to_bufptr(reinterpret_cast<void**>(&rec->args), &rec->args_len,
                           &qim_lib_get()->db_parms.mem, value, len);
}

template <class T>
uint32_t args_size(const void* record) {
  return static_cast<const T*>(record)->args_len;
}

}  // namespace qim::schema
