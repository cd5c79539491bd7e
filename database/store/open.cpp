// Opening an environment, once a process and path: a second opening of one path by the engine would
// silently break its locking.
#include <fcntl.h>
#include <lmdb.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "database/base/error.h"
#include "database/base/tables.h"
#include "database/handle/handle.h"
#include "database/store/guard.h"
#include "rov.h"

namespace rov {

// ---- Tables -------------------------------------------------------------------------------------

namespace {

int open_all(MDB_txn* txn, unsigned* tables, unsigned flags) {
  int error = 0;
  for (uint32_t i = 0; i < kTables && error == 0; ++i) {
    const TableRow& row = kTableRows[i];
    const unsigned keys = row.integer_keys ? MDB_INTEGERKEY : 0U;
    error = mdb_dbi_open(txn, row.name, keys | flags, &tables[i]);
  }
  return error;
}

// A commit, even of a reader, is what keeps the handles of the tables.
int end(MDB_txn* txn, int error) {
  if (error == 0) return mdb_txn_commit(txn);
  mdb_txn_abort(txn);
  return error;
}

}  // namespace

int tables_open(Env* env) {
  MDB_txn* txn = nullptr;
  const int error = mdb_txn_begin(env->engine, nullptr, MDB_RDONLY, &txn);
  if (error != 0) return error;
  return end(txn, guarded(env, [&] {
               const int opened = open_all(txn, env->tables, 0);
               return opened != 0 ? opened : mdb_dbi_open(txn, nullptr, 0, &env->main_table);
             }));
}

int tables_make(MDB_env* engine) {
  MDB_txn* txn = nullptr;
  const int error = mdb_txn_begin(engine, nullptr, 0, &txn);
  if (error != 0) return error;
  unsigned tables[kTables];
  return end(txn, open_all(txn, tables, MDB_CREATE));
}

// ---- Environments -------------------------------------------------------------------------------

namespace {

pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;
Env* g_envs = nullptr;
bool g_ready = false;

// A forked child shares nothing of what its parent has open: the engine's environments must not be
// used across a fork. They are left as they are (closing them would free the parent's reader
// slots), and no handle of the parent is valid in the child.
void after_fork_in_child() {
  pthread_mutex_init(&g_mutex, nullptr);
  for (Env* env = g_envs; env != nullptr; env = env->registered.next) {
    if (env->presence >= 0) close(env->presence);
    if (env->lock_file >= 0) close(env->lock_file);
    if (env->copy >= 0) close(env->copy);
    close(env->directory);
  }
  g_envs = nullptr;
  handle_forget_all();
  gate_setup();
}

void set_up_once() {
  if (g_ready) return;
  g_ready = true;
  gate_setup();
  pthread_atfork(nullptr, nullptr, after_fork_in_child);
}

Env* find_open(const struct stat& directory) {
  for (Env* env = g_envs; env != nullptr; env = env->registered.next) {
    if (env->device == directory.st_dev && env->inode == directory.st_ino) return env;
  }
  return nullptr;
}

void init_locks(Env* env) {
  pthread_mutex_init(&env->committing.lock, nullptr);
  pthread_mutex_init(&env->use.lock, nullptr);
  pthread_mutex_init(&env->reserve_mutex, nullptr);
  pthread_mutex_init(&env->map_mutex, nullptr);
  pthread_condattr_t attributes;
  pthread_condattr_init(&attributes);
  pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
  pthread_cond_init(&env->use.writer_gone, &attributes);
  pthread_condattr_destroy(&attributes);
}

Env* env_new(const char* path, uint32_t flags) {
  auto* env = new (std::nothrow) Env;
  char* copy = env == nullptr ? nullptr : strdup(path);
  if (copy == nullptr) {
    delete env;
    return nullptr;
  }
  env->path = copy;
  env->read_only = (flags & ROV_DB_RDONLY) != 0;
  env->map_limit = map_limit_setting();
  init_locks(env);
  return env;
}

void env_delete(Env* env) {
  // First, so that whoever is marked has the engine's own lock, too.
  if (env->presence >= 0) end_presence(env->presence);
  // The system has a lock that is held in a list of the thread's, so it can't be unmapped.
  if (env->engine != nullptr && !env->keeps_lock) close_engine(env);
  // Closing it would take away locks that the engine keeps.
  if (env->presence >= 0 && !env->keeps_lock) close(env->presence);
  if (env->lock_file >= 0) close(env->lock_file);
  if (env->copy >= 0) close(env->copy);
  if (env->directory >= 0) close(env->directory);
  pthread_cond_destroy(&env->use.writer_gone);
  pthread_mutex_destroy(&env->map_mutex);
  pthread_mutex_destroy(&env->reserve_mutex);
  pthread_mutex_destroy(&env->use.lock);
  pthread_mutex_destroy(&env->committing.lock);
  map_forget(env->map);
  free(env->path);
  delete env;
}

void set_page_size(Env* env) {
  MDB_stat stat;
  mdb_env_stat(env->engine, &stat);
  env->page_size = stat.ms_psize;
  const auto aligned = static_cast<uint32_t>(sysconf(_SC_PAGESIZE));
  env->page_mask = (aligned < env->page_size ? aligned : env->page_size) - 1;
}

int open_engine_files(Env* env, int directory) {
  constexpr mode_t kOwnerOnly = 0600;
  if (env->copy >= 0) {
    const unsigned flags = MDB_RDONLY | MDB_NOLOCK | MDB_NOSUBDIR | MDB_NOTLS;
    return mdb_env_open(env->engine, EnginePlace(env->copy).path, flags, kOwnerOnly);
  }
  const unsigned flags = MDB_NOTLS | (env->read_only ? MDB_RDONLY : 0U);
  return mdb_env_open(env->engine, EnginePlace(directory).path, flags, kOwnerOnly);
}

uint32_t open_engine(Env* env, int directory) {
  int error = mdb_env_create(&env->engine);
  if (error == 0) guard_engine(env);
  if (error == 0) error = mdb_env_set_maxdbs(env->engine, kTables);
  if (error == 0) error = mdb_env_set_maxreaders(env->engine, kMaxReaders);
  if (error == 0 && env->presence >= 0) number_engine(env);
  if (error == 0) error = open_engine_files(env, directory);
  if (error != 0) return engine_fail(error, env, "open the data file");
  store_check_readers(env);
  set_page_size(env);
  return follow_growth(env,
                       [&] { return engine_attempt(tables_open(env), env, "open the tables"); });
}

// Gives the engine's file of locks all the room that it can need: the engine makes it sparse, and maps
// it, so that a full file system would end processes that it has no page for. 0 or errno.
int allocate(int file) {
  constexpr off_t kMost = 64 << 10;
  if (fallocate(file, FALLOC_FL_KEEP_SIZE, 0, kMost) == 0) return 0;
  return errno == EOPNOTSUPP || errno == ENOSYS ? 0 : errno;
}

// Opens the file of the engine's locks, with the rights of the others. 0 or errno.
int prepare_lock_file(Env* env, int directory) {
  env->presence = open_or_make(directory, "lock.mdb", O_RDWR);
  return env->presence < 0 ? errno : allocate(env->presence);
}

// Whether the error says that this process can't take part in locks there, though it may read.
bool is_forbidden(int error) {
  return error == EACCES || error == EPERM || error == EROFS || error == ENOSPC || error == EDQUOT;
}

// Verified unless a process that has it open has done so, and marked from then on.
uint32_t verify_and_mark(Env* env, int directory) {
  const uint32_t status = verify_before_opening(directory, env);
  if (status != ROV_OK) return status;
  return engine_fail(take_presence(env->presence), env, "lock lock.mdb");
}

// Verified first, and by one process at a time. Who may not take part in the locks reads a copy.
uint32_t open_verified(Env* env, int directory) {
  const DirectoryLock lock(directory, env->path);
  if (lock.status() != ROV_OK) return lock.status();
  const int error = prepare_lock_file(env, directory);
  uint32_t status = ROV_OK;
  if (env->read_only && is_forbidden(error)) {
    status = copy_for_reading(directory, env);
  } else if (error != 0) {
    status = engine_fail(error, env, "open lock.mdb");
  } else {
    status = verify_and_mark(env, directory);
  }
  return status == ROV_OK ? open_engine(env, directory) : status;
}

// The lock of those who write; who only reads asks who has it, where that is possible.
uint32_t open_lock_file(Env* env, int directory) {
  env->lock_file = env->read_only ? open_regular(directory, "writer.lock", O_RDWR)
                                  : open_or_make(directory, "writer.lock", O_RDWR);
  env->locks = env->lock_file >= 0;
  if (env->locks) return ROV_OK;
  if (!env->read_only) return engine_fail(errno, env, "open writer.lock");
  env->lock_file = open_regular(directory, "writer.lock", O_RDONLY);
  return ROV_OK;
}

uint32_t open_env(const char* path, uint32_t flags, const OpenDirectory& directory,
                  const struct stat& info, Env** out) {
  Env* env = env_new(path, flags);
  if (env == nullptr) return fail(ROV_ERR_NO_MEM, Note::kNoMemory, sizeof(Env));
  env->device = info.st_dev;
  env->inode = info.st_ino;
  env->identity = directory.identity;
  env->directory = fcntl(directory.file, F_DUPFD_CLOEXEC, 0);
  uint32_t status = engine_fail(env->directory < 0 ? errno : 0, env, "keep the directory open");
  if (status == ROV_OK) status = open_verified(env, directory.file);
  if (status == ROV_OK) status = open_lock_file(env, directory.file);
  if (status != ROV_OK) {
    env_delete(env);
    return status;
  }
  env->registered.next = g_envs;
  g_envs = env;
  *out = env;
  return ROV_OK;
}

uint32_t open_prepared(const char* path, uint32_t flags, const OpenDirectory& directory,
                       Env** out) {
  struct stat info;
  if (fstat(directory.file, &info) != 0) {
    return engine_fail_at(errno, path, "examine the directory");
  }
  Env* env = find_open(info);
  if (env == nullptr) return open_env(path, flags, directory, info, out);
  if (env->read_only && (flags & ROV_DB_RDONLY) == 0) {
    return fail_text(ROV_ERR_READ_ONLY,
                     "this process has database %s open for reading only: close it first", path);
  }
  *out = env;
  return ROV_OK;
}

// Opens, under the list's lock, and counts whoever uses the environment.
template <class Open>
uint32_t open_counted(Env** env, Open open) {
  pthread_mutex_lock(&g_mutex);
  set_up_once();
  const uint32_t status = open();
  if (status == ROV_OK) ++(*env)->registered.users;
  pthread_mutex_unlock(&g_mutex);
  return status;
}

uint32_t compact_locked(const char* path, uint64_t* before, uint64_t* after) {
  OpenDirectory directory;
  uint32_t status = store_prepare(path, {.flags = ROV_DB_NO_CREATE}, &directory);
  if (status != ROV_OK) return status;
  struct stat info;
  if (fstat(directory.file, &info) != 0) {
    status = engine_fail_at(errno, path, "examine the directory");
  } else if (find_open(info) != nullptr) {
    status = fail_text(ROV_ERR_BUSY, "this process has database %s open: close it first", path);
  } else {
    status = compact_closed(directory.file, path, before, after);
  }
  close(directory.file);
  return status;
}

void free_snapshots(Env* env) {
  while (env->use.spare != nullptr) {
    Snapshot* snapshot = env->use.spare;
    env->use.spare = snapshot->next;
    snapshot_delete(snapshot);
  }
}

}  // namespace

bool OpenOptions::creates() const {
  return (flags & (ROV_DB_NO_CREATE | ROV_DB_RDONLY)) == 0;
}

bool OpenOptions::reads_only() const {
  return (flags & ROV_DB_RDONLY) != 0;
}

uint32_t store_open(const char* path, const OpenOptions& wanted, Env** env) {
  return open_counted(env, [&] {
    OpenDirectory directory;
    uint32_t status = store_prepare(path, wanted, &directory);
    if (status != ROV_OK) return status;
    status = open_prepared(path, wanted.flags, directory, env);
    close(directory.file);
    return status;
  });
}

uint32_t store_open_directory(const char* path, int directory, Env** env) {
  return open_counted(env, [&] {
    OpenDirectory open = {directory, {}};
    const uint32_t status = store_prepare_open(path, &open);
    return status == ROV_OK ? open_prepared(path, ROV_DB_RDONLY, open, env) : status;
  });
}

void store_close(Env* env) {
  pthread_mutex_lock(&g_mutex);
  if (--env->registered.users == 0) {
    Env** link = &g_envs;
    while (*link != env) link = &(*link)->registered.next;
    *link = env->registered.next;
    free_snapshots(env);
    env_delete(env);
  }
  pthread_mutex_unlock(&g_mutex);
}

uint32_t store_compact(const char* path, uint64_t* before, uint64_t* after) {
  pthread_mutex_lock(&g_mutex);
  set_up_once();
  const uint32_t status = compact_locked(path, before, after);
  pthread_mutex_unlock(&g_mutex);
  return status;
}

void store_check_readers(Env* env) {
  int dead = 0;
  mdb_reader_check(env->engine, &dead);
}

namespace {

struct Readers {
  void (*out)(const char* text, void* arg);
  void* arg;
};

int hand_on(const char* text, void* readers) {
  const auto* to = static_cast<const Readers*>(readers);
  to->out(text, to->arg);
  return 0;
}

}  // namespace

uint32_t store_readers(Env* env, void (*out)(const char* text, void* arg), void* arg) {
  Readers readers = {out, arg};
  const int error = mdb_reader_list(env->engine, hand_on, &readers);
  return error >= 0 ? uint32_t{ROV_OK} : engine_fail(error, env, "list the readers");
}

}  // namespace rov
