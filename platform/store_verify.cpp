// Verifying the data file before the engine maps it.
//
// A process that opens a database which no other process has open verifies it first, whatever happened before: a
// file that was closed in good order can have been damaged since. Whoever has it open holds a lock on the first byte
// of the engine's lock file. Looking at that lock, verifying and opening happen under a lock on the directory, so that nobody
// writes in between.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "platform/error.h"
#include "platform/store_engine.h"
#include "rov.h"

namespace rov {
namespace {

constexpr uint32_t kWriterWaitMs = 10000;
constexpr uint32_t kWriterRetryMs = 5;
// How often a file is verified again that somebody may have written to meanwhile.
constexpr int kAttempts = 3;

uint32_t verify_in(int directory, const char* path, VerifyReport* report) {
  const int file = openat(directory, "data.mdb", O_RDONLY | O_CLOEXEC);
  if (file < 0) return engine_fail_at(errno, path, "open the data file");
  const uint32_t status = verify_data(file, path, report);
  close(file);
  return status;
}

uint32_t verify_alone(Env* env, VerifyReport* report) {
  const WriterWait wait = {kWriterWaitMs, kWriterRetryMs, nullptr, 0};
  uint32_t status = writer_lock(env, wait);
  if (status != ROV_OK) return status;
  status = verify_in(env->directory, env->path, report);
  writer_unlock(env);
  return status;
}

// Without the right to write: a commit in the meantime can spoil the result, but then it shows.
uint32_t verify_beside_writers(Env* env, VerifyReport* report) {
  uint32_t status = ROV_OK;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const uint64_t before = store_revision(env);
    status = verify_in(env->directory, env->path, report);
    if (status == ROV_OK || store_revision(env) == before) return status;
  }
  return status;
}

}  // namespace

OpenLock::OpenLock(int directory) : directory_(directory) {
  while (flock(directory_, LOCK_EX) != 0 && errno == EINTR) {
  }
}

OpenLock::~OpenLock() {
  flock(directory_, LOCK_UN);  // closing is not enough where a fork has shared it meanwhile
}

bool is_open_elsewhere(int directory) {
  const int file = openat(directory, "lock.mdb", O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_len = 1;
  const bool locked = fcntl(file, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
  close(file);
  return locked;
}

uint32_t verify_before_opening(int directory, Env* env) {
  if (is_open_elsewhere(directory)) return ROV_OK;
  return verify_in(directory, env->path, &env->verified);
}

uint32_t store_verify(Env* env, VerifyReport* report) {
  // Who asks just after it was opened is told what was found then.
  pthread_mutex_lock(&env->mutex);
  *report = env->verified;
  env->verified = VerifyReport();
  pthread_mutex_unlock(&env->mutex);
  if (report->page_size != 0 && report->revision == store_revision(env)) return ROV_OK;
  return env->read_only ? verify_beside_writers(env, report) : verify_alone(env, report);
}

}  // namespace rov
