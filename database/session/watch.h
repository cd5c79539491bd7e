// Following a database's changes: one registration a database handle.
#ifndef DATABASE_SESSION_WATCH_H
#define DATABASE_SESSION_WATCH_H

#include <pthread.h>

#include <cstdint>

#include "database/base/bytes.h"
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
uint32_t watch_register(const DatabasePin& db, rov_ntf_t* ntf);
// The next change that the registration asks for. ROV_ERR_NO_VALUE, noted, when there is none.
uint32_t watch_next(const DatabasePin& db, rov_change_t* message);

// Keeps data of the client under a key of its own, tells its other processes, and wakes whoever
// follows the database.
uint32_t watch_post(const DatabasePin& db, uint32_t key, Bytes data);

}  // namespace rov

#endif
