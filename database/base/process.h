// Processes of this system: whether one that was noted down is still there.
#ifndef DATABASE_BASE_PROCESS_H
#define DATABASE_BASE_PROCESS_H

#include <cstdint>

namespace rov {

// When a process started, in clock ticks since the system did, which tells it from a later one of
// its number. 0 when there is none, or it cannot be told.
uint64_t process_start(uint32_t process);

// Whether the process that started then (0 = not known) is gone. When in doubt it is not. One that
// was killed and not yet waited for is.
bool process_is_gone(uint32_t process, uint64_t start);

}  // namespace rov

#endif
