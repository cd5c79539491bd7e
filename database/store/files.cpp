// Files and directories.
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
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

}  // namespace rov
