// Reserving the next write for one user.
//
// The reservation lies in writer.lock, where every process sees it without a commit:
//
//   crc:4 0:4 user:8 start:8 until:8        host order; user 0, or an empty file: none
//
// A user is a client's identity and a process (changes.h), `start` is when that process started and
// `until` when the reservation ends (clock.h). It is read without a lock, which the checksum
// allows, and changed under a record lock on the file's second byte; the first one's is the right
// to write.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "database/base/bytes.h"
#include "database/base/clock.h"
#include "database/base/crc32c.h"
#include "database/base/error.h"
#include "database/base/process.h"
#include "database/store/engine.h"
#include "rov.h"

namespace rov {
namespace {

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
  store(record + kUserAt, reservation.user);
  store(record + kStartAt, reservation.start);
  store(record + kUntilAt, reservation.until);
  store(record, crc_of(record));
  const ssize_t len = pwrite(env->lock_file, record, sizeof record, 0);
  if (len == kRecordBytes) return ROV_OK;
  return engine_fail(len < 0 ? errno : ENOSPC, env, "write writer.lock");
}

// The lock under which the record changes: between processes, and between the threads of this one.
class ChangeLock {
 public:
  explicit ChangeLock(Env* env) : env_(env) {
    pthread_mutex_lock(&env->reserve_mutex);
    error_ = set(F_WRLCK);
  }
  ~ChangeLock() {
    set(F_UNLCK);
    pthread_mutex_unlock(&env_->reserve_mutex);
  }
  ChangeLock(const ChangeLock&) = delete;
  ChangeLock& operator=(const ChangeLock&) = delete;

  int error() const { return error_; }

 private:
  int set(short type) const {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = 1;
    lock.l_len = 1;
    while (fcntl(env_->lock_file, F_SETLKW, &lock) != 0) {
      if (errno != EINTR) return errno;
    }
    return 0;
  }

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
  if (read_record(env, &now) && now == found) write_record(env, {});
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

}  // namespace rov
