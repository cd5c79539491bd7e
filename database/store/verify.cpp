// Verifying the data file before the engine maps it.
//
// A process that opens a database which no other process has open verifies it first, whatever
// happened before: a file that was closed in good order can have been damaged since. Whoever has
// verified it and has it open has marked the engine's lock file (files.h). Looking at that mark,
// verifying and opening happen under a lock on the directory, so that nobody writes in between.
//
// Compacting: writing the newest commit into a file that has nothing else in it, and putting that
// in place of the data file.
//
// Nobody may have the database open meanwhile: who had the old file open would go on with that one.
// The engine writes the copy, verified before it takes the place; it numbers the copy's commit 1,
// but what is stored knows the number that the commit had, so that is put back.
#include <fcntl.h>
#include <lmdb.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "database/base/error.h"
#include "database/base/process.h"
#include "database/base/tables.h"
#include "database/file/layout.h"
#include "database/store/engine.h"
#include "database/store/wake.h"
#include "rov.h"

namespace rov {

// ---- Verifying ----------------------------------------------------------------------------------

// A damaged meta page can make the commit before the newest one, and a page that was never written the
// records of an older one; each of them is a good database.
uint32_t check_mark(const Mark& mark, const char* path, const VerifyReport& found) {
  if (mark.revision > found.revision) {
    return fail_text(
        ROV_ERR_CORRUPT,
        "data.mdb of database %s is damaged or was replaced by an older one: its newest "
        "commit is %llu, and commit %llu was made; restore the database from a dump, or "
        "remove the file changes in its directory to go on with the older commit",
        path, static_cast<unsigned long long>(found.revision),
        static_cast<unsigned long long>(mark.revision));
  }
  if (mark.revision < found.revision || !mark.has_sums) return ROV_OK;
  const auto [table, other] =
      std::mismatch(mark.sums, mark.sums + kTables, static_cast<const uint64_t*>(found.sums));
  if (table == mark.sums + kTables) return ROV_OK;
  return fail_text(ROV_ERR_CORRUPT,
                   "data.mdb of database %s is damaged: table %s holds other records than commit "
                   "%llu left there, so pages of it were not written, or are older ones; restore "
                   "the database from a dump, or remove the file changes in its directory to go "
                   "on with them",
                   path, kTableRows[table - mark.sums].name,
                   static_cast<unsigned long long>(found.revision));
}

namespace {

// How often a file is verified again that somebody may have written to meanwhile.
constexpr int kVerifyAttempts = 3;

uint32_t verify_in(int directory, const char* path, VerifyReport* report) {
  const int file = open_regular(directory, "data.mdb", O_RDONLY);
  if (file < 0) return engine_fail_at(errno, path, "open the data file");
  const uint32_t status = verify_data(file, path, report);
  close(file);
  return status;
}

// Whether the engine's lock is on its file of locks, by which a process that has it open keeps others
// from beginning that file anew. Its own lock does not show.
bool has_engine_lock(int lock_file) {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_len = 1;
  return fcntl(lock_file, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

// For the commits to come. With the commit lock, or before the environment is open.
void remember_sums(Env* env, const VerifyReport& found) {
  Mark& mark = env->committing.mark;
  mark.revision = found.revision;
  mark.has_sums = true;
  memcpy(mark.sums, found.sums, sizeof mark.sums);
}

uint32_t verify_alone(Env* env, const WriterWait& wait, VerifyReport* report) {
  uint32_t status = writer_hold(env, wait);
  if (status != ROV_OK) return status;
  status = verify_in(env->directory, env->path, report);
  if (status == ROV_OK)
    status = check_mark(wake_mark(env->directory, env->identity), env->path, *report);
  if (status == ROV_OK) {
    pthread_mutex_lock(&env->committing.lock);
    remember_sums(env, *report);
    pthread_mutex_unlock(&env->committing.lock);
  }
  writer_unlock(env);
  return status;
}

// Without the right to write: what commits in the meantime can spoil the result, but then it shows.
// One that passes is right: a commit uses no page of the newest one.
uint32_t verify_beside_writers(Env* env, VerifyReport* report) {
  for (int attempt = 0; attempt < kVerifyAttempts; ++attempt) {
    const uint64_t before = store_revision(env);
    const Mark mark = wake_mark(env->directory, env->identity);
    uint32_t status = verify_in(env->directory, env->path, report);
    if (status == ROV_OK) status = check_mark(mark, env->path, *report);
    if (status == ROV_OK || store_revision(env) == before) return status;
  }
  return fail_text(ROV_ERR_BUSY,
                   "database %s changes faster than this process can verify it, which may not make "
                   "writers wait: try again, or get the right to write to writer.lock",
                   env->path);
}

uint32_t verify_copy(const Env* env, VerifyReport* report) {
  return verify_data(env->copy, env->path, report);
}

}  // namespace

uint32_t verify_before_opening(int directory, Env* env) {
  for (int64_t deadline = monotonic_now() + kNanosPerSecond;;) {
    const uint32_t present = find_presence(env->presence);
    const bool locked = has_engine_lock(env->presence);
    if (present != 0 && locked) return ROV_OK;  // it has verified what it opened
    if (present == 0) break;
    // It may be about to end.
    if (monotonic_now() >= deadline) {
      return fail_text(ROV_ERR_BUSY,
                       "%s has database %s open, and has lost its lock on lock.mdb, as by opening "
                       "and closing that file: end it, then try again",
                       name_of_holder(present).text, env->path);
    }
    const timespec pause = timespec_of(5 * kNanosPerMilli);
    nanosleep(&pause, nullptr);
  }
  const uint32_t status = verify_in(directory, env->path, &env->use.verified);
  if (status != ROV_OK) return status;
  remember_sums(env, env->use.verified);
  return check_mark(wake_mark(directory, env->identity), env->path, env->use.verified);
}

uint32_t store_verify(Env* env, const WriterWait& wait, VerifyReport* report) {
  // Who asks just after it was opened is told what was found then.
  pthread_mutex_lock(&env->use.lock);
  *report = env->use.verified;
  env->use.verified = VerifyReport();
  pthread_mutex_unlock(&env->use.lock);
  if (report->page_size != 0 && report->revision == store_revision(env)) return ROV_OK;
  if (env->copy >= 0) return verify_copy(env, report);
  return env->locks ? verify_alone(env, wait, report) : verify_beside_writers(env, report);
}

// ---- Compacting ---------------------------------------------------------------------------------

namespace {

constexpr const char* kCopy = "data.mdb.compacted";

int copy_compacted(int directory, int file) {
  MDB_env* engine = nullptr;
  int error = mdb_env_create(&engine);
  if (error != 0) return error;
  // Nobody else is there, and lock.mdb belongs to those who are.
  error =
      mdb_env_open(engine, EnginePlace(directory).path, MDB_RDONLY | MDB_NOLOCK | MDB_NOTLS, 0600);
  if (error == 0) error = mdb_env_copyfd2(engine, file, MDB_CP_COMPACT);
  mdb_env_close(engine);
  return error;
}

// Writes the meta page of the copied commit to both places, as that commit and the one before.
int number_commit(int file, uint32_t page_size, uint64_t revision) {
  uint8_t meta[kPageHead + kMetaBytes];
  if (pread(file, meta, sizeof meta, page_size) != static_cast<ssize_t>(sizeof meta)) return EIO;
  for (Word page = 0; page < kMetaPages; ++page) {
    const auto newest = static_cast<Word>(revision);
    write_value(meta, page);
    write_value(meta + sizeof meta - kWord, newest % 2 == page ? newest : newest - 1);
    const auto offset = static_cast<off_t>(page * page_size);
    const ssize_t written = pwrite(file, meta, sizeof meta, offset);
    if (written != static_cast<ssize_t>(sizeof meta)) return written < 0 ? errno : ENOSPC;
  }
  return fsync(file) == 0 ? 0 : errno;
}

bool has_same_records(const VerifyReport& one, const VerifyReport& other) {
  return std::equal(one.sums, one.sums + kTables, other.sums) &&
         std::equal(one.records, one.records + kTables, other.records);
}

uint32_t write_copy(int directory, const char* path, int file, const VerifyReport& original,
                    uint64_t* bytes) {
  int error = copy_compacted(directory, file);
  if (error == 0 && original.revision != 0) {
    error = number_commit(file, original.page_size, original.revision);
  }
  if (error != 0) return engine_fail_at(error, path, "write the compacted file");
  VerifyReport copy;
  const uint32_t status = verify_data(file, path, &copy);
  if (status != ROV_OK) return status;
  if (!has_same_records(original, copy)) {
    return fail_text(ROV_ERR_CORRUPT,
                     "data.mdb of database %s was damaged while it was compacted: the copy lacks "
                     "records, and was thrown away; restore the database from a dump",
                     path);
  }
  *bytes = copy.bytes;
  error = move_durably(directory, kCopy, directory, "data.mdb");
  return engine_fail_at(error, path, "move the compacted file into place");
}

// Makes the file that takes the place of `data`, with its owner and rights. -1 with errno.
int make_replacement(int directory, int data) {
  struct stat info;
  if (fstat(data, &info) != 0) return -1;
  if (unlinkat(directory, kCopy, 0) != 0 && errno != ENOENT) return -1;  // of one that was killed
  const int file = make_regular(directory, kCopy, O_RDWR);
  if (file < 0) return -1;
  if (fchown(file, info.st_uid, info.st_gid) == 0 && fchmod(file, info.st_mode & 0777) == 0) {
    return file;
  }
  const int error = errno;
  close(file);
  unlinkat(directory, kCopy, 0);
  errno = error;
  return -1;
}

uint32_t compact_file(int directory, const char* path, int data, uint64_t* before,
                      uint64_t* after) {
  VerifyReport original;
  uint32_t status = verify_data(data, path, &original);
  if (status != ROV_OK) return status;
  const int file = make_replacement(directory, data);
  if (file < 0) return engine_fail_at(errno, path, "make the compacted file");
  *before = original.bytes;
  status = write_copy(directory, path, file, original, after);
  close(file);
  if (status != ROV_OK) unlinkat(directory, kCopy, 0);
  return status;
}

uint32_t compact_alone(int directory, const char* path, uint64_t* before, uint64_t* after) {
  const int data = open_regular(directory, "data.mdb", O_RDONLY);
  if (data < 0) return engine_fail_at(errno, path, "open the data file");
  const uint32_t status = compact_file(directory, path, data, before, after);
  close(data);
  return status;
}

}  // namespace

uint32_t compact_closed(int directory, const char* path, uint64_t* before, uint64_t* after) {
  const DirectoryLock lock(directory, path);
  if (lock.status() != ROV_OK) return lock.status();
  const int file = open_or_make(directory, "lock.mdb", O_RDWR);
  if (file < 0) return engine_fail_at(errno, path, "open lock.mdb");
  const uint32_t present = find_presence(file);
  const bool locked = has_engine_lock(file);
  close(file);
  if (present == 0 && !locked) return compact_alone(directory, path, before, after);
  return fail_text(ROV_ERR_BUSY, "database %s is open in %s: compact it when nobody has it open",
                   path, name_of_holder(present).text);
}

}  // namespace rov
