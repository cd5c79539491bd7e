#include "database/record/referrer_chunk.h"

namespace rov {
namespace {

uint32_t count_of(const uint8_t* value) {
  return load<uint16_t>(value + 4);
}

void set_count(uint8_t* value, uint32_t count) {
  store(value + 4, static_cast<uint16_t>(count));
}

// The fields lie behind the identifiers, so they move whenever there are more or fewer of these.
uint8_t* ids_of(uint8_t* value) {
  return value + kChunkHead;
}
uint8_t* fields_of(uint8_t* value, uint32_t count) {
  return ids_of(value) + size_t{4} * count;
}

}  // namespace

void chunk_start(uint8_t* value) {
  memset(value, 0, kChunkHead);
}

void chunk_fill(uint8_t* value, const Reference* from, uint32_t count) {
  chunk_start(value);
  set_count(value, count);
  for (uint32_t at = 0; at < count; ++at) {
    store(ids_of(value) + size_t{4} * at, from[at].owner);
    store(fields_of(value, count) + size_t{2} * at, static_cast<uint16_t>(from[at].field));
  }
}

void chunk_set_more(uint8_t* value, bool more) {
  store<uint16_t>(value + 6, more ? 1 : 0);
}

void chunk_insert(uint8_t* value, uint32_t at, Referrer referrer) {
  const uint32_t count = count_of(value);
  uint8_t* ids = ids_of(value);
  const uint8_t* from = fields_of(value, count);
  uint8_t* fields = fields_of(value, count + 1);
  memmove(fields + size_t{2} * (at + 1), from + size_t{2} * at, size_t{2} * (count - at));
  memmove(fields, from, size_t{2} * at);
  memmove(ids + size_t{4} * (at + 1), ids + size_t{4} * at, size_t{4} * (count - at));
  store(ids + size_t{4} * at, referrer.node);
  store(fields + size_t{2} * at, referrer.field);
  set_count(value, count + 1);
}

void chunk_remove(uint8_t* value, uint32_t at) {
  const uint32_t count = count_of(value);
  uint8_t* ids = ids_of(value);
  const uint8_t* from = fields_of(value, count);
  uint8_t* fields = fields_of(value, count - 1);
  memmove(ids + size_t{4} * at, ids + size_t{4} * (at + 1), size_t{4} * (count - at - 1));
  memmove(fields, from, size_t{2} * at);
  memmove(fields + size_t{2} * at, from + size_t{2} * (at + 1), size_t{2} * (count - at - 1));
  set_count(value, count - 1);
}

void chunk_set_field(uint8_t* value, uint32_t at, uint16_t field) {
  store(fields_of(value, count_of(value)) + size_t{2} * at, field);
}

void chunk_copy_from(uint8_t* value, const Chunk& chunk, uint32_t from) {
  const uint32_t count = chunk.count - from;
  chunk_start(value);
  memcpy(ids_of(value), chunk.ids + size_t{4} * from, size_t{4} * count);
  memcpy(fields_of(value, count), chunk.fields + size_t{2} * from, size_t{2} * count);
  set_count(value, count);
}

void chunk_keep(uint8_t* value, uint32_t count) {
  memmove(fields_of(value, count), fields_of(value, count_of(value)), size_t{2} * count);
  set_count(value, count);
}

}  // namespace rov
