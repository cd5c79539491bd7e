// The store: an LMDB environment in a directory. The sources of this folder alone include the engine's
// header.
//
//   directory/
//     format       what wrote it: format version, word size, byte order (create.cpp)
//     data.mdb     the engine's file: the tables of keys.h
//     lock.mdb     the engine's reader table
//     writer.lock  held by the process that has a write session
//     snapshots/   copies that are kept (copies.cpp)
//     changes      the last commit that was made known (wake.h)
//
// Every value begins with a CRC-32C over its key and the rest of it; what this layer hands out has
// been checked. Readers are snapshots; a write is an Overlay, applied in one engine transaction by
// store_commit, which makes the map larger when it must and applies the overlay again.
//
// Threads: an Env serves all threads. A Snapshot serves one at a time, inside the gate that it was
// opened with; whoever changes the map stops the gates of all snapshots of the environment first.
// What stays of a snapshot's engine transaction is pages numbers only: the engine adds them to the
// base of the map at every access (0.9.24, mdb_page_get), so that it goes on reading the same
// commit in a new map. Pointers into the old map are what must not survive; `epoch` tells.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "database/base/bytes.h"
#include "database/file/search.h"
#include "database/file/verify.h"
#include "database/handle/handle.h"
#include "database/store/copies.h"
#include "database/store/overlay.h"
#include "database/store/pointers.h"
#include "database/store/snapshot.h"
#include "database/store/wake.h"
#include "rov_edit.h"

struct MDB_env;
struct MDB_txn;
struct MDB_cursor;

namespace rov {

// How an attempt ended that another process can spoil, by making the file grow.
enum class Ending : uint8_t {
  kStatus,     // as its status says
  kMapResized  // the map is smaller than the newest commit: whoever sees it leaves its gate, calls
               // store_adopt_map and tries again
};

struct Attempt {
  uint32_t status = 0;
  Ending ending = Ending::kStatus;
};

// Whether an environment can be used.
enum class Life : uint8_t {
  kAlive,
  kDying,    // damage was found, and what it was is being noted
  kDamaged,  // the file was damaged while it was open (guard.h)
  kNoMap     // the map is gone
};

// Who is in the process's list of environments, under the list's lock.
struct Registered {
  uint32_t users = 0;  // database handles
  Env* next = nullptr;
};

// The lock of whoever commits or changes the map, taken before that of Using.
struct Committing {
  pthread_mutex_t lock;
  uint64_t file_bytes = 0;  // length of the data file when it was looked at last
  Mark mark;                // of a commit of which this process knows the sum
};

// A thread that waits until it may write.
struct Turn {
  Turn* next = nullptr;
};

// Who uses an environment, under a lock that is held for moments only.
struct Using {
  pthread_mutex_t lock;
  pthread_cond_t writer_gone;
  bool writer = false;        // a write session of this process holds or waits for the writer lock
  Turn* turns = nullptr;      // of those that wait for that, in the order in which they came
  uint32_t commits = 0;       // since the last look for dead readers
  Snapshot* open = nullptr;   // snapshots in use
  Snapshot* spare = nullptr;  // and those whose engine transactions wait to be used again
  uint32_t spares = 0;
  VerifyReport verified;  // when it was opened; page size 0: it was not, or somebody has been told
};

// The trees of the newest commit that was read, as they were then: whatever becomes of the pages that
// describe them, this process reads that commit.
struct KnownTrees {
  uint64_t revision = 0;
  Word tables = 0;  // the page that describes them
  Tree of[kTables];
};

struct Env {
  MDB_env* engine = nullptr;
  unsigned tables[kTables] = {};
  uint32_t page_size = 0;  // of the engine's pages
  uint32_t page_mask = 0;  // for an address's offset from the page that it is on
  dev_t device = 0;
  ino_t inode = 0;
  Identity identity;
  int directory = -1;  // as long as it is open, no other directory has its numbers
  char* path = nullptr;
  bool read_only = false;
  bool renumbered = false;  // the engine knows this process by another number (number.cpp)
  bool keeps_lock = false;  // the dead engine still holds its lock for writers
  std::atomic<Life> life{Life::kAlive};
  char damage[200] = {};  // what was found, when kDamaged
  size_t map_limit = 0;
  int presence = -1;  // lock.mdb, marked as in use (files.h)
  int lock_file = -1;
  bool locks = false;  // it may take the locks of writer.lock
  int copy =
      -1;  // of a database whose locks this process may not take: what it reads (lockless.cpp)
  pthread_mutex_t reserve_mutex;  // held by who changes the reservation in the lock file

  MappedFile map;             // as the engine has it (map.cpp)
  pthread_mutex_t map_mutex;  // held by who finds it, or uses what follows
  KnownTrees known;
  unsigned main_table = 0;  // the table of the tables

  Committing committing;
  Using use;
  PointerTable pointers;
  Registered registered;
};

// How an environment is opened.
struct OpenOptions {
  uint32_t flags = 0;  // ROV_DB_NO_CREATE, ROV_DB_RDONLY
  gid_t group = 0;     // who may use what is made, beside its owner; 0: nobody

