// The checksum that every stored value begins with.
#ifndef DATABASE_RECORD_CHECKSUM_H
#define DATABASE_RECORD_CHECKSUM_H

#include "database/base/bytes.h"
#include "database/base/crc32c.h"

namespace rov {

// Over the value's key and what follows its first four bytes.
inline uint32_t record_crc(Bytes key, Bytes value) {
  // A node's number is seed enough, and saves a call on the read path.
  const uint32_t seed = key.len == 4 ? load_be32(key.data) : crc32c(0, key.data, key.len);
  return crc32c(seed, value.data + 4, value.len - 4);
}

}  // namespace rov

#endif
