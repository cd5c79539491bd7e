// Compacting: writing the newest commit into a file that has nothing else in it, and putting that
// in place of the data file.
//
// Nobody may have the database open meanwhile: who had the old file open would go on with that one.
// The engine writes the copy, verified before it takes the place; it numbers the copy's commit 1,
// but what is stored knows the number that the commit had, so that is put back.
#include <fcntl.h>
#include <lmdb.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "database/base/error.h"
#include "database/file/layout.h"
#include "database/store/engine.h"
#include "rov.h"

namespace rov {
namespace {

constexpr const char* kCopy = "data.mdb.compacted";

int copy_compacted(const char* path, int file) {
  MDB_env* engine = nullptr;
  int error = mdb_env_create(&engine);
  if (error != 0) return error;
  // Nobody else is there, and lock.mdb belongs to those who are.
  error = mdb_env_open(engine, path, MDB_RDONLY | MDB_NOLOCK | MDB_NOTLS, 0664);
  if (error == 0) error = mdb_env_copyfd2(engine, file, MDB_CP_COMPACT);
  mdb_env_close(engine);
  return error;
}

// Writes the meta page of the copied commit to both places, as that commit and the one before.
int number_commit(int file, uint32_t page_size, uint64_t revision) {
  uint8_t meta[kPageHead + kMetaBytes];
  if (pread(file, meta, sizeof meta, page_size) != static_cast<ssize_t>(sizeof meta)) return EIO;
  for (Word page = 0; page < kMetaPages; ++page) {
    const auto newest = static_cast<Word>(revision);
    store(meta, page);
    store(meta + sizeof meta - kWord, newest % 2 == page ? newest : newest - 1);
    const auto offset = static_cast<off_t>(page * page_size);
    const ssize_t written = pwrite(file, meta, sizeof meta, offset);
    if (written != static_cast<ssize_t>(sizeof meta)) return written < 0 ? errno : ENOSPC;
  }
  return fsync(file) == 0 ? 0 : errno;
}

uint32_t write_copy(int directory, const char* path, int file, const VerifyReport& original,
                    uint64_t* bytes) {
  int error = copy_compacted(path, file);
  if (error == 0 && original.revision != 0) {
    error = number_commit(file, original.page_size, original.revision);
  }
  if (error != 0) return engine_fail_at(error, path, "write the compacted file");
  VerifyReport copy;
  const uint32_t status = verify_data(file, path, &copy);
  if (status != ROV_OK) return status;
  *bytes = copy.bytes;
  error =
      renameat(directory, kCopy, directory, "data.mdb") == 0 && fsync(directory) == 0 ? 0 : errno;
  return engine_fail_at(error, path, "move the compacted file into place");
}

uint32_t compact_alone(int directory, const char* path, uint64_t* before, uint64_t* after) {
  const int data = openat(directory, "data.mdb", O_RDONLY | O_CLOEXEC);
  if (data < 0) return engine_fail_at(errno, path, "open the data file");
  VerifyReport original;
  struct stat info = {};
  uint32_t status = verify_data(data, path, &original);
  if (status == ROV_OK && fstat(data, &info) != 0) {
    status = engine_fail_at(errno, path, "examine the data file");
  }
  close(data);
  if (status != ROV_OK) return status;
  const int file =
      openat(directory, kCopy, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, info.st_mode & 0777);
  if (file < 0) return engine_fail_at(errno, path, "make the compacted file");
  *before = original.bytes;
  status = write_copy(directory, path, file, original, after);
  close(file);
  if (status != ROV_OK) unlinkat(directory, kCopy, 0);
  return status;
}

}  // namespace

uint32_t compact_closed(int directory, const char* path, uint64_t* before, uint64_t* after) {
  const OpenLock lock(directory);
  bool others = false;
  const uint32_t status = find_others(directory, path, &others);
  if (status != ROV_OK) return status;
  if (!others) return compact_alone(directory, path, before, after);
  return fail_text(ROV_ERR_BUSY,
                   "database %s is open in another process: compact it when nobody has it open",
                   path);
}

}  // namespace rov
