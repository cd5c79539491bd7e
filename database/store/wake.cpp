#include "database/store/wake.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "database/base/crc32c.h"

namespace rov {
namespace {

constexpr uint32_t kPathMax = 4096;
constexpr const char* kFile = "changes";

// What the file holds. It is never synced, so it may be old, and after a power failure anything.
struct Told {
  uint64_t revision;
  uint32_t check;  // CRC-32C of the revision
};
constexpr uint32_t kToldBytes = 12;

uint32_t check_of(uint64_t revision) {
  return crc32c(0, &revision, sizeof revision);
}

// directory/changes, made when it is not there.
int open_file(const char* database, int how, char (&path)[kPathMax]) {
  const int len = snprintf(path, sizeof path, "%s/%s", database, kFile);
  if (len < 0 || static_cast<uint32_t>(len) >= kPathMax) {
    errno = ENAMETOOLONG;
    return -1;
  }
  return open(path, how | O_CREAT | O_CLOEXEC, 0666);
}

}  // namespace

Waking::Waking(const char* database) : file_(-1) {
  char path[kPathMax];
  if (database != nullptr) file_ = open_file(database, O_WRONLY, path);
}

Waking::~Waking() {
  if (file_ >= 0) close(file_);
}

void Waking::tell(uint64_t revision) const {
  if (file_ < 0) return;
  const Told told = {revision, check_of(revision)};
  const ssize_t written = pwrite(file_, &told, kToldBytes, 0);
  static_cast<void>(written);
}

uint64_t wake_revision(int directory) {
  const int file = openat(directory, kFile, O_RDONLY | O_CLOEXEC);
  if (file < 0) return 0;
  Told told = {};
  const ssize_t got = pread(file, &told, kToldBytes, 0);
  close(file);
  return got == kToldBytes && told.check == check_of(told.revision) ? told.revision : 0;
}

int wake_open(const char* database) {
  char path[kPathMax];
  const int file = open_file(database, O_RDONLY, path);  // to have it there, and to wake nobody
  if (file >= 0) close(file);
  const int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd < 0) return -1;
  if (inotify_add_watch(fd, path, IN_MODIFY | IN_CLOSE_WRITE) >= 0) return fd;
  const int error = errno;
  close(fd);
  errno = error;
  return -1;
}

void wake_drain(int fd) {
  alignas(inotify_event) char events[1024];
  while (read(fd, events, sizeof events) > 0) {
  }
}

}  // namespace rov
