// Errors of the operating system as statuses of the database.
#include "database/base/system_error.h"

#include <sys/resource.h>

#include <cerrno>
#include <cstring>

#include "database/base/error.h"
#include "rov.h"

namespace rov {
namespace {

struct Row {
  int error;
  uint32_t status;
  const char* advice;
};

constexpr Row kRows[] = {
    {ENOMEM, ROV_ERR_NO_MEM, "free memory and try again"},
    {ENOSPC, ROV_ERR_FULL, "free space on the file system and try again; nothing was lost"},
    {EDQUOT, ROV_ERR_FULL, "free space within the quota and try again; nothing was lost"},
    {EFBIG, ROV_ERR_FULL, "use a file system that takes larger files; nothing was lost"},
    {EACCES, ROV_ERR_OPEN, "check the permissions of the directory and its files"},
    {EPERM, ROV_ERR_OPEN, "check the permissions of the directory and its files"},
    {EROFS, ROV_ERR_OPEN, "the file system is read-only: open the database with ROV_DB_RDONLY"},
    {ENOENT, ROV_ERR_OPEN, "check the path; the directory above it must exist"},
    {ENOTDIR, ROV_ERR_OPEN, "check the path: a database is a directory"},
    {ENAMETOOLONG, ROV_ERR_OPEN, "use a shorter path"},
    {EMFILE, ROV_ERR_OPEN, "close files, or raise the process's limit of open files"},
    {ENFILE, ROV_ERR_OPEN, "the system's limit of open files is reached: try again later"},
    // The engine takes a lock that was refused for one that another process has, and then misses
    // what that process would have left in lock.mdb.
    {EINVAL, ROV_ERR_GENERIC,
     "the file system refused a record lock, or lock.mdb is damaged: check the file system, "
     "and remove lock.mdb when no process has the database open"},
    {EAGAIN, ROV_ERR_BUSY, "try again later"},
    {EBUSY, ROV_ERR_BUSY, "try again later"},
    {EIO, ROV_ERR_IO,
     "check the device and the file system's free space; nothing that was committed is "
     "lost"},
};

constexpr Row kOther = {0, ROV_ERR_GENERIC, "check the file system, then restore from a dump"};

const Row& row_of(int error) {
  for (const Row& row : kRows) {
    if (row.error == error) return row;
  }
  return kOther;
}

// The limit that a process is given, in bytes; 0 = none.
unsigned long long file_size_limit() {
  struct rlimit limit;
  if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return 0;
  return limit.rlim_cur;
}

}  // namespace

uint32_t system_fail(int error, const char* path, const char* doing) {
  return system_fail(error, strerror(error), path, doing);
}

uint32_t system_fail(int error, const char* text, const char* path, const char* doing) {
  if (error == 0) return ROV_OK;
  const unsigned long long limit = error == EFBIG ? file_size_limit() : 0;
  if (limit != 0) {
    return fail_text(ROV_ERR_FULL,
                     "cannot %s in database %s: %s; raise the limit of file sizes, which is %llu "
                     "bytes for this process, and try again; nothing was lost",
                     doing, path, text, limit);
  }
  const Row& row = row_of(error);
  return fail_text(row.status, "cannot %s in database %s: %s; %s", doing, path, text, row.advice);
}

}  // namespace rov
