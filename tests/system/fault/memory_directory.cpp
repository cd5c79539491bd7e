// Databases of these tests lie in memory where the system has a place for that: what is swept here
// is what programs do, thousands of times, and not what a disk does when it is synced.
#include <unistd.h>

#include <cstdlib>

namespace {

struct MemoryDirectory {
  MemoryDirectory() {
    if (access("/dev/shm", W_OK | X_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
  }
};

const MemoryDirectory g_memory_directory;

}  // namespace