  bool creates() const;
  bool reads_only() const;
};

// A database's directory, open, and what its format file says of it.
struct OpenDirectory {
  int file = -1;
  Identity identity;
};

// Opens the environment in `path`, or finds it open already in this process. Counted: every success
// needs a store_close.
[[nodiscard]] uint32_t store_open(const char* path, const OpenOptions& wanted, Env** env);
void store_close(Env* env);

// Makes the map as large as the newest commit needs. The caller is outside every gate.
[[nodiscard]] uint32_t store_adopt_map(Env* env);

// Rewrites the data file of a database that nobody has open, without free pages. The lengths of the
// file go to *before and *after.
[[nodiscard]] uint32_t store_compact(const char* path, uint64_t* before, uint64_t* after);

// ---- Snapshots: one commit, read as often as wanted ---------------------------------------------

// The newest commit, read inside `gate` from now on. The caller is outside every gate.
// Who is about to write gets one of the slots for readers that are kept for that.
enum class Reading : uint8_t { kAlone, kToWrite };
[[nodiscard]] uint32_t snapshot_open(Env* env, Gate* gate, Reading reading, Snapshot** out);
// The caller is outside the gate, which lets nobody in any more.
void snapshot_close(Snapshot* snapshot);
// Moves the snapshot to the newest commit, if it is not there. kMapResized: it is on no commit now;
// renew it again after store_adopt_map.
[[nodiscard]] Attempt snapshot_renew(Snapshot* snapshot);
// Whether the file has grown since that commit while its pages could not be used again: two commits later the
// engine would have taken them. Inside the gate, or while it is stopped.
bool snapshot_makes_grow(const Snapshot* snapshot);
// The newest commit's number.
uint64_t store_revision(const Env* env);

// ---- Writing ------------------------------------------------------------------------------------

// How somebody waits for the right to write.
struct WriterWait {
  uint32_t wait_ms;     // at most; 0xffffffff: for ever
  uint32_t retry_ms;    // how often other processes are looked at
  void (*meanwhile)();  // called now and then while a thread of this process has it; may be NULL
  uint64_t user;        // who it is for: a client's identity and a process (changes.h)
};

// Takes the right to write, over all processes; a reservation for the user is used up by that.
// ROV_ERR_BUSY when somebody else kept it, or it stayed reserved for somebody else.
[[nodiscard]] uint32_t writer_lock(Env* env, const WriterWait& wait);
void writer_unlock(Env* env);
// The same for who only wants that nobody writes; also where the environment is read only. To be
// ended with writer_unlock.
[[nodiscard]] uint32_t writer_hold(Env* env, const WriterWait& wait);
// Verifies the data file of an open environment (verify.h) while nobody writes.
[[nodiscard]] uint32_t store_verify(Env* env, const WriterWait& wait, VerifyReport* report);
// Reserves the right to write for that user's next time, in place of an earlier reservation: for at
// most so many seconds, and as long as the user's process is there. 0 takes it back.
[[nodiscard]] uint32_t writer_reserve(Env* env, uint64_t user, uint32_t seconds);

// Applies the overlay to commit `base` and makes it durable. Needs the writer lock, and no gate.
// The new commit's number goes to *revision when it is not NULL. On failure nothing was changed.
// Seals the overlay's values: they are not to be read after that.
[[nodiscard]] uint32_t store_commit(Env* env, const Overlay& edits, uint64_t base,
                                    uint64_t* revision);

// ---- Snapshots that are kept: copies of a commit ------------------------------------------------

// Opens the copy of that name, made of the newest commit when there was none, as an environment of its
// own (store_open). ROV_ERR_READ_ONLY when it cannot be made; ROV_ERR_OPEN when it was removed meanwhile.
[[nodiscard]] uint32_t copies_open(Env* env, const CopyName& name, Env** copy);
// Removes the copy of that name and those below it. ROV_ERR_NO_ITEM, noted, when there is none.
[[nodiscard]] uint32_t copies_remove(Env* env, const CopyName& name);
// The path of the first copy behind `after`. ROV_ERR_NO_ITEM, noted, past the last.
[[nodiscard]] uint32_t copies_next(Env* env, const char* after, char (&path)[kCopyNameRoom]);

// ---- backup.cpp ---------------------------------------------------------------------------------

// Makes the database in `path` of the newest commit, verified; of what it has. replace: in the place of one
// that is there and that nobody has open. ROV_ERR_OPEN where something is, or it is no database.
[[nodiscard]] uint32_t store_backup(Env* env, const char* path, bool replace, VerifyReport* found);

// ---- Readers ------------------------------------------------------------------------------------

// Gives the reader slots of processes that died back.
void store_check_readers(Env* env);
// Hands `out` a table of the reader slots in use, over all processes: process, thread, and the
// commit that each one reads, by which its age can be told.
[[nodiscard]] uint32_t store_readers(Env* env, void (*out)(const char* text, void* arg), void* arg);
// Tells `visit` of everybody who reads or writes now, over all processes.
[[nodiscard]] uint32_t store_holders(Env* env, rov_holder_fn visit, void* arg);

}  // namespace rov
