// Errors of the engine as statuses of the database.
#include <lmdb.h>

#include "database/base/error.h"
#include "database/base/system_error.h"
#include "database/store/guard.h"
#include "rov.h"

namespace rov {
namespace {

struct Row {
  int error;
  uint32_t status;
  const char* advice;
};

constexpr Row kRows[] = {
    {MDB_PAGE_NOTFOUND, ROV_ERR_CORRUPT, "restore the database from a dump"},
    {MDB_CORRUPTED, ROV_ERR_CORRUPT, "restore the database from a dump"},
    {MDB_CURSOR_FULL, ROV_ERR_CORRUPT, "restore the database from a dump"},
    {MDB_PAGE_FULL, ROV_ERR_CORRUPT, "restore the database from a dump"},
    // Of a key that it found: those that it is given are short.
    {MDB_BAD_VALSIZE, ROV_ERR_CORRUPT, "restore the database from a dump"},
    // What the engine says of a transaction in which it found damage before.
    {MDB_BAD_TXN, ROV_ERR_CORRUPT,
     "the session met a damaged page before: look at the database with qimctl check, and restore "
     "it "
     "from a dump"},
    {MDB_INCOMPATIBLE, ROV_ERR_CORRUPT, "restore the database from a dump"},
    {MDB_PANIC, ROV_ERR_IO,
     "an earlier write failed half-way: close the database in this process and "
     "open it again"},
    {MDB_VERSION_MISMATCH, ROV_ERR_FORMAT, "use the version of the storage engine that wrote it"},
    {MDB_INVALID, ROV_ERR_FORMAT,
     "data.mdb is not a file of the storage engine, or its first pages are "
     "damaged: restore the database from a dump"},
    {MDB_NOTFOUND, ROV_ERR_FORMAT, "a table of the database is missing: restore it from a dump"},
    {MDB_MAP_FULL, ROV_ERR_FULL, "raise ROV_MAP_MAX"},
    {MDB_READERS_FULL, ROV_ERR_BUSY, "close sessions that are no longer needed, in all processes"},
    {MDB_TXN_FULL, ROV_ERR_LENGTH, "the transaction is too large: commit in smaller steps"},
};

}  // namespace

uint32_t engine_fail_at(int error, const char* path, const char* doing) {
  if (error == 0) return ROV_OK;
  if (error == MDB_MAP_RESIZED) return kMapResized;
  for (const Row& row : kRows) {
    if (row.error != error) continue;
    return fail_text(row.status, "cannot %s in database %s: %s; %s", doing, path,
                     mdb_strerror(error), row.advice);
  }
  return system_fail(error, mdb_strerror(error), path, doing);
}

uint32_t engine_fail(int error, const Env* env, const char* doing) {
  if (error == kEngineDead) return dead_env(env);
  return engine_fail_at(error, env->path, doing);
}

}  // namespace rov
