// Snapshots that are kept: copies of the database in directories of their own.
//
//   directory/snapshots/
//     NAME/              a copy: `format` and `data.mdb` as in a database (copies.h: NAME)
//     .making/           one that is being made, under a lock on directory/snapshots
//     .removed-P-N/      one that is being removed by process P
//
// A copy comes and goes by one renaming, so that there is a whole one or none, whoever is killed.
// Who has it open goes on reading it after its removal. Nobody writes to it.
#include <dirent.h>
#include <fcntl.h>
#include <lmdb.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "database/base/error.h"
#include "database/store/copies.h"
#include "database/store/engine.h"
#include "database/store/guard.h"
#include "rov.h"

namespace rov {

// ---- Names --------------------------------------------------------------------------------------

namespace {

constexpr const char* kSlash = "%2F";

bool is_plain(unsigned char byte, bool first) {
  if (byte == '.') return !first;
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= '0' && byte <= '9') || byte == '-' || byte == '_';
}

// Appends the file name's part for `text`. False when there is no room.
bool append(const char* text, CopyName* out) {
  size_t at = strlen(out->file);
  for (; *text != '\0'; ++text) {
    const auto byte = static_cast<unsigned char>(*text);
    const bool plain = is_plain(byte, at == 0);
    const size_t needed = plain ? 1 : 3;
    if (at + needed >= kCopyNameRoom) return false;
    snprintf(out->file + at, kCopyNameRoom - at, plain ? "%c" : "%%%02X", byte);
    at += needed;
  }
  return true;
}

bool is_hex_digit(char digit) {
  return isxdigit(static_cast<unsigned char>(digit)) != 0;
}

bool has_control(const char* text) {
  for (; *text != '\0'; ++text) {
    const auto byte = static_cast<unsigned char>(*text);
    if (byte < 0x20 || byte == 0x7f) return true;
  }
  return false;
}

bool is_dots(const char* text, size_t len) {
  return (len == 1 && text[0] == '.') || (len == 2 && text[0] == '.' && text[1] == '.');
}

bool is_good_name(const char* name) {
  const size_t len = strlen(name);
  return len != 0 && !is_dots(name, len) && strchr(name, '/') == nullptr && !has_control(name);
}

bool is_good_uri(const char* uri) {
  const size_t len = strlen(uri);
  if (len == 0 || uri[0] == '/' || uri[len - 1] == '/' || has_control(uri)) return false;
  for (const char* part = uri;;) {
    const char* slash = strchr(part, '/');
    const size_t part_len = slash == nullptr ? strlen(part) : static_cast<size_t>(slash - part);
    if (is_dots(part, part_len)) return false;
    if (slash == nullptr) return true;
    part = slash + 1;
  }
}

uint32_t bad_uri(const char* uri) {
  return fail_text(ROV_ERR_INVALID,
                   "\"%.200s\" cannot be the URI of snapshots: use parts with '/' between them, "
                   "none of them \".\" or \"..\", no '/' at either end, no control characters",
                   uri);
}

uint32_t bad_name(const char* name) {
  return fail_text(ROV_ERR_INVALID,
                   "\"%.200s\" cannot be the name of a snapshot: use one that is not empty, \".\" "
                   "or \"..\", without '/' and control characters",
                   name);
}

}  // namespace

uint32_t copy_name(const char* uri, const char* name, CopyName* out) {
  if (uri != nullptr && !is_good_uri(uri)) return bad_uri(uri);
  if (name != nullptr && !is_good_name(name)) return bad_name(name);
  out->file[0] = '\0';
  bool fits = uri == nullptr || append(uri, out);
  if (fits && uri != nullptr && name != nullptr) fits = append("/", out);
  if (fits && name != nullptr) fits = append(name, out);
  if (fits) return ROV_OK;
  return fail_text(ROV_ERR_LENGTH,
                   "the path of a snapshot has at most %u bytes, where each but letters, digits, "
                   "'-', '_' and '.' counts three: use a shorter one",
                   kCopyNameRoom - 1);
}

bool copy_path(const char* file, char (&path)[kCopyNameRoom]) {
  size_t len = 0;
  for (const char* at = file; *at != '\0'; ++at) {
    if (len + 1 >= kCopyNameRoom) return false;
    unsigned byte = static_cast<unsigned char>(*at);
    if (byte == '%') {
      if (!is_hex_digit(at[1]) || !is_hex_digit(at[2])) return false;
      if (sscanf(at, "%%%2X", &byte) != 1 || byte == 0) return false;
      at += 2;
    }
    path[len++] = static_cast<char>(byte);
  }
  path[len] = '\0';
  CopyName again = {};
  return append(path, &again) && strcmp(again.file, file) == 0;
}

bool copy_is_below(const char* file, const CopyName& name) {
  const size_t len = strlen(name.file);
  if (strncmp(file, name.file, len) != 0) return false;
  return file[len] == '\0' || strncmp(file + len, kSlash, strlen(kSlash)) == 0;
}

// ---- Directories of copies ----------------------------------------------------------------------

