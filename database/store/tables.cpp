// The tables of the store and how the engine keeps them.
#include <lmdb.h>

#include "database/base/tables.h"
#include "database/store/guard.h"

namespace rov {
namespace {

int open_all(MDB_txn* txn, unsigned* tables, unsigned flags) {
  int error = 0;
  for (uint32_t i = 0; i < kTables && error == 0; ++i) {
    const TableRow& row = kTableRows[i];
    const unsigned keys = row.integer_keys ? MDB_INTEGERKEY : 0U;
    error = mdb_dbi_open(txn, row.name, keys | flags, &tables[i]);
  }
  return error;
}

// A commit, even of a reader, is what keeps the handles of the tables.
int end(MDB_txn* txn, int error) {
  if (error == 0) return mdb_txn_commit(txn);
  mdb_txn_abort(txn);
  return error;
}

}  // namespace

int tables_open(Env* env) {
  MDB_txn* txn = nullptr;
  const int error = mdb_txn_begin(env->engine, nullptr, MDB_RDONLY, &txn);
  if (error != 0) return error;
  return end(txn, guarded(env, [&] { return open_all(txn, env->tables, 0); }));
}

int tables_make(MDB_env* engine) {
  MDB_txn* txn = nullptr;
  const int error = mdb_txn_begin(engine, nullptr, 0, &txn);
  if (error != 0) return error;
  unsigned tables[kTables];
  return end(txn, open_all(txn, tables, MDB_CREATE));
}

}  // namespace rov
