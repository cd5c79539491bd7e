#include "database/file/records.h"

#include <cstdio>

#include "database/base/tables.h"
#include "database/record/checksum.h"
#include "database/record/keys.h"
#include "rov.h"

namespace rov {
namespace {

bool is_key_length(Table table, uint32_t len) {
  switch (table) {
    case Table::kNodes:
      return len == 4;
    case Table::kReferrers:
    case Table::kPrivate:
    case Table::kUsers:
      return len == 8;
    case Table::kDataSets:
      return len == kNamedKeyBytes || len == kUnnamedKeyBytes;
    case Table::kClients:
      return len == kClientKeyBytes;
    case Table::kChanges:
      break;
  }
  return len == kChangeKeyBytes;
}

bool has_shape(Table table, Bytes key, Bytes value) {
  if (table == Table::kNodes) {
    NodeView node;
    return parse_node(load_be32(key.data), value, &node);
  }
  if (table == Table::kReferrers) {
    Chunk chunk;
    return parse_chunk(value, &chunk);
  }
  return true;
}

}  // namespace

uint32_t RecordCheck::broken(const Place& place, Bytes key, const char* what) const {
  const char* name = kTableRows[static_cast<uint32_t>(table_)].name;
  if (key.len < 4) {
    return pages_.damaged(place.page, "entry %u, a record of table %s, %s", place.index, name,
                          what);
  }
  // The first word of most keys is a node; that of data sets ends with it.
  const uint8_t* word = table_ == Table::kDataSets ? key.data + key.len - 4 : key.data;
  return pages_.damaged(place.page, "entry %u, the record of 0x%08x in table %s, %s", place.index,
                        static_cast<unsigned>(load_be32(word)), name, what);
}

uint32_t RecordCheck::visit(const Place& place, Bytes key, Bytes value) {
  uint8_t node[4];
  if (!is_key_length(table_, key.len)) return broken(place, {}, "has a key of the wrong length");
  if (table_ == Table::kNodes) {
    store_be32(node, load<uint32_t>(key.data));
    key = {node, sizeof node};
  }
  if (value.len < 4 || load<uint32_t>(value.data) != record_crc(key, value)) {
    return broken(place, key, "does not match its checksum");
  }
  if (!has_shape(table_, key, value)) return broken(place, key, "contradicts itself");
  return ROV_OK;
}

}  // namespace rov