namespace {

constexpr const char* kCopies = "snapshots";
constexpr const char* kMakingCopy = ".making";
constexpr const char* kRemoved = ".removed-";

// The directory of the copies while it is open.
class Copies {
 public:
  Copies(const Env* env, bool make) {
    if (make && make_directory(env->directory, kCopies) == 0) fsync(env->directory);
    file_ = open_subdirectory(env->directory, kCopies);
    error_ = file_ < 0 ? errno : 0;
  }
  ~Copies() {
    if (file_ >= 0) close(file_);
  }
  Copies(const Copies&) = delete;
  Copies& operator=(const Copies&) = delete;

  int file() const { return file_; }
  int error() const { return error_; }

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
  const int file = make_regular(making, "data.mdb", O_WRONLY);
  if (file < 0) return engine_fail(errno, env, "make a snapshot's data file");
  uint32_t status = store_copy(env, file);
  if (close(file) != 0 && status == ROV_OK) status = engine_fail(errno, env, "write a snapshot");
  if (status == ROV_OK) status = format_write(making, "format", env->path);
  if (status == ROV_OK && fsync(making) != 0) status = engine_fail(errno, env, "sync a snapshot");
  return status;
}

uint32_t make_copy(Env* env, int copies, const CopyName& name) {
  int error = remove_tree(copies, kMakingCopy);
  if (error == 0) error = make_directory(copies, kMakingCopy);
  if (error != 0) return engine_fail(error, env, "make a snapshot's directory");
  const int making = open_subdirectory(copies, kMakingCopy);
  if (making < 0) return engine_fail(errno, env, "open a snapshot's directory");
  uint32_t status = fill(env, making);
  close(making);
  if (status == ROV_OK) {
    error = move_durably(copies, kMakingCopy, copies, name.file);
    status = engine_fail(error, env, "move a snapshot into place");
  }
  if (status != ROV_OK) remove_tree(copies, kMakingCopy);
  return status;
}

// ---- Removing ----

bool is_removed(const char* name) {
  return strncmp(name, kRemoved, strlen(kRemoved)) == 0;
}

// The data file goes first: to those who opened the directory when the copy was still there, one
// without its format file would be damaged. 0 or errno.
int take_apart(int copies, const char* removed) {
  const int directory = open_subdirectory(copies, removed);
  if (directory >= 0) {
    unlinkat(directory, "data.mdb", 0);
    close(directory);
  }
  return remove_tree(copies, removed);
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
  return error == 0 ? take_apart(copies, removed) : error;
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
    if (error == 0) error = take_apart(copies, name);
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

namespace {

// Makes sure that there is a copy of that name.
uint32_t find_or_make(Env* env, const Copies& copies, const CopyName& name) {
  if (copies.error() == 0 && has_copy(copies.file(), name)) return ROV_OK;
  if (env->read_only) {
    return fail_text(ROV_ERR_READ_ONLY,
                     "database %s has no such snapshot, and was opened for reading only: open it "
                     "without ROV_DB_RDONLY to make one",
                     env->path);
  }
  if (copies.error() != 0) return engine_fail(copies.error(), env, "open the snapshots");
  const DirectoryLock lock(copies.file(), env->path);  // one maker at a time, over all processes
  if (lock.status() != ROV_OK) return lock.status();
  if (has_copy(copies.file(), name)) return ROV_OK;  // whoever held the lock made it
  const int error = finish_removing(copies.file());
  if (error != 0) return engine_fail(error, env, "finish removing a snapshot");
  return make_copy(env, copies.file(), name);
}

}  // namespace

uint32_t copies_open(Env* env, const CopyName& name, Env** copy) {
  char path[PATH_MAX];  // as the database was opened, for messages
  const int len = snprintf(path, sizeof path, "%s/%s/%s", env->path, kCopies, name.file);
  if (len < 0 || static_cast<size_t>(len) >= sizeof path) {
    return engine_fail(ENAMETOOLONG, env, "name a snapshot");
  }
  const Copies copies(env, !env->read_only);
  uint32_t status = find_or_make(env, copies, name);
  if (status != ROV_OK) return status;
  const int directory = open_subdirectory(copies.file(), name.file);
  if (directory < 0 && errno == ENOENT) {
    return fail_text(ROV_ERR_OPEN, "the snapshot in %s was removed while it was opened: try again",
                     path);
  }
  if (directory < 0) return engine_fail(errno, env, "open a snapshot's directory");
  status = store_open_directory(path, directory, copy);
  close(directory);
  return status;
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

// ---- Copying the engine's file ------------------------------------------------------------------

namespace {

// The engine reads through the map, so the map must not change meanwhile.
Attempt copy_once(Env* env, int file) {
  pthread_mutex_lock(&env->committing.lock);
  int error = is_dead(env) ? kEngineDead : mdb_env_copyfd(env->engine, file);
  if (error == MDB_READERS_FULL) {
    store_check_readers(env);
    error = mdb_env_copyfd(env->engine, file);
  }
  pthread_mutex_unlock(&env->committing.lock);
  return engine_attempt(error, env, "copy the data file");
}

}  // namespace

uint32_t store_copy(Env* env, int file) {
  const uint32_t status = follow_growth(env, [&] { return copy_once(env, file); });
  if (status == ROV_OK && fsync(file) != 0) return engine_fail(errno, env, "sync the copy");
  return status;
}

}  // namespace rov
