#include "database/graph/referrers.h"

#include "database/base/error.h"
#include "rov.h"

namespace rov {
namespace {

uint32_t damaged(uint32_t node) {
  return fail(ROV_ERR_CORRUPT, Note::kBadReferrers, node);
}

// A chunk beside the first: the one that is not below `lowest`. ROV_ERR_NO_ITEM past the last.
uint32_t chunk_from(View& view, uint32_t node, uint32_t lowest, Chunk* chunk) {
  Record record;
  const uint32_t status = view_ge(view, Table::kReferrers, pair_key(node, lowest), &record);
  if (status != ROV_OK) return status;
  if (load_be32(record.key.data) != node) return ROV_ERR_NO_ITEM;
  if (!parse_chunk(record.value, chunk) || chunk->count == 0) return damaged(node);
  // A walk goes on behind the last one, so that must lead forward.
  if (chunk->id(chunk->count - 1) < load_be32(record.key.data + 4)) return damaged(node);
  chunk->more = true;  // only the first chunk knows better
  return ROV_OK;
}

uint32_t first_chunk(View& view, uint32_t node, Chunk* chunk) {
  Record record;
  const uint32_t status = view_get(view, Table::kReferrers, pair_key(node, 0), &record);
  if (status != ROV_OK) return status;
  if (!parse_chunk(record.value, chunk)) return damaged(node);
  return chunk->count != 0 ? uint32_t{ROV_OK} : chunk_from(view, node, 1, chunk);
}

uint32_t next_chunk(View& view, uint32_t node, Chunk* chunk) {
  const uint32_t last = chunk->id(chunk->count - 1);
  if (!chunk->more || last == UINT32_MAX) return ROV_ERR_NO_ITEM;
  return chunk_from(view, node, last + 1, chunk);
}

// Calls `use` with one chunk after the other until it says false.
template <typename Use>
uint32_t each_chunk(View& view, uint32_t node, Use use) {
  Chunk chunk;
  uint32_t status = first_chunk(view, node, &chunk);
  while (status == ROV_OK && use(chunk)) status = next_chunk(view, node, &chunk);
  return status == ROV_ERR_NO_ITEM ? uint32_t{ROV_OK} : status;
}

uint32_t start_walk(View& view, uint32_t node) {
  ReferrerPlace& place = view.referrers;
  place.node = 0;
  const uint32_t status = first_chunk(view, node, &place.chunk);
  if (status != ROV_OK) return status;
  place.epoch = view.snapshot->epoch;
  place.start = 0;
  place.node = node;
  return ROV_OK;
}

}  // namespace

uint32_t referrer_at(View& view, uint32_t node, uint32_t index, Referrer* out) {
  ReferrerPlace& place = view.referrers;
  uint32_t status = ROV_OK;
  if (place.node != node || place.epoch != view.snapshot->epoch || index < place.start) {
    status = start_walk(view, node);
    if (status != ROV_OK) return status;
  }
  while (index - place.start >= place.chunk.count) {
    Chunk next = place.chunk;
    status = next_chunk(view, node, &next);
    if (status != ROV_OK) return status;
    place.start += place.chunk.count;
    place.chunk = next;
  }
  const uint32_t at = index - place.start;
  *out = {place.chunk.id(at), place.chunk.field(at)};
  return ROV_OK;
}

uint32_t referrers_all(View& view, uint32_t node, rov_node_id_t* out, uint32_t count,
                       uint32_t* filled) {
  *filled = 0;
  if (count == 0) return ROV_OK;
  return each_chunk(view, node, [&](const Chunk& chunk) {
    const uint32_t left = count - *filled;
    const uint32_t part = chunk.count < left ? chunk.count : left;
    for (uint32_t at = 0; at < part; ++at) out[*filled + at] = id_of(chunk.id(at));
    *filled += part;
    return *filled < count;
  });
}

uint32_t referrers_count(View& view, uint32_t node, uint32_t* count) {
  *count = 0;
  return each_chunk(view, node, [&](const Chunk& chunk) {
    *count += chunk.count;
    return true;
  });
}

}  // namespace rov
