// The right to write: one write session at a time over all processes.
//
// The engine has a lock of its own, but it belongs to a thread, can't be waited for with a limit,
// and is given up when the map must grow. Within the process a flag under the environment's mutex
// decides; between processes a record lock on the first byte of writer.lock, which the system
// releases when its holder dies. What the file holds is a reservation (store_reserve.cpp).
#include <fcntl.h>
#include <lmdb.h>
#include <unistd.h>

#include <cerrno>

#include "database/base/clock.h"
#include "database/base/error.h"
#include "database/store/engine.h"
#include "rov.h"

namespace rov {
namespace {

constexpr uint32_t kForever = 0xffffffff;
constexpr int64_t kMeanwhile = 100 * kNanosPerMilli;

int64_t deadline_after(uint32_t wait_ms) {
  return wait_ms == kForever ? INT64_MAX : monotonic_now() + wait_ms * kNanosPerMilli;
}

uint32_t busy(const Env* env, const char* who) {
  return fail_text(
      ROV_ERR_BUSY,
      "%s writes to database %s and did not finish in time: try again later, or wait longer "
      "(rov_lib_init_locks)",
      who, env->path);
}

uint32_t reserved(const Env* env, uint64_t user) {
  return fail_text(ROV_ERR_BUSY,
                   "the next write to database %s is reserved for user 0x%016llx: try again later, "
                   "wait longer (rov_lib_init_locks), or take the reservation back "
                   "(rov_db_ses_lock_grant)",
                   env->path, static_cast<unsigned long long>(user));
}

// Waits for the flag's owner until then. Under the mutex.
void await_turn(Env* env, int64_t until) {
  if (until == INT64_MAX) {
    pthread_cond_wait(&env->writer_gone, &env->mutex);
  } else {
    const timespec time = timespec_of(until);
    pthread_cond_timedwait(&env->writer_gone, &env->mutex, &time);
  }
}

// The flag within the process.
bool take_turn(Env* env, int64_t deadline, void (*meanwhile)()) {
  pthread_mutex_lock(&env->mutex);
  while (env->writer) {
    int64_t until = deadline;
    if (meanwhile != nullptr) {
      pthread_mutex_unlock(&env->mutex);
      meanwhile();
      pthread_mutex_lock(&env->mutex);
      if (!env->writer) break;
      const int64_t next = monotonic_now() + kMeanwhile;
      if (next < until) until = next;
    }
    if (deadline != INT64_MAX && monotonic_now() >= deadline) break;
    await_turn(env, until);
  }
  const bool taken = !env->writer;
  env->writer = true;
  pthread_mutex_unlock(&env->mutex);
  return taken;
}

void end_turn(Env* env) {
  pthread_mutex_lock(&env->mutex);
  env->writer = false;
  pthread_cond_signal(&env->writer_gone);
  pthread_mutex_unlock(&env->mutex);
}

int set_file_lock(const Env* env, short type) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_len = 1;
  while (fcntl(env->lock_file, F_SETLK, &lock) != 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

// Sleeps until it is time to look again. False when the time is up.
bool nap(int64_t deadline, uint32_t retry_ms) {
  const int64_t left = deadline - monotonic_now();
  if (left <= 0) return false;
  const int64_t pause = retry_ms * kNanosPerMilli;
  const timespec time = timespec_of(left < pause ? left : pause);
  nanosleep(&time, nullptr);
  return true;
}

// The lock between processes, looked at every `retry_ms`.
uint32_t take_file_lock(Env* env, int64_t deadline, uint32_t retry_ms) {
  for (;;) {
    const int error = set_file_lock(env, F_WRLCK);
    if (error == 0) return ROV_OK;
    if (error != EACCES && error != EAGAIN) return engine_fail(error, env, "lock writer.lock");
    if (!nap(deadline, retry_ms)) return busy(env, "another process");
  }
}

// A writer that was killed just when it had committed can leave the engine's lock file one commit
// behind the data file, so that snapshots would still begin on the commit before. Beginning a
// transaction of the engine repairs that.
uint32_t settle(Env* env) {
  pthread_mutex_lock(&env->commit_lock);
  uint32_t status = is_dead(env) ? dead_env(env) : check_length(env);
  while (status == ROV_OK) {
    MDB_txn* txn = nullptr;
    const int error = mdb_txn_begin(env->engine, nullptr, 0, &txn);
    if (error != MDB_MAP_RESIZED) {
      if (error == 0) mdb_txn_abort(txn);
      status = engine_fail(error, env, "begin a write session");
      break;
    }
    status = map_resize(env, map_size_for(map_size(env), map_used(env)));
  }
  pthread_mutex_unlock(&env->commit_lock);
  return status;
}

}  // namespace

uint32_t writer_refused(const Env* env) {
  return fail_text(ROV_ERR_READ_ONLY,
                   "database %s was opened for reading only: open it without "
                   "ROV_DB_RDONLY",
                   env->path);
}

uint32_t writer_lock(Env* env, const WriterWait& wait) {
  if (env->read_only) return writer_refused(env);
  const int64_t deadline = deadline_after(wait.wait_ms);
  for (;;) {
    if (!take_turn(env, deadline, wait.meanwhile)) {
      return busy(env, "another session of this process");
    }
    uint32_t status = take_file_lock(env, deadline, wait.retry_ms);
    if (status != ROV_OK) {
      end_turn(env);
      return status;
    }
    const uint64_t other = writer_reserved_for(env, wait.user);
    if (other == 0) {
      status = settle(env);
      if (status != ROV_OK) writer_unlock(env);
      return status;
    }
    writer_unlock(env);
    if (!nap(deadline, wait.retry_ms)) return reserved(env, other);
  }
}

void writer_unlock(Env* env) {
  set_file_lock(env, F_UNLCK);
  end_turn(env);
}

}  // namespace rov
