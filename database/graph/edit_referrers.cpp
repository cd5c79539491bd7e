// Keeping the referrers of a node right.
#include "database/base/error.h"
#include "database/graph/referrers.h"
#include "rov.h"

namespace rov {
namespace {

constexpr Table kTable = Table::kReferrers;

// The chunk to which a referrer belongs.
struct Home {
  Key key;
  Bytes value;
  Chunk chunk;
  uint32_t at;  // position of the referrer, or where it belongs
  bool found;
};

bool is_first(const Home& home) {
  return load_be32(home.key.bytes + 4) == 0;
}

uint32_t read_home(uint32_t node, const Record& record, Home* home) {
  home->key = pair_key(node, load_be32(record.key.data + 4));
  home->value = record.value;
  if (parse_chunk(record.value, &home->chunk)) return ROV_OK;
  return fail(ROV_ERR_CORRUPT, Note::kBadReferrers, node);
}

// ROV_ERR_NO_ITEM when the node has no referrers.
uint32_t find_home(View& view, uint32_t node, uint32_t referrer, Home* home) {
  // Nearly always there is one chunk, which needs no search by order.
  Record record;
  const Key first = pair_key(node, 0);
  uint32_t status = view_get(view, kTable, first, &record);
  if (status == ROV_OK) status = read_home(node, record, home);
  if (status != ROV_OK) return status;
  if (home->chunk.more) {
    status = view_le(view, kTable, pair_key(node, referrer), &record);
    if (status == ROV_OK) status = read_home(node, record, home);
    if (status != ROV_OK) return status;
  }
  home->at = home->chunk.find(referrer);
  home->found = home->at < home->chunk.count && home->chunk.id(home->at) == referrer;
  return ROV_OK;
}

uint32_t room_for(uint32_t count) {
  const uint32_t ample = count + count / 2 + 1;
  return chunk_bytes(ample < kChunkMax ? ample : kChunkMax);
}

// The chunk's value within the edits, with its contents and room for `count` referrers.
uint8_t* own_chunk(View& view, const Home& home, uint32_t count) {
  const Overlay::Edit* edit = view.edits->find(kTable, home.key);
  if (edit != nullptr && edit->value == home.value.data) {
    return view_put(view, kTable, home.key, chunk_bytes(count), room_for(count));
  }
  uint8_t* value = view_replace(view, kTable, home.key, chunk_bytes(count), room_for(count));
  if (value != nullptr) memcpy(value, home.value.data, home.value.len);
  return value;
}

// After its contents: the value's length.
uint32_t set_length(View& view, const Key& key, uint32_t count) {
  const uint32_t len = chunk_bytes(count);
  return view_put(view, kTable, key, len, len) != nullptr ? ROV_OK : ROV_ERR_NO_MEM;
}

// A chunk behind all others.
uint32_t new_chunk(View& view, uint32_t node, Referrer referrer) {
  const Key key = pair_key(node, referrer.node);
  uint8_t* value = view_replace(view, kTable, key, chunk_bytes(1), room_for(1));
  if (value == nullptr) return ROV_ERR_NO_MEM;
  chunk_start(value);
  chunk_insert(value, 0, referrer);
  return ROV_OK;
}

// Says in the first chunk whether others follow.
uint32_t set_more(View& view, uint32_t node, bool more) {
  Home first;
  Record record;
  first.key = pair_key(node, 0);
  uint32_t status = view_get(view, kTable, first.key, &record);
  if (status == ROV_OK) status = read_home(node, record, &first);
  if (status != ROV_OK || first.chunk.more == more) return status;
  if (!more && first.chunk.count == 0) return view_erase(view, kTable, first.key);
  uint8_t* value = own_chunk(view, first, first.chunk.count);
  if (value == nullptr) return ROV_ERR_NO_MEM;
  chunk_set_more(value, more);
  return ROV_OK;
}

// Moves the upper half of a full chunk into one of its own.
uint32_t split(View& view, uint32_t node, const Home& home) {
  const uint32_t lower = home.chunk.count / 2;
  const uint32_t upper = home.chunk.count - lower;
  const Key key = pair_key(node, home.chunk.id(lower));
  uint8_t* value = view_replace(view, kTable, key, chunk_bytes(upper), chunk_bytes(kChunkMax));
  if (value == nullptr) return ROV_ERR_NO_MEM;
  chunk_copy_from(value, home.chunk, lower);
  uint8_t* rest = own_chunk(view, home, home.chunk.count);
  if (rest == nullptr) return ROV_ERR_NO_MEM;
  chunk_keep(rest, lower);
  const uint32_t status = set_length(view, home.key, lower);
  return status == ROV_OK ? set_more(view, node, true) : status;
}

uint32_t insert_new(View& view, uint32_t node, Home* home, Referrer referrer) {
  uint32_t status = ROV_OK;
  if (home->chunk.count == kChunkMax && home->at == kChunkMax) {
    // Referrers mostly come in ascending order: leave the full chunk full.
    status = new_chunk(view, node, referrer);
    return status == ROV_OK ? set_more(view, node, true) : status;
  }
  if (home->chunk.count == kChunkMax) {
    status = split(view, node, *home);
    if (status == ROV_OK) status = find_home(view, node, referrer.node, home);
    if (status != ROV_OK) return status;
  }
  uint8_t* value = own_chunk(view, *home, home->chunk.count + 1);
  if (value == nullptr) return ROV_ERR_NO_MEM;
  chunk_insert(value, home->at, referrer);
  return ROV_OK;
}

uint32_t write_field(View& view, const Home& home, uint16_t field) {
  if (home.chunk.field(home.at) == field) return ROV_OK;
  uint8_t* value = own_chunk(view, home, home.chunk.count);
  if (value == nullptr) return ROV_ERR_NO_MEM;
  chunk_set_field(value, home.at, field);
  return ROV_OK;
}

// After a chunk beside the first has gone, or the first has become empty.
uint32_t tidy(View& view, uint32_t node) {
  Record record;
  const uint32_t status = view_ge(view, kTable, pair_key(node, 1), &record);
  if (status != ROV_OK && status != ROV_ERR_NO_ITEM) return status;
  const bool more = status == ROV_OK && load_be32(record.key.data) == node;
  return more ? uint32_t{ROV_OK} : set_more(view, node, false);
}

uint32_t remove_found(View& view, uint32_t node, const Home& home) {
  const uint32_t count = home.chunk.count;
  if (count == 1 && !(is_first(home) && home.chunk.more)) {
    const uint32_t status = view_erase(view, kTable, home.key);
    return status == ROV_OK && !is_first(home) ? tidy(view, node) : status;
  }
  uint8_t* value = own_chunk(view, home, count);
  if (value == nullptr) return ROV_ERR_NO_MEM;
  chunk_remove(value, home.at);
  const uint32_t status = set_length(view, home.key, count - 1);
  return status == ROV_OK && count == 1 ? tidy(view, node) : status;
}

// Notes a referrer in the chunk to which it belongs.
uint32_t add_at(View& view, uint32_t node, Home* home, Referrer referrer, bool* added) {
  *added = false;
  if (home->found) {
    const uint16_t field = home->chunk.field(home->at);
    return write_field(view, *home, referrer.field < field ? referrer.field : field);
  }
  const uint32_t status = insert_new(view, node, home, referrer);
  *added = status == ROV_OK;
  return status;
}

// All chunks of a node that has none yet.
uint32_t write_chunks(View& view, const Reference* from, const Reference* to) {
  bool first = true;
  while (from < to) {
    const uint32_t left = static_cast<uint32_t>(to - from);
    const uint32_t count = left < kChunkMax ? left : kChunkMax;
    const Key key = pair_key(from->target, first ? 0 : from->owner);
    uint8_t* value = view_replace(view, kTable, key, chunk_bytes(count), chunk_bytes(count));
    if (value == nullptr) return ROV_ERR_NO_MEM;
    chunk_fill(value, from, count);
    chunk_set_more(value, first && left > count);
    first = false;
    from += count;
  }
  return ROV_OK;
}

}  // namespace

uint32_t referrers_add(View& view, const Reference* from, const Reference* to, uint32_t* added) {
  const uint32_t node = from->target;
  Home home;
  uint32_t status = find_home(view, node, from->owner, &home);
  if (status == ROV_ERR_NO_ITEM) {
    *added = static_cast<uint32_t>(to - from);
    return write_chunks(view, from, to);
  }
  *added = 0;
  while (status == ROV_OK) {
    bool is_new = false;
    const Referrer referrer = {from->owner, static_cast<uint16_t>(from->field)};
    status = add_at(view, node, &home, referrer, &is_new);
    *added += is_new ? 1 : 0;
    if (++from == to || status != ROV_OK) break;
    status = find_home(view, node, from->owner, &home);
  }
  return status;
}

uint32_t referrer_set_field(View& view, uint32_t node, Referrer referrer) {
  Home home;
  const uint32_t status = find_home(view, node, referrer.node, &home);
  if (status != ROV_OK) return status;
  return home.found ? write_field(view, home, referrer.field) : uint32_t{ROV_ERR_NO_ITEM};
}

uint32_t referrer_remove(View& view, uint32_t node, uint32_t referrer, bool* removed) {
  Home home;
  *removed = false;
  uint32_t status = find_home(view, node, referrer, &home);
  if (status == ROV_ERR_NO_ITEM || (status == ROV_OK && !home.found)) return ROV_OK;
  if (status == ROV_OK) status = remove_found(view, node, home);
  *removed = status == ROV_OK;
  return status;
}

}  // namespace rov
