// A snapshot of the store: one commit, and what a reader remembers of it.
#pragma once

#include <cstdint>

#include "database/base/bytes.h"
#include "database/base/tables.h"
#include "database/file/search.h"
#include "database/handle/handle.h"
#include "database/store/overlay.h"

struct MDB_txn;

namespace rov {

struct Env;

// A record found: pointers are good until the snapshot moves, closes or `epoch` changes.
struct Record {
  Bytes key;
  Bytes value;  // checksum included
};

// A node found before: its checksum has been verified. The table of hints is what makes reading the
// same nodes again cheap: no descent, no checksum.
struct Hint {
  uint32_t node;
  uint32_t epoch;  // of the snapshot, when the hint was made
  const uint8_t* value;
  uint32_t len;
};
constexpr uint32_t kHints = 1024;  // a power of two

// A table as one commit has it.
struct TableReader {
  uint32_t epoch = 0;             // of the snapshot, when the table was found
  const uint8_t* leaf = nullptr;  // where a record was found by order last
  Tree tree;
};

struct Snapshot {
  Env* env = nullptr;
  Gate* gate = nullptr;
  MDB_txn* txn = nullptr;
  Meta meta;                          // of the commit
  Commit commit;                      // the same for searches
  TableReader readers[kTables] = {};  // of the tables that were read
  uint8_t node_key[4] = {};           // the key of the node found last by order
  uint64_t revision = 0;              // 0 = on no commit
  // Grows when pointers that were handed out before become wrong. Never 0.
  uint32_t epoch = 1;
  Hint* hints = nullptr;     // kHints of them
  Snapshot* next = nullptr;  // in the environment's list
  Snapshot* previous = nullptr;
};

inline KeyOrder order_of(Table table) {
  return kTableRows[static_cast<uint32_t>(table)].integer_keys ? KeyOrder::kInteger
                                                               : KeyOrder::kBytes;
}
// The engine keeps node keys as native integers, everybody else sees them in network order.
inline Bytes stored_key(Table table, Bytes key, uint32_t* native) {
  if (table != Table::kNodes) return key;
  *native = load_be32(key.data);
  return {reinterpret_cast<const uint8_t*>(native), sizeof *native};
}

// Reading. ROV_ERR_NO_ITEM when there is no such record, ROV_ERR_CORRUPT when its checksum is
// wrong. Inside the gate.
[[nodiscard]] uint32_t snapshot_get(Snapshot* snapshot, Table table, Bytes key, Record* out);
// The first record whose key is not below `key`; the last whose key is not above.
[[nodiscard]] uint32_t snapshot_ge(Snapshot* snapshot, Table table, Bytes key, Record* out);
[[nodiscard]] uint32_t snapshot_le(Snapshot* snapshot, Table table, Bytes key, Record* out);
// Number of records of a table.
[[nodiscard]] uint32_t snapshot_count(Snapshot* snapshot, Table table, uint32_t* count);

}  // namespace rov
