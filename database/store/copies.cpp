// Snapshots that are kept: copies of the database in directories of their own.
//
//   directory/snapshots/
//     NAME/              a copy: `format` and `data.mdb` as in a database (copy_name.h: NAME)
//     .making/           one that is being made, under a lock on directory/snapshots
//     .removed-P-N/      one that is being removed by process P
//
// A copy comes and goes by one renaming, so that there is a whole one or none, whoever is killed.
// Who has it open goes on reading it after its removal. Nobody writes to it.
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "database/base/error.h"
#include "database/store/engine.h"
#include "rov.h"

namespace rov {
namespace {

constexpr const char* kCopies = "snapshots";
constexpr const char* kMaking = ".making";
constexpr const char* kRemoved = ".removed-";

// The directory of the copies while it is open.
class Copies {
 public:
  Copies(const Env* env, bool make) {
    if (make && mkdirat(env->directory, kCopies, 0775) == 0) fsync(env->directory);
    file_ = openat(env->directory, kCopies, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    error_ = file_ < 0 ? errno : 0;
  }
  ~Copies() {
    if (file_ < 0) return;
    flock(file_, LOCK_UN);  // closing is not enough where a fork has shared it meanwhile
    close(file_);
  }
  Copies(const Copies&) = delete;
  Copies& operator=(const Copies&) = delete;

  int file() const { return file_; }
  int error() const { return error_; }

  // One maker at a time, over all processes, as long as this object lives.
  void lock() const {
    while (flock(file_, LOCK_EX) != 0 && errno == EINTR) {
    }
  }

 private:
  int file_ = -1;
  int error_ = 0;
};

bool has_copy(int copies, const CopyName& name) {
  return faccessat(copies, name.file, F_OK, 0) == 0;
}

// Visits the names in the directory; `visit` answers whether to go on. 0 or errno.
template <class Visit>
int each_name(int copies, Visit visit) {
  const int file = openat(copies, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  DIR* directory = file < 0 ? nullptr : fdopendir(file);
  if (directory == nullptr) {
    const int error = errno;
    if (file >= 0) close(file);
    return error;
  }
  while (const dirent* entry = readdir(directory)) {
    if (!visit(entry->d_name)) break;
  }
  closedir(directory);
  return 0;
}

// ---- Making ----

uint32_t fill(Env* env, int making) {
  const int file = openat(making, "data.mdb", O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0664);
  if (file < 0) return engine_fail(errno, env, "make a snapshot's data file");
  uint32_t status = store_copy(env, file);
  if (close(file) != 0 && status == ROV_OK) status = engine_fail(errno, env, "write a snapshot");
  if (status == ROV_OK) status = format_write(making, "format", env->path);
  if (status == ROV_OK && fsync(making) != 0) status = engine_fail(errno, env, "sync a snapshot");
  return status;
}

uint32_t make_copy(Env* env, int copies, const CopyName& name) {
  int error = remove_tree(copies, kMaking);
  if (error == 0 && mkdirat(copies, kMaking, 0775) != 0) error = errno;
  if (error != 0) return engine_fail(error, env, "make a snapshot's directory");
  const int making = openat(copies, kMaking, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (making < 0) return engine_fail(errno, env, "open a snapshot's directory");
  uint32_t status = fill(env, making);
  close(making);
  if (status == ROV_OK) {
    error = renameat(copies, kMaking, copies, name.file) == 0 && fsync(copies) == 0 ? 0 : errno;
    status = engine_fail(error, env, "move a snapshot into place");
  }
  if (status != ROV_OK) remove_tree(copies, kMaking);
  return status;
}

// ---- Removing ----

bool is_removed(const char* name) {
  return strncmp(name, kRemoved, strlen(kRemoved)) == 0;
}

// Takes a copy out of sight, then apart. 0 or errno; ENOENT when somebody else was first.
int remove_copy(int copies, const char* name) {
  static std::atomic<uint32_t> s_number{0};
  char removed[64];
  int error = EEXIST;
  while (error == EEXIST || error == ENOTEMPTY) {
    snprintf(removed, sizeof removed, "%s%u-%u", kRemoved, static_cast<unsigned>(getpid()),
             static_cast<unsigned>(s_number.fetch_add(1)));
    error = renameat(copies, name, copies, removed) == 0 ? 0 : errno;
  }
  return error == 0 ? remove_tree(copies, removed) : error;
}

// Finds a name of which `wanted` says so. ENOENT when there is none.
template <class Wanted>
int find_name(int copies, char (&found)[NAME_MAX + 1], Wanted wanted) {
  bool is_found = false;
  const int error = each_name(copies, [&](const char* name) {
    is_found = wanted(name);
    if (is_found) snprintf(found, sizeof found, "%s", name);
    return !is_found;
  });
  return error == 0 && !is_found ? ENOENT : error;
}

// What was being removed when its remover was killed.
int finish_removing(int copies) {
  char name[NAME_MAX + 1];
  int error = 0;
  while (error == 0) {
    error = find_name(copies, name, is_removed);
    if (error == 0) error = remove_tree(copies, name);
  }
  return error == ENOENT ? 0 : error;
}

// Removes all of them. *count: how many there were.
int remove_below(int copies, const CopyName& from, uint32_t* count) {
  char name[NAME_MAX + 1];
  for (;;) {
    int error =
        find_name(copies, name, [&](const char* file) { return copy_is_below(file, from); });
    if (error != 0) return error == ENOENT ? 0 : error;
    error = remove_copy(copies, name);
    if (error == 0) ++*count;
    if (error != 0 && error != ENOENT) return error;
  }
}

uint32_t no_copy(const Env* env) {
  return fail_text(ROV_ERR_NO_ITEM,
                   "database %s has no such snapshot: see which there are "
                   "(rov_snapshot_next)",
                   env->path);
}

}  // namespace

uint32_t copies_get(Env* env, const CopyName& name, CopyPlace* place) {
  const int len =
      snprintf(place->path, sizeof place->path, "%s/%s/%s", env->path, kCopies, name.file);
  if (len < 0 || static_cast<size_t>(len) >= sizeof place->path) {
    return engine_fail(ENAMETOOLONG, env, "name a snapshot");
  }
  const Copies copies(env, !env->read_only);
  if (copies.error() == 0 && has_copy(copies.file(), name)) return ROV_OK;
  if (env->read_only) {
    return fail_text(ROV_ERR_READ_ONLY,
                     "database %s has no such snapshot, and was opened for reading only: open it "
                     "without ROV_DB_RDONLY to make one",
                     env->path);
  }
  if (copies.error() != 0) return engine_fail(copies.error(), env, "open the snapshots");
  copies.lock();
  if (has_copy(copies.file(), name)) return ROV_OK;  // whoever held the lock made it
  const int error = finish_removing(copies.file());
  if (error != 0) return engine_fail(error, env, "finish removing a snapshot");
  return make_copy(env, copies.file(), name);
}

uint32_t copies_remove(Env* env, const CopyName& name) {
  if (env->read_only) return writer_refused(env);
  const Copies copies(env, false);
  if (copies.error() == ENOENT) return no_copy(env);
  uint32_t count = 0;
  int error = copies.error();
  if (error == 0) error = finish_removing(copies.file());
  if (error == 0) error = remove_below(copies.file(), name, &count);
  if (error == 0 && count != 0 && fsync(copies.file()) != 0) error = errno;
  if (error != 0) return engine_fail(error, env, "remove a snapshot");
  return count == 0 ? no_copy(env) : uint32_t{ROV_OK};
}

uint32_t copies_next(Env* env, const char* after, char (&path)[kCopyNameRoom]) {
  const Copies copies(env, false);
  path[0] = '\0';
  int error = copies.error();
  if (error == 0) {
    error = each_name(copies.file(), [&](const char* name) {
      char found[kCopyNameRoom];
      const bool is_copy = name[0] != '.' && copy_path(name, found);
      const bool is_next = is_copy && strcmp(found, after) > 0;
      if (is_next && (path[0] == '\0' || strcmp(found, path) < 0)) memcpy(path, found, sizeof path);
      return true;
    });
  }
  if (error != 0 && error != ENOENT) return engine_fail(error, env, "list the snapshots");
  if (path[0] != '\0') return ROV_OK;
  return fail_text(ROV_ERR_NO_ITEM, "no snapshot follows");
}

}  // namespace rov
