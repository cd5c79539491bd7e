// The tables of the store and how the engine keeps them.
#include <lmdb.h>

#include "platform/store_engine.h"
#include "platform/table_rows.h"

namespace rov {

int tables_open(MDB_env* engine, unsigned* tables, bool create) {
  MDB_txn* txn = nullptr;
  int error = mdb_txn_begin(engine, nullptr, create ? 0 : MDB_RDONLY, &txn);
  if (error != 0) return error;
  for (uint32_t i = 0; i < kTables && error == 0; ++i) {
    const TableRow& row = kTableRows[i];
    const unsigned flags = (row.integer_keys ? MDB_INTEGERKEY : 0U) | (create ? MDB_CREATE : 0U);
    error = mdb_dbi_open(txn, row.name, flags, &tables[i]);
  }
  if (error != 0) {
    mdb_txn_abort(txn);
    return error;
  }
  // A commit, even of a reader, is what keeps the handles of the tables.
  return mdb_txn_commit(txn);
}

}  // namespace rov
