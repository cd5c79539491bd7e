// Libraries, databases and snapshots: opening, closing, and who keeps them open.
#include "database/session/database.h"

#include <pthread.h>
#include <sched.h>

#include <cstdlib>
#include <new>

#include "database/base/error.h"
#include "database/base/logger.h"
#include "database/graph/changes.h"
#include "database/handle/handle.h"
#include "database/session/session.h"

namespace rov {
namespace {

constexpr uint32_t kDefaultWaitMs = 10000;
constexpr uint32_t kDefaultRetryMs = 5;

// How often a snapshot may be removed between being found and being opened.
constexpr int kAttempts = 3;

pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;
Library* g_libraries = nullptr;
Database* g_free_databases = nullptr;
bool g_ready = false;

// The parent's handles are forgotten in a child, but the lock may have been held by another thread.
void after_fork_in_child() {
  pthread_mutex_init(&g_mutex, nullptr);
  idle_forget_all();
}

// Under g_mutex.
void set_up_once() {
  if (g_ready) return;
  g_ready = true;
  pthread_atfork(nullptr, nullptr, after_fork_in_child);
}

Database* database_new() {
  pthread_mutex_lock(&g_mutex);
  Database* db = g_free_databases;
  if (db != nullptr) g_free_databases = db->next_free;
  pthread_mutex_unlock(&g_mutex);
  return db != nullptr ? db : new (std::nothrow) Database;
}

void database_free(Database* db) {
  db->library = nullptr;
  db->env = nullptr;
  db->parms = {};
  db->hold = 0;
  db->ps_max_nodes = db->ps_max_bytes = 0;
  db->id_to_client = db->id_from_client = nullptr;
  db->show_count = 0;
  db->extract_pinst = nullptr;
  db->print_dsetname = nullptr;
  pthread_mutex_lock(&g_mutex);
  db->next_free = g_free_databases;
  g_free_databases = db;
  pthread_mutex_unlock(&g_mutex);
}

uint32_t library_new(uint32_t id, Library** out) {
  auto* library = new (std::nothrow) Library;
  if (library == nullptr) return fail(ROV_ERR_NO_MEM, Note::kNoMemory, sizeof(Library));
  library->id = id;
  library_reset(library, 0);
  const uint32_t status = handle_reserve(Kind::kLibrary, 0, library, &library->handle);
  if (status != ROV_OK) {
    delete library;
    return status;
  }
  handle_publish(library->handle);
  library->next = g_libraries;
  g_libraries = library;
  *out = library;
  return ROV_OK;
}

const char* path_for(const rov_parms_t* parms) {
  if (parms != nullptr && parms->p.db_path != nullptr) return parms->p.db_path;
  const char* path = getenv("ROV_DB");
  return path != nullptr && *path != '\0' ? path : "./qim.db";
}

// Makes a database, which is not published yet, of the environment that `open` opens.
template <class Open>
uint32_t open_as(Kind kind, uint32_t owner, uint32_t flags, Open open, Database** out) {
  Database* db = database_new();
  if (db == nullptr) return fail(ROV_ERR_NO_MEM, Note::kNoMemory, sizeof(Database));
  uint32_t status = open(&db->env);
  if (status == ROV_OK) {
    status = handle_reserve(kind, owner, db, &db->handle);
    if (status != ROV_OK) store_close(db->env);
  }
  if (status != ROV_OK) {
    database_free(db);
    return status;
  }
  db->flags = flags;
  *out = db;
  return ROV_OK;
}

void set_parms(Database* db, const rov_parms_t& parms) {
  db->parms = parms;
  db->client = parms.p.init_id;
  db->parms.p.db_path = db->env->path;
}

uint32_t open_copy(const Database& of, const CopyName& name, Database** out) {
  Database* db = nullptr;
  const auto open = [&](Env** env) { return copies_open(of.env, name, env); };
  const uint32_t status = open_as(Kind::kSnapshot, of.handle, ROV_DB_RDONLY, open, &db);
  if (status != ROV_OK) return status;
  // NOLINTNEXTLINE(clang-analyzer-core.*): set on success, which the analyser does not follow
  db->library = of.library;
  set_parms(db, of.parms);
  db->a1 = of.a1;
  db->a2 = of.a2;
  db->a6 = of.a6;
  db->ps_max_nodes = of.ps_max_nodes;
  db->ps_max_bytes = of.ps_max_bytes;
  db->id_to_client = of.id_to_client;
  db->id_from_client = of.id_from_client;
  *out = db;
  return ROV_OK;
}

bool close_owned(uint32_t handle);

// False when it is not open, or somebody else is closing it.
bool close_handle(uint32_t handle, Kind kind) {
  auto* db = static_cast<Database*>(handle_object(handle, kind));
  if (db == nullptr || !handle_retire(handle)) return false;
  while (db->pins.load(std::memory_order_seq_cst) != 0) sched_yield();
  for (uint32_t owned = handle_owned_by(handle); owned != 0; owned = handle_owned_by(handle)) {
    if (owned == kGateHeld || !close_owned(owned)) sched_yield();
  }
  logger_forget(handle);
  watch_end(db->watch);
  db->group.store(0);
  store_close(db->env);
  handle_release(handle);
  database_free(db);
  return true;
}

// Closes a session or snapshot of a database that is being closed.
bool close_owned(uint32_t handle) {
  if (kind_of(handle) == Kind::kSnapshot) return close_handle(handle, Kind::kSnapshot);
  return session_close_from_outside(handle);
}

uint32_t close_or_fail(uint32_t handle, Kind kind) {
  if (close_handle(handle, kind)) return ROV_OK;
  return fail(ROV_ERR_HANDLE, Note::kHandle, handle);
}

}  // namespace

DatabasePin::DatabasePin(uint32_t handle, Of of) : status_(ROV_ERR_HANDLE) {
  const bool snapshot = of == Of::kAny && kind_of(handle) == Kind::kSnapshot;
  const Kind kind = snapshot ? Kind::kSnapshot : Kind::kDatabase;
  auto* db = static_cast<Database*>(handle_object(handle, kind));
  if (db != nullptr) {
    db->pins.fetch_add(1, std::memory_order_seq_cst);
    if (handle_object(handle, kind) == db) {
      db_ = db;
      status_ = ROV_OK;
      return;
    }
    db->pins.fetch_sub(1, std::memory_order_release);
  }
  fail(ROV_ERR_HANDLE, Note::kHandle, handle);
}

DatabasePin::~DatabasePin() {
  if (db_ != nullptr) db_->pins.fetch_sub(1, std::memory_order_release);
}

uint32_t library_of(uint32_t handle, Library** out) {
  *out = static_cast<Library*>(handle_object(handle, Kind::kLibrary));
  return *out != nullptr ? uint32_t{ROV_OK} : fail(ROV_ERR_HANDLE, Note::kHandle, handle);
}

void library_reset(Library* library, uint32_t idle_seconds) {
  library->wait_ms.store(kDefaultWaitMs);
  library->retry_ms.store(kDefaultRetryMs);
  library->holders.store(0);
  library->idle.store(idle_limit(idle_seconds));
}

uint32_t library_for(uint32_t id, Library** out) {
  pthread_mutex_lock(&g_mutex);
  set_up_once();
  Library* library = g_libraries;
  while (library != nullptr &&
         (library->id != id || handle_object(library->handle, Kind::kLibrary) != library)) {
    library = library->next;
  }
  uint32_t status = ROV_OK;
  if (library == nullptr) {
    status = library_new(id, out);
  } else {
    *out = library;
  }
  pthread_mutex_unlock(&g_mutex);
  return status;
}

uint32_t database_open(Library* library, const rov_parms_t* parms, uint32_t flags, Database** out) {
  Database* db = nullptr;
  const OpenOptions wanted = {flags, parms != nullptr ? parms->p.db_group : 0};
  const auto open = [&](Env** env) { return store_open(path_for(parms), wanted, env); };
  const uint32_t status = open_as(Kind::kDatabase, library->handle, flags, open, &db);
  if (status != ROV_OK) return status;
  // NOLINTNEXTLINE(clang-analyzer-core.*): set on success, which the analyser does not follow
  db->library = library;
  db->hold = hold_limit();
  set_parms(db, parms != nullptr ? *parms : rov_parms_t{});
  *out = db;
  return ROV_OK;
}

uint32_t database_verify(const Database& db, VerifyReport* report) {
  const WriterWait wait = {db.library->wait_ms.load(), db.library->retry_ms.load(), nullptr,
                           user_number(db.client)};
  return store_verify(db.env, wait, report);
}

uint32_t database_add_show(Database& db, const rov_show_t* show) {
  uint32_t at = 0;
  while (at < db.show_count && db.shows[at]->selector != show->selector) ++at;
  if (at == kMaxShows) {
    return fail_text(ROV_ERR_FULL, "at most %u show records can be registered", kMaxShows);
  }
  db.shows[at] = show;
  if (at == db.show_count) ++db.show_count;
  return ROV_OK;
}

uint32_t database_open_snapshot(const Database& of, const CopyName& name, uint32_t* handle) {
  Database* snapshot = nullptr;
  uint32_t status = ROV_ERR_OPEN;
  for (int attempt = 0; attempt < kAttempts && status == ROV_ERR_OPEN; ++attempt) {
    status = open_copy(of, name, &snapshot);
  }
  if (status != ROV_OK) return status;
  *handle = snapshot->handle;
  handle_publish(snapshot->handle);
  return ROV_OK;
}

uint32_t database_close(uint32_t handle) {
  return close_or_fail(handle, Kind::kDatabase);
}

uint32_t database_close_snapshot(uint32_t handle) {
  return close_or_fail(handle, Kind::kSnapshot);
}

}  // namespace rov
