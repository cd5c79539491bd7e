// Verifying the data file before the engine maps it.
//
// A process that opens a database which no other process has open verifies it first, whatever
// happened before: a file that was closed in good order can have been damaged since. Whoever has it
// open holds a lock on the first byte of the engine's lock file. Looking at that lock, verifying
// and opening happen under a lock on the directory, so that nobody writes in between.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "database/base/error.h"
#include "database/store/engine.h"
#include "database/store/wake.h"
#include "rov.h"

namespace rov {
namespace {

// How often a file is verified again that somebody may have written to meanwhile.
constexpr int kAttempts = 3;

uint32_t verify_in(int directory, const char* path, VerifyReport* report) {
  const int file = openat(directory, "data.mdb", O_RDONLY | O_CLOEXEC);
  if (file < 0) return engine_fail_at(errno, path, "open the data file");
  const uint32_t status = verify_data(file, path, report);
  close(file);
  return status;
}

// A damaged meta page can make the commit before the newest one; each of them is a good database.
uint32_t check_newest(int directory, const char* path, uint64_t revision) {
  const uint64_t told = wake_revision(directory);
  if (told <= revision) return ROV_OK;
  return fail_text(ROV_ERR_CORRUPT,
                   "data.mdb of database %s is damaged or was replaced by an older one: its newest "
                   "commit is %llu, and commit %llu was made; restore the database from a dump, or "
                   "remove the file changes in its directory to go on with the older commit",
                   path, static_cast<unsigned long long>(revision),
                   static_cast<unsigned long long>(told));
}

uint32_t verify_alone(Env* env, const WriterWait& wait, VerifyReport* report) {
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

uint32_t find_others(int directory, const char* path, bool* found) {
  *found = false;
  const int file = openat(directory, "lock.mdb", O_RDONLY | O_CLOEXEC);
  if (file < 0)
    return errno == ENOENT ? uint32_t{ROV_OK} : engine_fail_at(errno, path, "open lock.mdb");
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_len = 1;
  int error = 0;
  do {
    error = fcntl(file, F_GETLK, &lock) == 0 ? 0 : errno;
  } while (error == EINTR);
  close(file);
  *found = lock.l_type != F_UNLCK;
  return engine_fail_at(error, path, "look for processes that have it open");
}

uint32_t verify_before_opening(int directory, Env* env) {
  bool others = false;
  uint32_t status = find_others(directory, env->path, &others);
  if (status != ROV_OK || others) return status;
  status = verify_in(directory, env->path, &env->verified);
  if (status != ROV_OK) return status;
  return check_newest(directory, env->path, env->verified.revision);
}

uint32_t store_verify(Env* env, const WriterWait& wait, VerifyReport* report) {
  // Who asks just after it was opened is told what was found then.
  pthread_mutex_lock(&env->mutex);
  *report = env->verified;
  env->verified = VerifyReport();
  pthread_mutex_unlock(&env->mutex);
  if (report->page_size != 0 && report->revision == store_revision(env)) return ROV_OK;
  return env->read_only ? verify_beside_writers(env, report) : verify_alone(env, wait, report);
}

}  // namespace rov
