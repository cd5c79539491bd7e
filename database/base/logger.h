// The loggers that clients registered, and which failures they get.
#ifndef DATABASE_BASE_LOGGER_H
#define DATABASE_BASE_LOGGER_H

#include <atomic>
#include <cstdint>

#include "rov_types.h"

namespace rov {

// How many databases of this process want failures logged.
extern std::atomic<uint32_t> g_loggers_on;

// Cheap enough for every failure.
inline bool log_wanted() {
  return g_loggers_on.load(std::memory_order_relaxed) != 0;
}

// Hands a failure of a call in this process to every logger that wants it. A logger that fails
// itself does not hear of that.
void log_failure(uint32_t status, const char* text);

// The database's logger and debug flags; a NULL logger takes it away. ROV_ERR_FULL, noted, when the
// process has too many databases with one.
uint32_t logger_set(uint32_t db, rov_logger_fn logger, void* arg);
uint32_t debug_set(uint32_t db, uint32_t flags);
// The database is closed.
void logger_forget(uint32_t db);

// Whether any database's debug flags ask for an abort (ROV_DBG_FLAG_ABORT).
bool abort_wanted();

}  // namespace rov

#endif
