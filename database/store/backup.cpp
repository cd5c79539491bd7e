// Backups: a copy of the newest commit in a directory of its own, anywhere, which is a database.
//
//   PARENT/NAME           the backup: `format`, with an identity of its own, and `data.mdb`
//   PARENT/.NAME.backup   one that is being made, locked by who makes it
//
// It comes by one renaming, verified and synced, so that there is a whole one or none, whoever is killed; what
// a killed process left is cleared by the next one that makes a backup there. Where there is a backup
// already, the two change places, and the old one is removed.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "database/base/error.h"
#include "database/store/engine.h"
#include "database/store/wake.h"
#include "rov.h"

namespace rov {
namespace {

// Where a backup goes.
class BackupPlace {
 public:
  explicit BackupPlace(const char* path) : path_(path) {}
  ~BackupPlace() {
    if (parent_ >= 0) close(parent_);
  }
  BackupPlace(const BackupPlace&) = delete;
  BackupPlace& operator=(const BackupPlace&) = delete;

  // Finds the directory above and the name within it.
  uint32_t open() {
    size_t len = strlen(path_);
    while (len > 1 && path_[len - 1] == '/') --len;
    size_t at = len;
    while (at > 0 && path_[at - 1] != '/') --at;
    const size_t name_len = len - at;
    const bool is_dots = name_len <= 2 && strspn(path_ + at, ".") == name_len;
    if (name_len >= sizeof name_ || len >= PATH_MAX || is_dots || path_[at] == '/')
      return no_name();
    snprintf(name_, sizeof name_, "%.*s", static_cast<int>(name_len), path_ + at);
    snprintf(making_, sizeof making_, ".%s.backup", name_);
    char above[PATH_MAX];
    snprintf(above, sizeof above, "%.*s", static_cast<int>(at), path_);
    parent_ = ::open(at == 0 ? "." : above, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return engine_fail_at(parent_ < 0 ? errno : 0, path_, "open the directory above");
  }

  int parent() const { return parent_; }
  const char* name() const { return name_; }
  const char* making() const { return making_; }
  const char* path() const { return path_; }

 private:
  uint32_t no_name() const {
    return fail_text(ROV_ERR_INVALID,
                     "%s can't be the directory of a backup: name one that is not there yet",
                     path_);
  }

  const char* path_;
  int parent_ = -1;
  char name_[NAME_MAX - 8] = "";
  char making_[NAME_MAX + 1] = "";
};

// ---- What is there already ----

uint32_t is_there(const BackupPlace& place) {
  return fail_text(
      ROV_ERR_OPEN,
      "there is something at %s already: name another directory, or say that the database "
      "there is to be replaced",
      place.path());
}

// Whether it is a database, of which this process holds the lock, that nobody has open.
uint32_t check_old(const Env* env, const BackupPlace& place, int directory) {
  struct stat info;
  if (fstat(directory, &info) != 0) {
    return engine_fail_at(errno, place.path(), "examine the directory");
  }
  if (info.st_dev == env->device && info.st_ino == env->inode) {
    return fail_text(ROV_ERR_BUSY, "%s is the database itself: name another directory",
                     place.path());
  }
  if (faccessat(directory, "data.mdb", F_OK, 0) != 0 ||
      faccessat(directory, "format", F_OK, 0) != 0) {
    return fail_text(ROV_ERR_OPEN,
                     "%s is no database, so it is not replaced: name another directory",
                     place.path());
  }
  const int lock_file = open_regular(directory, "lock.mdb", O_RDWR);
  if (lock_file < 0 && errno == ENOENT) return ROV_OK;
  if (lock_file < 0) return engine_fail_at(errno, place.path(), "open lock.mdb");
  const uint32_t present = find_presence(lock_file);
  close(lock_file);
  if (present == 0) return ROV_OK;
  return fail_text(ROV_ERR_BUSY, "%s has database %s open: replace it when nobody has it open",
                   name_of_holder(present).text, place.path());
}

// ---- Making ----

// Locks the directory that was opened by the name of making. EWOULDBLOCK when somebody makes a backup there,
// ESTALE when it has lost its name since.
int lock_making(const BackupPlace& place, int making) {
  struct stat named;
  struct stat opened;
  if (flock(making, LOCK_EX | LOCK_NB) != 0 || fstat(making, &opened) != 0) return errno;
  if (opened.st_uid != geteuid()) return EPERM;
  const bool is_there = fstatat(place.parent(), place.making(), &named, AT_SYMLINK_NOFOLLOW) == 0;
  return is_there && named.st_ino == opened.st_ino ? 0 : ESTALE;
}

// Opens the directory where the backup is made, new, and locked as long as it is open. -1 with errno.
int open_making(const BackupPlace& place) {
  for (;;) {
    const bool is_new = mkdirat(place.parent(), place.making(), 0700) == 0;
    if (!is_new && errno != EEXIST) return -1;
    const int making = open_subdirectory(place.parent(), place.making());
    if (making < 0 && errno == ENOENT) continue;
    if (making < 0) return -1;
    int error = lock_making(place, making);
    if (error == 0 && is_new) return making;
    // Of one that was killed.
    if (error == 0) error = remove_tree(place.parent(), place.making());
    close(making);
    errno = error;
    if (error != 0 && error != ESTALE) return -1;
  }
}

// What is told of a commit before and after it may have been the one that was copied.
uint32_t check_copy(const Env* env, const Mark& before, const VerifyReport& found) {
  const uint32_t status = check_mark(before, env->path, found);
  if (status != ROV_OK) return status;
  const Mark after = wake_mark(env->directory, env->identity);
  return after.revision == found.revision ? check_mark(after, env->path, found) : uint32_t{ROV_OK};
}

uint32_t fill_backup(Env* env, const BackupPlace& place, int making, VerifyReport* found) {
  const int file = make_regular(making, "data.mdb", O_RDWR);
  if (file < 0) return engine_fail_at(errno, place.path(), "make the backup's data file");
  const Mark before = wake_mark(env->directory, env->identity);
  uint32_t status = store_copy(env, file);
  if (status == ROV_OK) status = verify_data(file, env->path, found);
  if (status == ROV_OK) status = check_copy(env, before, *found);
  if (close(file) != 0 && status == ROV_OK) {
    status = engine_fail_at(errno, place.path(), "write the backup");
  }
  if (status == ROV_OK) status = format_write(making, "format", place.path());
  if (status != ROV_OK || fsync(making) == 0) return status;
  return engine_fail_at(errno, place.path(), "sync the backup");
}

// Puts what was made where nothing is, or where the old one is, which then has the name of making.
uint32_t put_in_place(const BackupPlace& place, bool replaces) {
  const unsigned how = replaces ? RENAME_EXCHANGE : RENAME_NOREPLACE;
  int error =
      renameat2(place.parent(), place.making(), place.parent(), place.name(), how) == 0 ? 0 : errno;
  if (error == EEXIST) return is_there(place);
  if (error == 0 && fsync(place.parent()) != 0) error = errno;
  return engine_fail_at(error, place.path(), "move the backup into place");
}

uint32_t make_backup(Env* env, const BackupPlace& place, bool replaces, VerifyReport* found) {
  const int making = open_making(place);
  if (making < 0 && errno == EWOULDBLOCK) {
    return fail_text(ROV_ERR_BUSY, "another process makes a backup in %s: try again later",
                     place.path());
  }
  if (making < 0) return engine_fail_at(errno, place.path(), "make a temporary directory");
  uint32_t status = fill_backup(env, place, making, found);
  if (status == ROV_OK) status = put_in_place(place, replaces);
  // What was made and is of no use, or what it took the place of.
  if (status != ROV_OK || replaces) remove_tree(place.parent(), place.making());
  close(making);
  return status;
}

uint32_t replace_backup(Env* env, const BackupPlace& place, int old, VerifyReport* found) {
  const DirectoryLock lock(old, place.path());
  if (lock.status() != ROV_OK) return lock.status();
  const uint32_t status = check_old(env, place, old);
  return status == ROV_OK ? make_backup(env, place, true, found) : status;
}

}  // namespace

uint32_t store_backup(Env* env, const char* path, bool replace, VerifyReport* found) {
  BackupPlace place(path);
  uint32_t status = place.open();
  if (status != ROV_OK) return status;
  struct stat info;
  if (fstatat(place.parent(), place.name(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return make_backup(env, place, false, found);
    return engine_fail_at(errno, path, "examine the directory");
  }
  if (!replace) return is_there(place);
  const int old = open_subdirectory(place.parent(), place.name());
  if (old < 0) return engine_fail_at(errno, path, "open the directory");
  status = replace_backup(env, place, old, found);
  close(old);
  return status;
}

}  // namespace rov
