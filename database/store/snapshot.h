// A snapshot of the store: one commit, and what a reader remembers of it.
#ifndef DATABASE_STORE_SNAPSHOT_H
#define DATABASE_STORE_SNAPSHOT_H

#include <cstdint>

#include "database/base/bytes.h"
#include "database/handle/gate.h"
#include "database/store/overlay.h"

struct MDB_txn;
struct MDB_cursor;

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

struct Snapshot {
  Env* env = nullptr;
  Gate* gate = nullptr;
  MDB_txn* txn = nullptr;
  MDB_cursor* cursors[kTables] = {};
  uint32_t cursor_epoch[kTables] = {};  // the epoch in which the cursor was last begun
  uint8_t node_key[4] = {};             // the key of the node found last by order
  uint64_t revision = 0;                // 0 = on no commit
  // Grows when pointers that were handed out before become wrong. Never 0.
  uint32_t epoch = 1;
  Hint* hints = nullptr;     // kHints of them
  Snapshot* next = nullptr;  // in the environment's list
  Snapshot* previous = nullptr;
};

// Reading. ROV_ERR_NO_ITEM when there is no such record, ROV_ERR_CORRUPT when its checksum is
// wrong. Inside the gate.
uint32_t snapshot_get(Snapshot* snapshot, Table table, Bytes key, Record* out);
// The first record whose key is not below `key`; the last whose key is not above.
uint32_t snapshot_ge(Snapshot* snapshot, Table table, Bytes key, Record* out);
uint32_t snapshot_le(Snapshot* snapshot, Table table, Bytes key, Record* out);
// Number of records of a table.
uint32_t snapshot_count(Snapshot* snapshot, Table table, uint32_t* count);

}  // namespace rov

#endif
