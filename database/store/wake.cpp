// Waking followers: the file that commits write to, and watching it.
#include "database/store/wake.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "database/base/crc32c.h"
#include "database/store/files.h"

namespace rov {
namespace {

constexpr const char* kFile = "changes";

// What the file holds. It is never synced, so it may be old, and after a power failure anything.
struct Told {
  Identity database;
  uint64_t revision;
  uint64_t sums[kTables];
  uint32_t has_sums;
  uint32_t check;  // CRC-32C of what stands before it
};
static_assert(sizeof(Told) == 32 + 8 * kTables);

uint32_t check_of(const Told& told) {
  return crc32c(0, &told, offsetof(Told, check));
}

// The path of what an open file is, wherever that lies by now.
struct OpenPath {
  explicit OpenPath(int file) { snprintf(text, sizeof text, "/proc/self/fd/%d", file); }
  char text[32];
};

// Follows the file, made when it is not there. False with errno.
bool follow_file(int fd, int directory) {
  const int file = open_or_make(directory, kFile, O_RDONLY);  // which wakes nobody
  if (file < 0) return false;
  const bool follows = inotify_add_watch(fd, OpenPath(file).text, IN_MODIFY | IN_CLOSE_WRITE) >= 0;
  const int error = errno;
  close(file);
  errno = error;
  return follows;
}

// The file, and the directory, which tells when the file comes anew. The file is made before that.
bool follow(int fd, int directory) {
  const uint32_t what = IN_CREATE | IN_MOVED_TO | IN_ONLYDIR;
  return follow_file(fd, directory) && inotify_add_watch(fd, OpenPath(directory).text, what) >= 0 &&
         follow_file(fd, directory);
}

}  // namespace

Waking::Waking(int directory) : file_(open_or_make(directory, kFile, O_WRONLY)) {}

Waking::~Waking() {
  if (file_ >= 0) close(file_);
}

void Waking::tell(const Identity& database, const Mark& mark) const {
  if (file_ < 0) return;
  Told told = {database, mark.revision, {}, mark.has_sums ? 1U : 0U, 0};
  memcpy(told.sums, mark.sums, sizeof told.sums);
  told.check = check_of(told);
  const ssize_t written = pwrite(file_, &told, sizeof told, 0);
  static_cast<void>(written);
}

Mark wake_mark(int directory, const Identity& database) {
  const int file = open_regular(directory, kFile, O_RDONLY);
  if (file < 0) return {};
  Told told = {};
  const ssize_t got = pread(file, &told, sizeof told, 0);
  close(file);
  if (got != static_cast<ssize_t>(sizeof told) || told.check != check_of(told)) return {};
  if (told.database != database) return {};
  Mark mark = {told.revision, told.has_sums != 0, {}};
  memcpy(mark.sums, told.sums, sizeof mark.sums);
  return mark;
}

int wake_open(int directory) {
  const int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd < 0 || follow(fd, directory)) return fd;
  const int error = errno;
  close(fd);
  errno = error;
  return -1;
}

void wake_drain(int fd, int directory) {
  alignas(inotify_event) char events[1024];
  bool made = false;
  for (ssize_t len = 0; (len = read(fd, events, sizeof events)) > 0;) {
    for (ssize_t at = 0; at < len;) {
      const auto* event = reinterpret_cast<const inotify_event*>(events + at);
      made |= event->len != 0 && strcmp(event->name, kFile) == 0;
      at += static_cast<ssize_t>(sizeof *event + event->len);
    }
  }
  // A file that can't be followed now is not made again: nobody is told of it.
  if (made) static_cast<void>(follow_file(fd, directory));
}

}  // namespace rov
