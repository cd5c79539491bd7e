// The tables of the store and how the engine keeps them.
#include <lmdb.h>

#include "platform/store_engine.h"

namespace rov {
namespace {

struct TableRow {
  const char* name;
  unsigned flags;
};

// In the order of Table. Node keys are kept as native integers: the engine compares those fastest.
constexpr TableRow kTableRows[kTables] = {{"nodes", MDB_INTEGERKEY},
                                          {"referrers", 0},
                                          {"data sets", 0},
                                          {"private", 0},
                                          {"clients", 0},
                                          {"changes", 0},
                                          {"users", 0}};

}  // namespace

int tables_open(MDB_env* engine, unsigned* tables, bool create) {
  MDB_txn* txn = nullptr;
  int error = mdb_txn_begin(engine, nullptr, create ? 0 : MDB_RDONLY, &txn);
  if (error != 0) return error;
  for (uint32_t i = 0; i < kTables && error == 0; ++i) {
    const unsigned flags = kTableRows[i].flags | (create ? MDB_CREATE : 0U);
    error = mdb_dbi_open(txn, kTableRows[i].name, flags, &tables[i]);
  }
  if (error != 0) {
    mdb_txn_abort(txn);
    return error;
  }
  // A commit, even of a reader, is what keeps the handles of the tables.
  return mdb_txn_commit(txn);
}

}  // namespace rov
