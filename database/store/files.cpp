// Files and directories: removing, writing and moving them, and locks on directories.
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "database/store/engine.h"

namespace rov {
namespace {

constexpr int kAttempts = 3;

// Removes what an open directory holds. 0 or errno.
int remove_entries(DIR* directory) {
  const int at = dirfd(directory);
  while (const dirent* entry = readdir(directory)) {
    const char* name = entry->d_name;
    if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0) continue;
    if (unlinkat(at, name, 0) == 0 || errno == ENOENT) continue;
    // What unlinkat says of a directory differs between systems.
    const int error = errno == EISDIR || errno == EPERM ? remove_tree(at, name) : errno;
    if (error != 0) return error;
  }
  return 0;
}

// 0 or errno; ENOTEMPTY when somebody put something in meanwhile.
int remove_once(int at, const char* name) {
  const int file = openat(at, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (file < 0) return errno == ENOENT ? 0 : errno;
  DIR* directory = fdopendir(file);
  if (directory == nullptr) {
    const int error = errno;
    close(file);
    return error;
  }
  const int error = remove_entries(directory);
  closedir(directory);
  if (error != 0) return error;
  return unlinkat(at, name, AT_REMOVEDIR) == 0 || errno == ENOENT ? 0 : errno;
}

}  // namespace

int remove_tree(int at, const char* name) {
  int error = ENOTEMPTY;
  for (int attempt = 0; attempt < kAttempts && error == ENOTEMPTY; ++attempt) {
    error = remove_once(at, name);
  }
  return error;
}

int write_all(int file, const char* text, size_t len) {
  while (len > 0) {
    const ssize_t wrote = write(file, text, len);
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote <= 0) return wrote < 0 ? errno : ENOSPC;
    text += wrote;
    len -= static_cast<size_t>(wrote);
  }
  return 0;
}

int move_durably(int from, const char* name, int to, const char* new_name) {
  return renameat(from, name, to, new_name) == 0 && fsync(to) == 0 ? 0 : errno;
}

DirectoryLock::DirectoryLock(int directory) : directory_(directory) {
  while (flock(directory_, LOCK_EX) != 0 && errno == EINTR) {
  }
}

DirectoryLock::~DirectoryLock() {
  flock(directory_, LOCK_UN);  // closing is not enough where a fork has shared it meanwhile
}

int set_record_lock(int file, int how, short type, off_t at) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = at;
  lock.l_len = 1;
  while (fcntl(file, how, &lock) != 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

}  // namespace rov
