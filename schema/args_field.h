// Byte-string fields: a pointer and, in another member, its length. Both are given by their
// positions in the record.
#pragma once

#include "qim.h"
#include "rov.h"

namespace qim::schema {

// A byte string as a record holds it.
struct Args {
  uint8_t* bytes;
  uint32_t length;
};

inline uint8_t** bytes_at(void* record, uint32_t at) {
  return reinterpret_cast<uint8_t**>(static_cast<char*>(record) + at);
}

inline uint32_t* length_at(void* record, uint32_t at) {
  return reinterpret_cast<uint32_t*>(static_cast<char*>(record) + at);
}

inline Args args_at(const void* record, uint32_t at, uint32_t length) {
  const char* from = static_cast<const char*>(record);
  return {*reinterpret_cast<uint8_t* const*>(from + at),
          *reinterpret_cast<const uint32_t*>(from + length)};
}

template <uint32_t at, uint32_t length>
uint32_t args_encode(const void* record, void**, void* out, uint32_t* len, uint32_t* done) {
  const Args args = args_at(record, at, length);
  return rov_cpy_fld_to_tlv(args.bytes, args.length, out, len, done);
}

// Buffers come from the calling thread's own pool.
template <uint32_t at, uint32_t length>
uint32_t args_decode(void* record, const void* value, uint32_t len, void**) {
  return rov_tlv_to_bufptr(reinterpret_cast<void**>(bytes_at(record, at)),
                           length_at(record, length), &qim_lib_get()->db_parms.mem, value, len);
}

template <uint32_t at, uint32_t length>
uint32_t args_size(const void* record) {
  return args_at(record, at, length).length;
}

}  // namespace qim::schema
