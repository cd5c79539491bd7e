// Copying the engine's file while others read and write.
#include <lmdb.h>
#include <unistd.h>

#include <cerrno>

#include "database/base/error.h"
#include "database/store/guard.h"
#include "rov.h"

namespace rov {
namespace {

// The engine reads through the map, so the map must not change meanwhile.
uint32_t copy_once(Env* env, int file) {
  pthread_mutex_lock(&env->commit_lock);
  int error = is_dead(env) ? kEngineDead : mdb_env_copyfd(env->engine, file);
  if (error == MDB_READERS_FULL) {
    store_check_readers(env);
    error = mdb_env_copyfd(env->engine, file);
  }
  pthread_mutex_unlock(&env->commit_lock);
  return engine_fail(error, env, "copy the data file");
}

}  // namespace

uint32_t store_copy(Env* env, int file) {
  const uint32_t status = follow_growth(env, [&] { return copy_once(env, file); });
  if (status == ROV_OK && fsync(file) != 0) return engine_fail(errno, env, "sync the copy");
  return status;
}

}  // namespace rov
