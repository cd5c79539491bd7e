#include "database/base/logger.h"

#include <pthread.h>

#include <cstdio>

#include "database/base/error.h"
#include "rov.h"

namespace rov {

constinit std::atomic<uint32_t> g_loggers_on{0};

namespace {

constexpr uint32_t kMaxLoggers = 64;
constexpr uint32_t kSeverityError = 2;

struct Entry {
  uint32_t db;  // 0: free
  uint32_t flags;
  rov_logger_fn logger;
  void* arg;

  bool on() const { return db != 0 && logger != nullptr && (flags & ROV_DBG_FLAG_LOG) != 0; }
};

pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;
Entry g_entries[kMaxLoggers] = {};
thread_local bool t_logging = false;

class Lock {
 public:
  Lock() { pthread_mutex_lock(&g_mutex); }
  ~Lock() { pthread_mutex_unlock(&g_mutex); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
};

// Under the lock. The database's entry, made when there is none; NULL when there is no room.
Entry* entry_of(uint32_t db) {
  Entry* spare = nullptr;
  for (Entry& entry : g_entries) {
    if (entry.db == db) return &entry;
    if (entry.db == 0 && spare == nullptr) spare = &entry;
  }
  if (spare != nullptr) *spare = {db, 0, nullptr, nullptr};
  return spare;
}

// Under the lock.
void recount() {
  uint32_t on = 0;
  for (const Entry& entry : g_entries) on += entry.on() ? 1 : 0;
  g_loggers_on.store(on, std::memory_order_relaxed);
}

// Answers rather than failures: the library asks for links and items that may not be there.
bool is_answer(uint32_t status) {
  return status == ROV_ERR_NO_ITEM || status == ROV_ERR_NO_LINK || status == ROV_ERR_NO_VALUE;
}

uint32_t too_many() {
  return fail_text(ROV_ERR_FULL,
                   "%u databases of this process have loggers or debug flags, which is the limit: "
                   "close one first",
                   kMaxLoggers);
}

}  // namespace

void log_failure(uint32_t status, const char* text) {
  if (t_logging) return;
  Entry wanting[kMaxLoggers];
  uint32_t count = 0;
  {
    const Lock lock;
    for (const Entry& entry : g_entries) {
      const bool wants = !is_answer(status) || (entry.flags & ROV_DBG_FLAG_ALL) != 0;
      if (entry.on() && wants) wanting[count++] = entry;
    }
  }
  char line[640];
  snprintf(line, sizeof line, "%s (0x%x): %s\n", rov_status_name(status), status, text);
  t_logging = true;
  for (uint32_t i = 0; i < count; ++i) wanting[i].logger(kSeverityError, line, wanting[i].arg);
  t_logging = false;
}

uint32_t logger_set(uint32_t db, rov_logger_fn logger, void* arg) {
  {
    const Lock lock;
    if (Entry* entry = entry_of(db)) {
      entry->logger = logger;
      entry->arg = arg;
      recount();
      return ROV_OK;
    }
  }
  return too_many();
}

uint32_t debug_set(uint32_t db, uint32_t flags) {
  {
    const Lock lock;
    if (Entry* entry = entry_of(db)) {
      entry->flags = flags;
      recount();
      return ROV_OK;
    }
  }
  return too_many();
}

void logger_forget(uint32_t db) {
  const Lock lock;
  for (Entry& entry : g_entries) {
    if (entry.db == db) entry = {};
  }
  recount();
}

bool abort_wanted() {
  const Lock lock;
  for (const Entry& entry : g_entries) {
    if (entry.db != 0 && (entry.flags & ROV_DBG_FLAG_ABORT) != 0) return true;
  }
  return false;
}

}  // namespace rov
