// What the store*.cpp files share. They alone see the engine.
#ifndef DATABASE_STORE_ENGINE_H
#define DATABASE_STORE_ENGINE_H

#include "database/store/store.h"
#include "rov.h"

namespace rov {

// Notes an engine's or system's error and returns the status that stands for it; 0 is ROV_OK.
// `doing` completes the sentence "cannot ...".
uint32_t engine_fail(int error, const Env* env, const char* doing);
uint32_t engine_fail_at(int error, const char* path, const char* doing);

// ---- store_guard.cpp ----------------------------------------------------------------------------

inline bool is_dead(const Env* env) {
  return env->life.load(std::memory_order_relaxed) != Life::kAlive;
}
// Notes why the environment can't be used any more.
uint32_t dead_env(const Env* env);
// Looks at the length of the data file, which never shrinks, and at the number of pages that the
// engine takes it to have: before either is built upon, for a call of the system is all it costs.
// ROV_ERR_CORRUPT, and the environment is dead. With the commit lock.
uint32_t check_length(Env* env);

// ---- store_format.cpp: the file that says what wrote the database -------------------------------

// Checks directory/format: ROV_OK, ROV_ERR_NO_ITEM when there is none, or the status that says in
// what the database differs.
uint32_t format_check(int directory, const char* path);
// Writes directory/`name` and makes it durable.
uint32_t format_write(int directory, const char* name, const char* path);

// ---- store_files.cpp ----------------------------------------------------------------------------

// Removes the directory `name` in the directory `at` with all that is in it; it need not be there.
// 0 or errno.
int remove_tree(int at, const char* name);

// ---- store_copy.cpp -----------------------------------------------------------------------------

// Writes a copy of the newest commit into the empty `file` and makes it durable.
uint32_t store_copy(Env* env, int file);

// ---- store_create.cpp ---------------------------------------------------------------------------

// Makes sure that `path` holds a database of this build: makes one when there is none and `create`
// says so. The directory stays open in *directory on success.
uint32_t store_prepare(const char* path, bool create, int* directory);

// ---- store_tables.cpp ---------------------------------------------------------------------------

// Opens the tables of an environment that has them.
int tables_open(Env* env);
// Makes them in a new one.
int tables_make(MDB_env* engine);

// ---- store_verify.cpp ---------------------------------------------------------------------------

// One process at a time opens the database in a directory as long as such an object lives.
class OpenLock {
 public:
  explicit OpenLock(int directory);
  ~OpenLock();
  OpenLock(const OpenLock&) = delete;
  OpenLock& operator=(const OpenLock&) = delete;

 private:
  int directory_;
};

// Whether another process has the database in the directory open. Not to be asked while this
// process has: that would give its lock up.
uint32_t find_others(int directory, const char* path, bool* found);
// Verifies the data file, unless another process has the database open. Under an OpenLock.
uint32_t verify_before_opening(int directory, Env* env);

// ---- store_compact.cpp --------------------------------------------------------------------------

// Compacts the database in the directory, which this process does not have open.
uint32_t compact_closed(int directory, const char* path, uint64_t* before, uint64_t* after);

// ---- store_map.cpp ------------------------------------------------------------------------------

constexpr size_t kMapStart = size_t{16} << 20;

// ROV_MAP_MAX, or the default.
size_t map_limit_setting();
// A size of the map from `current` upward that has room for `needed` bytes.
size_t map_size_for(size_t current, size_t needed);
size_t map_size(const Env* env);
size_t map_used(const Env* env);
// Changes the map. Needs the commit lock, and no gate. ROV_ERR_FULL when the process has no room
// for it.
uint32_t map_resize(Env* env, size_t size);
// Stops all snapshots' gates and lets them go on. Under env->mutex.
void hold_snapshots(Env* env);
void resume_snapshots(Env* env);
// Notes that the map could not be made large enough in time.
uint32_t grows_too_fast(const Env* env);
// Attempts something, again with a larger map as long as it gives kMapResized: another process made
// the file grow. The caller is outside every gate.
template <class Attempt>
uint32_t follow_growth(Env* env, Attempt attempt) {
  constexpr int kAttempts = 100;
  uint32_t status = attempt();
  for (int n = 1; n < kAttempts && status == kMapResized; ++n) {
    status = store_adopt_map(env);
    if (status == ROV_OK) status = attempt();
  }
  return status == kMapResized ? grows_too_fast(env) : status;
}

// ---- store_writer.cpp, store_reserve.cpp --------------------------------------------------------

// Notes that the environment is open for reading only.
uint32_t writer_refused(const Env* env);
// The other user for whom the next write is reserved, 0 when there is none. A reservation for
// `user` is used up, and one that holds nobody any more taken away. With the right to write.
uint64_t writer_reserved_for(Env* env, uint64_t user);

// ---- store_snapshot.cpp -------------------------------------------------------------------------

void snapshot_delete(Snapshot* snapshot);
// Pointers that were handed out are wrong from now on.
inline void snapshot_moved(Snapshot* snapshot) {
  if (++snapshot->epoch == 0) snapshot->epoch = 1;
}

}  // namespace rov

#endif
