// Chunks of referrers as bytes: the value of a record of the referrers table, see keys.h.
#ifndef DATABASE_RECORD_REFERRER_CHUNK_H
#define DATABASE_RECORD_REFERRER_CHUNK_H

#include "database/record/keys.h"
#include "database/record/reference.h"

namespace rov {

struct Referrer {
  uint32_t node;
  uint16_t field;  // the lowest field code by which it refers
};

// Each works on a value with room for what it leaves behind.
void chunk_start(uint8_t* value);
// A chunk of references to one target, in the order of their owners.
void chunk_fill(uint8_t* value, const Reference* from, uint32_t count);
void chunk_set_more(uint8_t* value, bool more);
void chunk_insert(uint8_t* value, uint32_t at, Referrer referrer);
void chunk_remove(uint8_t* value, uint32_t at);
void chunk_set_field(uint8_t* value, uint32_t at, uint16_t field);
// Writes the referrers from number `from` on of another chunk.
void chunk_copy_from(uint8_t* value, const Chunk& chunk, uint32_t from);
// Keeps the first `count` referrers.
void chunk_keep(uint8_t* value, uint32_t count);

}  // namespace rov

#endif
