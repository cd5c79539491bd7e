// What the sources of this folder share. They alone see the engine.
#pragma once

#include <cstdio>

#include "database/store/files.h"
#include "database/store/store.h"
#include "database/store/wake.h"
#include "rov.h"

namespace rov {

// Notes an engine's or system's error and returns the status that stands for it; 0 is ROV_OK.
// `doing` completes the sentence "cannot ...".
uint32_t engine_fail(int error, const Env* env, const char* doing);
uint32_t engine_fail_at(int error, const char* path, const char* doing);
// The same of a call that another process can spoil.
[[nodiscard]] Attempt engine_attempt(int error, const Env* env, const char* doing);

// ---- guard.cpp ----------------------------------------------------------------------------------

inline bool is_dead(const Env* env) {
  return env->life.load(std::memory_order_relaxed) != Life::kAlive;
}
// Notes why the environment can't be used any more.
[[nodiscard]] uint32_t dead_env(const Env* env);
// Uses the environment no more, for what is wrong with a page.
void condemn(Env* env, const PageDamage& damage);
// Looks whether the data file is the one of that name still, at its length, which never shrinks, and
// at the number of pages that the engine takes it to have: before any of this is built upon, for
// two calls of the system are all it costs.
// ROV_ERR_CORRUPT, and the environment is dead. With the commit lock.
[[nodiscard]] uint32_t check_file(Env* env);

// ---- create.cpp: the file that says what wrote the database -------------------------------------

// Checks directory/format: ROV_OK with the database's identity, ROV_ERR_NO_ITEM when there is none, or
// the status that says in what the database differs.
[[nodiscard]] uint32_t format_check(const char* path, OpenDirectory* directory);
// Writes directory/`name` with an identity of its own and makes it durable.
[[nodiscard]] uint32_t format_write(int directory, const char* name, const char* path);

// ---- copies.cpp ---------------------------------------------------------------------------------

// Writes a copy of the newest commit into the empty `file` and makes it durable.
[[nodiscard]] uint32_t store_copy(Env* env, int file);

// ---- create.cpp ---------------------------------------------------------------------------------

// Makes sure that `path` holds a database of this build: makes one when there is none and `wanted`
// says so. The directory stays open in *directory on success.
[[nodiscard]] uint32_t store_prepare(const char* path, const OpenOptions& wanted,
                                     OpenDirectory* directory);
// The same of the database in a directory that is open, and stays so in any case; `path` is for messages.
[[nodiscard]] uint32_t store_prepare_open(const char* path, OpenDirectory* directory);

// ---- open.cpp -----------------------------------------------------------------------------------

// Where the files are that the engine opens by itself: in an open directory, wherever its path leads by
// now, or an open file.
struct EnginePlace {
  explicit EnginePlace(int file) { snprintf(path, sizeof path, "/proc/self/fd/%d", file); }
  char path[32];
};

// Opens the environment in an open directory, for reading only; `path` is for messages.
[[nodiscard]] uint32_t store_open_directory(const char* path, int directory, Env** env);

// Opens the tables of an environment that has them.
int tables_open(Env* env);
// Makes them in a new one.
int tables_make(MDB_env* engine);

// ---- number.cpp ---------------------------------------------------------------------------------

constexpr unsigned kMaxReaders = 1022;  // the reader table stays within 64 KiB

// Before the engine opens its files, when all its limits are set and lock.mdb is open: gives it another
// number for this process where one of that number has the database open.
void number_engine(Env* env);
void close_engine(Env* env);
// The process that has that number in the table of readers.
uint32_t process_of_number(uint32_t number);

// ---- verify.cpp ---------------------------------------------------------------------------------

// Verifies the data file, unless another process has the database open. Under a DirectoryLock.
[[nodiscard]] uint32_t verify_before_opening(int directory, Env* env);
// Notes that the newest commit of a good file is older than the one that was marked, or does not have
// the records that it had.
[[nodiscard]] uint32_t check_mark(const Mark& mark, const char* path, const VerifyReport& found);

// ---- lockless.cpp -------------------------------------------------------------------------------

// Copies the data file for a process that may not take the database's locks, and verifies the copy.
[[nodiscard]] uint32_t copy_for_reading(int directory, Env* env);

// ---- verify.cpp ---------------------------------------------------------------------------------

// Compacts the database in the directory, which this process does not have open.
[[nodiscard]] uint32_t compact_closed(int directory, const char* path, uint64_t* before,
                                      uint64_t* after);

// ---- map.cpp ------------------------------------------------------------------------------------

constexpr size_t kMapStart = size_t{16} << 20;

// ROV_MAP_MAX, or the default.
size_t map_limit_setting();
// A size of the map from `current` upward that has room for `needed` bytes.
size_t map_size_for(size_t current, size_t needed);
size_t map_size(const Env* env);
size_t map_used(const Env* env);
// Changes the map. Needs the commit lock, and no gate. ROV_ERR_FULL when the process has no room
// for it.
[[nodiscard]] uint32_t map_resize(Env* env, size_t size);
// Stops all snapshots' gates and lets them go on. Under env->use.lock.
void hold_snapshots(Env* env);
void resume_snapshots(Env* env);
// Notes that the map could not be made large enough in time.
[[nodiscard]] uint32_t grows_too_fast(const Env* env);
// Attempts something, again with a larger map as long as another process made the file grow. The
// caller is outside every gate.
template <class Work>
[[nodiscard]] uint32_t follow_growth(Env* env, Work work) {
  constexpr int kAttempts = 100;
  Attempt made = work();
  for (int n = 1; n < kAttempts && made.ending == Ending::kMapResized; ++n) {
    const uint32_t status = store_adopt_map(env);
    made = status == ROV_OK ? work() : Attempt{status};
  }
  return made.ending == Ending::kMapResized ? grows_too_fast(env) : made.status;
}

// Finds where the engine has the file in memory, as the commit of `txn` needs it that has this meta
// page. To be called before the first search, and after the map was changed; inside a gate, or with the
// commit lock.
[[nodiscard]] uint32_t map_find(Env* env, MDB_txn* txn, const Meta& meta);
// Frees what was noted of its pages.
void map_forget(MappedFile& map);
// Finds the trees of a commit, which must be those that were found before, and remembers them. False with
// what is wrong.
[[nodiscard]] bool find_trees(Env* env, const Commit& commit, uint64_t revision, const Meta& meta,
                              KnownTrees* trees, PageDamage* damage);
// Reads the meta page of a commit, one of the last two. 0 or errno.
int read_meta_of(const Env* env, uint64_t revision, Meta* meta);

// ---- look.cpp -----------------------------------------------------------------------------------

// Looks at the pages that the engine uses when it applies the overlay to commit `base` in `txn`, which
// has changed nothing yet. ROV_ERR_CORRUPT, and the environment is dead.
[[nodiscard]] uint32_t look_before_writing(Env* env, MDB_txn* txn, const Overlay& edits,
                                           uint64_t base);

// ---- writer.cpp ---------------------------------------------------------------------------------

// Notes that the environment is open for reading only.
[[nodiscard]] uint32_t writer_refused(const Env* env);
// The other user for whom the next write is reserved, 0 when there is none. A reservation for
// `user` is used up, and one that holds nobody any more taken away. With the right to write.
uint64_t writer_reserved_for(Env* env, uint64_t user);

// ---- snapshot.cpp -------------------------------------------------------------------------------

void snapshot_delete(Snapshot* snapshot);
// Pointers that were handed out are wrong from now on.
inline void snapshot_moved(Snapshot* snapshot) {
  if (++snapshot->epoch == 0) snapshot->epoch = 1;
}

}  // namespace rov
