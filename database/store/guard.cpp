// What goes wrong in the engine: its errors as statuses, its assertions, and the length of its file.
#include "database/store/guard.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <lmdb.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "database/base/error.h"
#include "database/file/layout.h"
#include "rov.h"

namespace rov {

// ---- Errors -------------------------------------------------------------------------------------

namespace {

constexpr ErrorAdvice kRows[] = {
    {MDB_PAGE_NOTFOUND, ROV_ERR_CORRUPT, "restore the database from a dump"},
    {MDB_CORRUPTED, ROV_ERR_CORRUPT, "restore the database from a dump"},
    {MDB_CURSOR_FULL, ROV_ERR_CORRUPT, "restore the database from a dump"},
    {MDB_PAGE_FULL, ROV_ERR_CORRUPT, "restore the database from a dump"},
    // Of a key that it found: those that it is given are short.
    {MDB_BAD_VALSIZE, ROV_ERR_CORRUPT, "restore the database from a dump"},
    // What the engine says of a transaction in which it found damage before.
    {MDB_BAD_TXN, ROV_ERR_CORRUPT,
     "the session met a damaged page before: look at the database with qimctl check, and restore "
     "it from a dump"},
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
  if (error == kNotRegular) {
    return fail_text(ROV_ERR_OPEN,
                     "cannot %s in database %s: %s; see who put it there, and remove it", doing,
                     path, file_error_text(error));
  }
  for (const ErrorAdvice& row : kRows) {
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

Attempt engine_attempt(int error, const Env* env, const char* doing) {
  if (error == MDB_MAP_RESIZED) return {.ending = Ending::kMapResized};
  return {engine_fail(error, env, doing)};
}

// ---- Broken assertions --------------------------------------------------------------------------

constinit thread_local Guard* t_guard = nullptr;

namespace {

void die(Env* env, const char* damage) {
  Life expected = Life::kAlive;
  if (!env->life.compare_exchange_strong(expected, Life::kDying)) return;
  snprintf(env->damage, sizeof env->damage, "%s", damage);
  env->life.store(Life::kDamaged, std::memory_order_release);
}

// The engine calls this with the broken assertion in words, and ends the process when it returns.
void on_broken_assertion(MDB_env* engine, const char* text) {
  Guard* guard = t_guard;
  if (guard == nullptr) return;
  die(static_cast<Env*>(mdb_env_get_userctx(engine)), text);
  __builtin_longjmp(guard->place, 1);
}

}  // namespace

void condemn(Env* env, const PageDamage& damage) {
  char text[sizeof env->damage];
  snprintf(text, sizeof text, "page %llu: %s", static_cast<unsigned long long>(damage.page),
           damage.what);
  die(env, text);
}

void guard_engine(Env* env) {
  mdb_env_set_userctx(env->engine, env);
  mdb_env_set_assert(env->engine, on_broken_assertion);
}

pthread_mutex_t* newest_robust_lock() {
  robust_list_head* head = nullptr;
  size_t size = 0;
  if (syscall(SYS_get_robust_list, 0, &head, &size) != 0 || head->list.next == &head->list) {
    return nullptr;
  }
  // An entry lies somewhere in its lock; the word that the lock begins with is so far from it. The
  // lowest bit tells how the lock hands priority on.
  const auto entry = reinterpret_cast<uintptr_t>(head->list.next) & ~uintptr_t{1};
  return reinterpret_cast<pthread_mutex_t*>(entry + static_cast<uintptr_t>(head->futex_offset));
}

uint32_t dead_env(const Env* env) {
  const Life life = env->life.load(std::memory_order_acquire);
  if (life == Life::kNoMap) {
    return fail_text(
        ROV_ERR_IO,
        "the memory map of database %s was lost in this process: close the database and open "
        "it again",
        env->path);
  }
  return fail_text(ROV_ERR_CORRUPT,
                   "data.mdb of database %s was damaged while it was open, and this process uses "
                   "it no more (%s): close the database, look at it with qimctl check, and restore "
                   "the database from a dump",
                   env->path, life == Life::kDamaged ? env->damage : "just found");
}

uint32_t check_file(Env* env) {
  int file = -1;
  mdb_env_get_fd(env->engine, &file);
  MDB_envinfo engine;
  mdb_env_info(env->engine, &engine);
  struct stat info = {};
  if (fstat(file, &info) != 0) return engine_fail(errno, env, "examine the data file");
  struct stat named = {};
  if (fstatat(env->directory, "data.mdb", &named, AT_SYMLINK_NOFOLLOW) != 0 ||
      named.st_ino != info.st_ino || named.st_dev != info.st_dev) {
    die(env, "another file is in its place, or none");
    return dead_env(env);
  }
  const auto bytes = static_cast<uint64_t>(info.st_size);
  const bool cut = bytes < env->committing.file_bytes;
  if (!cut && can_have_pages(bytes, env->page_size, engine.me_last_pgno)) {
    env->committing.file_bytes = bytes;
    return ROV_OK;
  }
  char damage[sizeof env->damage];
  snprintf(
      damage, sizeof damage,
      cut ? "it was cut to %llu bytes" : "it has %llu bytes, and a meta page counts more pages",
      static_cast<unsigned long long>(bytes));
  die(env, damage);
  return dead_env(env);
}

}  // namespace rov
