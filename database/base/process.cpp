// When a process started, read from what the system says of it.
#include "database/base/process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace rov {
namespace {

struct Stat {
  char state = '?';
  uint64_t start = 0;
};

// False when it cannot be read. The state is the first field behind the name, the start the
// twentieth; the name is in parentheses and may hold anything.
bool read_stat_at(const char* path, Stat* stat) {
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  char text[1024];
  const ssize_t len = read(file, text, sizeof text - 1);
  close(file);
  if (len <= 0) return false;
  text[len] = '\0';
  const char* at = strrchr(text, ')');
  if (at == nullptr || at[1] != ' ') return false;
  stat->state = at[2];
  for (int field = 0; at != nullptr && field < 20; ++field) at = strchr(at + 1, ' ');
  if (at == nullptr) return false;
  stat->start = strtoull(at, nullptr, 10);
  return true;
}

bool read_stat(uint32_t process, Stat* stat) {
  char path[64];
  // The main thread's file has the process's start. Of /proc/PID/stat an emulator makes up its own,
  // with another start than the one that the other processes see.
  snprintf(path, sizeof path, "/proc/%u/task/%u/stat", process, process);
  return read_stat_at(path, stat);
}

// Dead, but its parent has not looked.
bool is_dead(const Stat& stat) {
  return stat.state == 'Z' || stat.state == 'X';
}

}  // namespace

uint64_t process_start(uint32_t process) {
  Stat stat;
  return read_stat(process, &stat) && !is_dead(stat) ? stat.start : 0;
}

ProcessStamp own_stamp() {
  // Under the number that it has in its own namespace /proc may have another process.
  ProcessStamp stamp;
  Stat stat;
  if (read_stat_at("/proc/self/stat", &stat)) stamp.start = stat.start;
  struct stat space;
  if (::stat("/proc/self/ns/pid", &space) == 0) stamp.space = space.st_ino;
  return stamp;
}

bool process_is_gone(uint32_t process, uint64_t start) {
  if (process == 0 || process > INT32_MAX) return true;  // no process has these numbers
  if (kill(static_cast<pid_t>(process), 0) != 0 && errno == ESRCH) return true;
  Stat stat;
  if (!read_stat(process, &stat)) return false;
  return is_dead(stat) || (start != 0 && stat.start != 0 && start != stat.start);
}

}  // namespace rov
