// Waking whoever follows the changes of a database, in any process: a file in its directory that
// every commit writes to, and inotify(7) on it. Nothing has to be registered with anybody, and a
// process that dies leaves nothing behind.
#ifndef PLATFORM_WAKE_H
#define PLATFORM_WAKE_H

#include <cstdint>

namespace rov {

// Tells of a commit. A failure costs the waking only, so it is none.
void wake_all(const char* database, uint64_t revision);

// A descriptor that becomes readable with every later commit; -1 with errno.
int wake_open(const char* database);
// Makes it unreadable until the next commit.
void wake_drain(int fd);

}  // namespace rov

#endif
