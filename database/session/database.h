// Library and database handles and what they stand for, and following a database.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "database/base/bytes.h"
#include "database/store/store.h"
#include "rov.h"
#include "rov_edit.h"

namespace rov {

class DatabasePin;

struct Watch {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  // Under the mutex:
  int fd = -1;            // wake.h; -1: no registration
  uint32_t kinds = 0;     // bits 1 << ROV_CHANGE_*
  uint64_t revision = 0;  // the last change that was looked at
  uint32_t number = 0;
};

// Ends the registration, if there is one. Under the mutex, or when nobody else has the database.
void watch_end(Watch& watch);
// Registers the database for what *ntf asks for, or ends its registration.
[[nodiscard]] uint32_t watch_register(const DatabasePin& db, rov_ntf_t* ntf);
// The next change that the registration asks for. ROV_ERR_NO_VALUE, noted, when there is none.
[[nodiscard]] uint32_t watch_next(const DatabasePin& db, rov_change_t* message);

// Keeps data of the client under a key of its own, tells its other processes, and wakes whoever
// follows the database.
[[nodiscard]] uint32_t watch_post(const DatabasePin& db, uint32_t key, Bytes data);

// One a process and client identity; never closed.
struct Library {
  uint32_t handle = 0;
  uint32_t id = 0;
  std::atomic<uint32_t> wait_ms{0};
  std::atomic<uint32_t> retry_ms{0};
  std::atomic<uint32_t> holders{0};
  std::atomic<uint32_t> writers{0};  // write sessions open or waiting
  std::atomic<uint32_t> idle{0};     // idle limit of the sessions that are opened from now on
  Library* next = nullptr;
};

constexpr uint32_t kMaxShows = 8;

struct Database {
  // Objects of closed databases are kept and used again, so that a pin taken on one too late is
  // harmless.
  std::atomic<uint32_t> pins{0};  // calls that are using it
  Database* next_free = nullptr;
  uint32_t handle = 0;
  Library* library = nullptr;
  Env* env = nullptr;
  uint32_t client = 0;  // identity of the client, parms.p.init_id
  uint32_t flags = 0;
  uint32_t hold = 0;  // for how long its sessions may make the file grow (idle.h)
  uint32_t a1 = 0;
  uint32_t a2 = 0;
  uint32_t a6 = 0;
  rov_parms_t parms = {};  // db_path leads to env->path
  uint32_t ps_max_nodes = 0;
  uint32_t ps_max_bytes = 0;

  rov_node_id_cnv_fn id_to_client = nullptr;
  rov_node_id_cnv_fn id_from_client = nullptr;
  const rov_show_t* shows[kMaxShows] = {};
  uint32_t show_count = 0;
  rov_extract_pinst_fn extract_pinst = nullptr;
  rov_dsetname_print_fn print_dsetname = nullptr;

  std::atomic<uint32_t> group{0};  // user group of the client's commits
  Watch watch;
};

// A database in use: it is not taken apart until the pin goes.
class DatabasePin {
 public:
  // kAny: the handle may be a snapshot's, too.
  enum class Of { kDatabase, kAny };
  explicit DatabasePin(uint32_t handle, Of of = Of::kDatabase);
  ~DatabasePin();
  DatabasePin(const DatabasePin&) = delete;
  DatabasePin& operator=(const DatabasePin&) = delete;

  // ROV_OK, or ROV_ERR_HANDLE, noted.
  uint32_t status() const { return status_; }
  Database* operator->() const { return db_; }
  Database* get() const { return db_; }

 private:
  Database* db_ = nullptr;
  uint32_t status_;
};

// Runs `work` on a database in use; its status is the answer.
template <class Work>
[[nodiscard]] uint32_t with_database(uint32_t handle, Work work,
                                     DatabasePin::Of of = DatabasePin::Of::kDatabase) {
  const DatabasePin pin(handle, of);
  return pin.status() == ROV_OK ? work(*pin.get()) : pin.status();
}

// The library of that handle; ROV_ERR_HANDLE, noted.
[[nodiscard]] uint32_t library_of(uint32_t handle, Library** out);
// The library of that identity, made when there is none.
[[nodiscard]] uint32_t library_for(uint32_t id, Library** out);
// Gives a library its first settings back, and sets its idle limit.
void library_reset(Library* library, uint32_t idle_seconds);

[[nodiscard]] uint32_t database_open(Library* library, const rov_parms_t* parms, uint32_t flags,
                                     Database** out);
// Closes the sessions and snapshots that were opened through it, too.
[[nodiscard]] uint32_t database_close(uint32_t handle);

// Verifies the database's file while nobody writes.
[[nodiscard]] uint32_t database_verify(const Database& db, VerifyReport* report);

// Registers a show record in the place of the one with its selector. ROV_ERR_FULL, noted.
[[nodiscard]] uint32_t database_add_show(Database& db, const rov_show_t* show);

// Opens the snapshot of that name, made of the newest commit when there was none. A snapshot is a
// database of its own, with the settings of the one that it was opened through.
[[nodiscard]] uint32_t database_open_snapshot(const Database& of, const CopyName& name,
                                              uint32_t* handle);
[[nodiscard]] uint32_t database_close_snapshot(uint32_t handle);

}  // namespace rov
