// The right to write: one write session at a time over all processes.
//
// The engine has a lock of its own, but it belongs to a thread, can't be waited for with a limit,
// and is given up when the map must grow. Within the process a flag under the environment's mutex
// decides, in the order in which it was asked for; between processes a record lock on the first byte of
// writer.lock, which the system releases when its holder dies. Before that a lock on the third byte is
// taken, and kept while the first is waited for, so that nobody who writes in a loop keeps others away. What the file holds is a reservation, described here.
//
// Reserving the next write for one user.
//
// The reservation lies in writer.lock, where every process sees it without a commit:
//
//   crc:4 0:4 user:8 start:8 until:8        host order; user 0, or an empty file: none
//
// A user is a client's identity and a process (changes.h), `start` is when that process started and
// `until` when the reservation ends (process.h). It is read without a lock, which the checksum
// allows, and changed under a record lock on the file's second byte; the first one's is the right
// to write.
#include <fcntl.h>
#include <lmdb.h>
#include <unistd.h>

#include <cerrno>

#include "database/base/bytes.h"
#include "database/base/crc32c.h"
#include "database/base/error.h"
#include "database/base/process.h"
#include "database/store/engine.h"
#include "rov.h"

namespace rov {

// ---- Reservations -------------------------------------------------------------------------------

namespace {

constexpr off_t kWriterLock = 0;
constexpr off_t kRecordLock = 1;
constexpr off_t kTurnLock = 2;
constexpr uint32_t kRecordWaitMs = 1000;  // a change takes microseconds
constexpr uint32_t kRecordBytes = 32;
constexpr uint32_t kUserAt = 8;
constexpr uint32_t kStartAt = 16;
constexpr uint32_t kUntilAt = 24;

struct Reservation {
  uint64_t user = 0;
  uint64_t start = 0;
  int64_t until = 0;

  bool operator==(const Reservation&) const = default;
};

uint32_t crc_of(const uint8_t (&record)[kRecordBytes]) {
  return crc32c(0, record + 4, kRecordBytes - 4);
}

// False when somebody is just writing it. A file that is too short holds none.
bool read_record(const Env* env, Reservation* out) {
  uint8_t record[kRecordBytes];
  *out = {};
  const ssize_t len = pread(env->lock_file, record, sizeof record, 0);
  if (len != kRecordBytes) return true;
  if (load<uint32_t>(record) != crc_of(record)) return false;
  *out = {load<uint64_t>(record + kUserAt), load<uint64_t>(record + kStartAt),
          load<int64_t>(record + kUntilAt)};
  return true;
}

uint32_t write_record(const Env* env, const Reservation& reservation) {
  uint8_t record[kRecordBytes] = {};
  write_value(record + kUserAt, reservation.user);
  write_value(record + kStartAt, reservation.start);
  write_value(record + kUntilAt, reservation.until);
  write_value(record, crc_of(record));
  const ssize_t len = pwrite(env->lock_file, record, sizeof record, 0);
  if (len == kRecordBytes) return ROV_OK;
  return engine_fail(len < 0 ? errno : ENOSPC, env, "write writer.lock");
}

// The lock under which the record changes: between processes, and between the threads of this one.
class ChangeLock {
 public:
  explicit ChangeLock(Env* env) : env_(env) {
    pthread_mutex_lock(&env->reserve_mutex);
    error_ = await_record_lock(env->lock_file, F_WRLCK, kRecordLock, kRecordWaitMs);
  }
  ~ChangeLock() {
    if (error_ == 0) set_record_lock(env_->lock_file, F_UNLCK, kRecordLock);
    pthread_mutex_unlock(&env_->reserve_mutex);
  }
  ChangeLock(const ChangeLock&) = delete;
  ChangeLock& operator=(const ChangeLock&) = delete;

  int error() const { return error_; }

