// Files and directories: opening, making, removing, writing and moving them, and waiting for locks.
#include "database/store/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "database/base/error.h"
#include "database/base/process.h"
#include "rov.h"

namespace rov {

// ---- Opening and making -------------------------------------------------------------------------

namespace {

constexpr mode_t kOwnerOnly = 0600;
constexpr mode_t kWithGroup = 0660;

// Whether the directory was made for a group.
bool is_for_group(const struct stat& directory) {
  return (directory.st_mode & (S_ISGID | S_IWGRP)) == (S_ISGID | S_IWGRP);
}

// What is made in somebody else's directory is theirs, as far as this process may give it away.
void give_to_owner(int file, const struct stat& directory) {
  if (directory.st_uid == geteuid()) return;
  const int given = fchown(file, directory.st_uid, static_cast<gid_t>(-1));
  static_cast<void>(given);
}

int set_mode(int file, const struct stat& directory) {
  give_to_owner(file, directory);
  return fchmod(file, is_for_group(directory) ? kWithGroup : kOwnerOnly) == 0 ? 0 : errno;
}

// Closes a file that is of no use. -1, with errno.
int close_with(int file, int error) {
  close(file);
  errno = error;
  return -1;
}

}  // namespace

const char* file_error_text(int error) {
  if (error != kNotRegular) return strerror(error);
  return "there is a link, a FIFO or the like in the place of a regular file";
}

int open_regular(int at, const char* name, int how) {
  // A FIFO would make who opens it wait.
  const int file = openat(at, name, how | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (file < 0) {
    if (errno == ELOOP || errno == ENXIO) errno = kNotRegular;
    return -1;
  }
  struct stat info;
  if (fstat(file, &info) != 0) return close_with(file, errno);
  return S_ISREG(info.st_mode) ? file : close_with(file, kNotRegular);
}

int make_regular(int at, const char* name, int how) {
  struct stat directory;
  if (fstat(at, &directory) != 0) return -1;
  const int file = openat(at, name, how | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kOwnerOnly);
  if (file < 0) return -1;
  const int error = set_mode(file, directory);
  return error == 0 ? file : close_with(file, error);
}

int open_or_make(int at, const char* name, int how) {
  for (;;) {
    int file = open_regular(at, name, how);
    if (file >= 0 || errno != ENOENT) return file;
    file = make_regular(at, name, how);
    if (file >= 0 || errno != EEXIST) return file;
  }
}

int open_subdirectory(int at, const char* name) {
  return openat(at, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

int make_directory(int at, const char* name) {
  struct stat above;
  if (fstat(at, &above) != 0 || mkdirat(at, name, 0700) != 0) return errno;
  const int directory = open_subdirectory(at, name);
  if (directory < 0) return errno;
  give_to_owner(directory, above);
  const int error = set_directory_mode(directory, is_for_group(above) ? above.st_gid : 0);
  close(directory);
  return error;
}

int set_directory_mode(int directory, gid_t group) {
  // The group first: giving a directory away takes bits from its mode.
  if (group != 0 && fchown(directory, static_cast<uid_t>(-1), group) != 0) return errno;
  return fchmod(directory, group != 0 ? 02770 : 0700) == 0 ? 0 : errno;
}

uint32_t check_trusted(int directory, const char* path) {
  struct stat info;
  if (fstat(directory, &info) != 0) return system_fail(errno, path, "examine the directory");
  const bool by_group = (info.st_mode & S_IWGRP) != 0 && !is_for_group(info);
  if (!by_group && (info.st_mode & S_IWOTH) == 0) return ROV_OK;
  return fail_text(ROV_ERR_OPEN,
                   "the directory of database %s has mode %04o, so others can put their files in "
                   "the place of its own: take the right to write to it from them (chmod %s)",
                   path, static_cast<unsigned>(info.st_mode & 07777), by_group ? "g-w,o-w" : "o-w");
}

// ---- Removing, writing, moving ------------------------------------------------------------------

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

// ---- Locks --------------------------------------------------------------------------------------

namespace {

constexpr uint32_t kLockWaitMs = 60000;
constexpr int64_t kLockRetry = 5 * kNanosPerMilli;

// How long a lock on a directory is waited for: whoever holds it may be verifying a large file.
uint32_t lock_wait_ms() {
  const char* text = getenv("ROV_LOCK_WAIT");
  if (text == nullptr || *text < '0' || *text > '9') return kLockWaitMs;
  const unsigned long long wait = strtoull(text, nullptr, 10);
  return wait > INT32_MAX ? INT32_MAX : static_cast<uint32_t>(wait);
}

// Tries `attempt` until it gives something else than EAGAIN, or the time is up. 0 or errno.
template <class Attempt>
int try_for(uint32_t wait_ms, Attempt attempt) {
  const int64_t deadline = monotonic_now() + wait_ms * kNanosPerMilli;
  for (;;) {
    const int error = attempt();
    if (error != EAGAIN && error != EACCES && error != EINTR) return error;
    if (monotonic_now() >= deadline) return EAGAIN;
    const timespec pause = timespec_of(kLockRetry);
    nanosleep(&pause, nullptr);
  }
}

// The process that holds flock's lock on a file, from the system's list of locks; 0 when it is not
// there.
uint32_t flock_holder(int file) {
  struct stat info;
  FILE* locks = fopen("/proc/locks", "re");
  if (locks == nullptr) return 0;
  uint32_t found = 0;
  char line[256];
  if (fstat(file, &info) != 0) info.st_ino = 0;
  while (found == 0 && fgets(line, sizeof line, locks) != nullptr) {
    uint32_t process = 0;
    uint64_t inode = 0;
    const int fields =
        sscanf(line, "%*d: FLOCK %*s %*s %" SCNu32 " %*x:%*x:%" SCNu64, &process, &inode);
    if (fields == 2 && inode == info.st_ino) found = process;
  }
  fclose(locks);
  return found;
}

struct flock lock_of(short type, off_t at, off_t len = 1) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = at;
  lock.l_len = len;
  return lock;
}

// Where presence is marked: behind all that the engine locks, at the process's number.
constexpr off_t kPresence = kRounds * kNumbers;

}  // namespace

int take_presence(int file) {
  int error = EAGAIN;
  for (off_t round = 0; round < kRounds && (error == EAGAIN || error == EACCES); ++round) {
    struct flock lock = lock_of(F_WRLCK, kPresence + round * kNumbers + getpid() % kNumbers);
    error = fcntl(file, F_OFD_SETLK, &lock) == 0 ? 0 : errno;
  }
  return error;
}

void end_presence(int file) {
  struct flock lock = lock_of(F_UNLCK, kPresence, kRounds * kNumbers);
  fcntl(file, F_OFD_SETLK, &lock);
}

uint32_t find_presence(int file) {
  // A lock for reading, such as anybody can take who may read, is not in its way.
  struct flock lock = lock_of(F_RDLCK, kPresence, kRounds * kNumbers);
  if (fcntl(file, F_OFD_GETLK, &lock) != 0 || lock.l_type == F_UNLCK) return 0;
  return static_cast<uint32_t>((lock.l_start - kPresence) % kNumbers);
}

HolderName name_of_holder(uint32_t process) {
  HolderName name = {"another process"};
  if (process != 0) snprintf(name.text, sizeof name.text, "process %" PRIu32, process);
  return name;
}

DirectoryLock::DirectoryLock(int directory, const char* path)
    : directory_(directory), status_(ROV_OK) {
  const uint32_t wait_ms = lock_wait_ms();
  const int error =
      try_for(wait_ms, [=] { return flock(directory, LOCK_EX | LOCK_NB) == 0 ? 0 : errno; });
  if (error == 0) return;
  directory_ = -1;
  if (error != EAGAIN) {
    status_ = system_fail(error, path, "lock the directory");
    return;
  }
  status_ = fail_text(
      ROV_ERR_BUSY,
      "%s has held the lock on the directory of database %s for %" PRIu32
      " ms, as one does that makes, verifies or compacts a database: try again later, wait longer "
      "(ROV_LOCK_WAIT), or end it if it hangs",
      name_of_holder(flock_holder(directory)).text, path, wait_ms);
}

DirectoryLock::~DirectoryLock() {
  // Closing is not enough where a fork has shared it meanwhile.
  if (directory_ >= 0) flock(directory_, LOCK_UN);
}

int set_record_lock(int file, short type, off_t at) {
  struct flock lock = lock_of(type, at);
  while (fcntl(file, F_SETLK, &lock) != 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

int await_record_lock(int file, short type, off_t at, uint32_t wait_ms) {
  return try_for(wait_ms, [=] { return set_record_lock(file, type, at); });
}

uint32_t record_lock_holder(int file, short type, off_t at) {
  struct flock lock = lock_of(type, at);
  if (fcntl(file, F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK || lock.l_pid < 0) return 0;
  return static_cast<uint32_t>(lock.l_pid);
}

}  // namespace rov
