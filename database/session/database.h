// Library and database handles and what they stand for.
#ifndef DATABASE_SESSION_DATABASE_H
#define DATABASE_SESSION_DATABASE_H

#include <atomic>
#include <cstdint>

#include "database/session/watch.h"
#include "database/store/store.h"
#include "rov.h"

namespace rov {

// How a writer waits for another one.
struct LockSettings {
  uint32_t wait_ms;
  uint32_t retry_ms;
  uint32_t holders;  // 0 = no limit
};

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

// The library of that handle; ROV_ERR_HANDLE, noted.
uint32_t library_of(uint32_t handle, Library** out);
// The library of that identity, made when there is none.
uint32_t library_for(uint32_t id, Library** out);
// Gives a library its first settings back, and sets its idle limit.
void library_reset(Library* library, uint32_t idle_seconds);

uint32_t database_open(Library* library, const rov_parms_t* parms, uint32_t flags, Database** out);
// Closes the sessions and snapshots that were opened through it, too.
uint32_t database_close(uint32_t handle);

// A snapshot is a database of its own, with the settings of the one that it was opened through.
uint32_t database_open_snapshot(const Database& of, const char* path, Database** out);
uint32_t database_close_snapshot(uint32_t handle);

}  // namespace rov

#endif
