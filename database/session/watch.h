// Following a database's changes: one registration a database handle.
#ifndef DATABASE_SESSION_WATCH_H
#define DATABASE_SESSION_WATCH_H

#include <pthread.h>

#include <cstdint>

namespace rov {

struct Watch {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  // Under the mutex:
  int fd = -1;            // wake.h; -1: no registration
  uint32_t kinds = 0;     // bits 1 << ROV_CHANGE_*
  uint64_t revision = 0;  // the last change that was looked at
  uint32_t number = 0;
};

// Ends the registration, if there is one.
void watch_end(Watch& watch);

}  // namespace rov

#endif