 private:
  Env* env_;
  int error_;
};

// What a reader without the lock could not make out is looked at again with it. Damage is none.
Reservation look(Env* env) {
  Reservation found;
  if (read_record(env, &found)) return found;
  const ChangeLock lock(env);
  read_record(env, &found);
  return found;
}

// Takes away what was found, unless somebody put another one there.
void clear(Env* env, const Reservation& found) {
  const ChangeLock lock(env);
  Reservation now;
  if (lock.error() == 0 && read_record(env, &now) && now == found) write_record(env, {});
}

uint32_t busy(const Env* env, const char* who) {
  return fail_text(
      ROV_ERR_BUSY,
      "%s writes to database %s and did not finish in time: try again later, or wait longer "
      "(rov_lib_init_locks)",
      who, env->path);
}

bool is_void(const Reservation& reservation) {
  if (reservation.until <= monotonic_now()) return true;
  return process_is_gone(static_cast<uint32_t>(reservation.user), reservation.start);
}

}  // namespace

uint32_t writer_reserve(Env* env, uint64_t user, uint32_t seconds) {
  if (env->read_only) return writer_refused(env);
  Reservation reservation;
  if (user != 0) {
    const auto process = static_cast<uint32_t>(user);
    if (process_is_gone(process, 0)) {
      return fail_text(ROV_ERR_NO_ITEM,
                       "user 0x%016llx cannot write: there is no process %u; the user number's low "
                       "half is that of a running process",
                       static_cast<unsigned long long>(user), process);
    }
    const int64_t until = monotonic_now() + seconds * kNanosPerSecond;
    reservation = {user, process_start(process), until};
  }
  const ChangeLock lock(env);
  if (lock.error() == EAGAIN) {
    const uint32_t holder = record_lock_holder(env->lock_file, F_WRLCK, kRecordLock);
    return busy(env, name_of_holder(holder).text);
  }
  if (lock.error() != 0) return engine_fail(lock.error(), env, "lock writer.lock");
  return write_record(env, reservation);
}

uint64_t writer_reserved_for(Env* env, uint64_t user) {
  const Reservation found = look(env);
  if (found.user == 0) return 0;
  if (found.user != user && !is_void(found)) return found.user;
  clear(env, found);
  return 0;
}

// ---- The right to write -------------------------------------------------------------------------

namespace {

constexpr uint32_t kForever = 0xffffffff;
constexpr int64_t kMeanwhile = 100 * kNanosPerMilli;

int64_t deadline_after(uint32_t wait_ms) {
  return wait_ms == kForever ? INT64_MAX : monotonic_now() + wait_ms * kNanosPerMilli;
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
    pthread_cond_wait(&env->use.writer_gone, &env->use.lock);
  } else {
    const timespec time = timespec_of(until);
    pthread_cond_timedwait(&env->use.writer_gone, &env->use.lock, &time);
  }
}

void queue_turn(Env* env, Turn* own) {
  Turn** last = &env->use.turns;
  while (*last != nullptr) last = &(*last)->next;
  *last = own;
}

void leave_queue(Env* env, const Turn* own) {
  Turn** at = &env->use.turns;
  while (*at != own) at = &(*at)->next;
  *at = own->next;
}

// The flag within the process, given in the order in which it was asked for.
bool take_turn(Env* env, int64_t deadline, void (*meanwhile)()) {
  Turn own;
  pthread_mutex_lock(&env->use.lock);
  queue_turn(env, &own);
  const auto is_next = [&] { return !env->use.writer && env->use.turns == &own; };
  while (!is_next()) {
    int64_t until = deadline;
    if (meanwhile != nullptr) {
      pthread_mutex_unlock(&env->use.lock);
      meanwhile();
      pthread_mutex_lock(&env->use.lock);
      if (is_next()) break;
      const int64_t next = monotonic_now() + kMeanwhile;
      if (next < until) until = next;
    }
    if (deadline != INT64_MAX && monotonic_now() >= deadline) break;
    await_turn(env, until);
  }
  const bool taken = is_next();
  leave_queue(env, &own);
  if (taken) env->use.writer = true;
  // Who stood behind this one may be the next.
  if (!taken) pthread_cond_broadcast(&env->use.writer_gone);
  pthread_mutex_unlock(&env->use.lock);
  return taken;
}

void end_turn(Env* env) {
  pthread_mutex_lock(&env->use.lock);
  env->use.writer = false;
  pthread_cond_broadcast(&env->use.writer_gone);
  pthread_mutex_unlock(&env->use.lock);
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

// A lock between processes, looked at every `retry_ms`.
uint32_t take_lock(Env* env, off_t which, int64_t deadline, uint32_t retry_ms) {
  for (;;) {
    const int error = set_record_lock(env->lock_file, F_WRLCK, which);
    if (error == 0) return ROV_OK;
    if (error != EACCES && error != EAGAIN) return engine_fail(error, env, "lock writer.lock");
    if (!nap(deadline, retry_ms)) {
      const uint32_t holder = record_lock_holder(env->lock_file, F_WRLCK, kWriterLock);
      return busy(env, name_of_holder(holder).text);
    }
  }
}

// The right to write, between processes. Who waits for it holds the turn, without which whoever writes
// now can't come back before.
uint32_t take_file_lock(Env* env, int64_t deadline, uint32_t retry_ms) {
  uint32_t status = take_lock(env, kTurnLock, deadline, retry_ms);
  if (status != ROV_OK) return status;
  status = take_lock(env, kWriterLock, deadline, retry_ms);
  set_record_lock(env->lock_file, F_UNLCK, kTurnLock);
  return status;
}

// In the process, then between processes.
uint32_t take_right(Env* env, const WriterWait& wait, int64_t deadline) {
  if (!take_turn(env, deadline, wait.meanwhile)) {
    return busy(env, "another session of this process");
  }
  const uint32_t status = take_file_lock(env, deadline, wait.retry_ms);
  if (status != ROV_OK) end_turn(env);
  return status;
}

// A writer that was killed just when it had committed can leave the engine's lock file one commit
// behind the data file, so that snapshots would still begin on the commit before. Beginning a
// transaction of the engine repairs that.
uint32_t settle(Env* env) {
  pthread_mutex_lock(&env->committing.lock);
  uint32_t status = is_dead(env) ? dead_env(env) : check_file(env);
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
  pthread_mutex_unlock(&env->committing.lock);
  return status;
}

}  // namespace

uint32_t writer_refused(const Env* env) {
  return fail_text(ROV_ERR_READ_ONLY,
                   "database %s was opened for reading only: open it without "
                   "ROV_DB_RDONLY",
                   env->path);
}

uint32_t writer_hold(Env* env, const WriterWait& wait) {
  return take_right(env, wait, deadline_after(wait.wait_ms));
}

uint32_t writer_lock(Env* env, const WriterWait& wait) {
  if (env->read_only) return writer_refused(env);
  const int64_t deadline = deadline_after(wait.wait_ms);
  for (;;) {
    uint32_t status = take_right(env, wait, deadline);
    if (status != ROV_OK) return status;
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
  set_record_lock(env->lock_file, F_UNLCK, kWriterLock);
  end_turn(env);
}

}  // namespace rov
