// Reading a database whose locks this process may not take: on a read-only file system, or with files
// that it may only read.
//
// A reader that nobody sees would lose its pages to the next writers, so such a process reads a copy
// of its own, in memory that has no name in any file system. The copy is good when it holds the
// commit that was the newest one when copying began and at most one other was made meanwhile: a
// commit writes to pages that neither the newest one nor the one before it uses.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <unistd.h>

#include <cerrno>

#include "database/base/error.h"
#include "database/file/layout.h"
#include "database/store/engine.h"
#include "database/store/wake.h"
#include "rov.h"

namespace rov {
namespace {

constexpr int kCopyAttempts = 5;

// 0 or errno.
int copy_all(int from, int to) {
  if (lseek(from, 0, SEEK_SET) != 0 || ftruncate(to, 0) != 0 || lseek(to, 0, SEEK_SET) != 0) {
    return errno;
  }
  constexpr size_t kPiece = size_t{64} << 20;
  for (;;) {
    const ssize_t copied = sendfile(to, from, nullptr, kPiece);
    if (copied == 0) return 0;
    if (copied < 0 && errno != EINTR) return errno;
  }
}

// What a meta page of the file says, whether it is good or not; nothing where there is none.
Meta meta_at(int file, uint64_t offset) {
  uint8_t bytes[kPageHead + kMetaBytes] = {};
  const ssize_t got = pread(file, bytes, sizeof bytes, static_cast<off_t>(offset));
  return got == static_cast<ssize_t>(sizeof bytes) ? read_meta(bytes + kPageHead) : Meta();
}

// The newest commit that the file's meta pages tell of.
Word newest_commit(int file) {
  const Meta first = meta_at(file, 0);
  const Meta second = meta_at(file, first.free.pad);
  return first.revision > second.revision ? first.revision : second.revision;
}

// *moved: commits were made meanwhile that can have spoilt the copy.
uint32_t copy_once(int data, Env* env, bool* moved) {
  const Word before = newest_commit(data);
  const int error = copy_all(data, env->copy);
  if (error != 0) return engine_fail(error, env, "copy the data file into memory");
  const uint32_t status = verify_data(env->copy, env->path, &env->use.verified);
  *moved = newest_commit(data) > before + (status == ROV_OK ? 1 : 0);
  return status;
}

}  // namespace

uint32_t copy_for_reading(int directory, Env* env) {
  const int data = open_regular(directory, "data.mdb", O_RDONLY);
  if (data < 0) return engine_fail(errno, env, "open the data file");
  const Mark mark = wake_mark(directory, env->identity);  // before, so that the copy is no older
  env->copy = memfd_create("node database", MFD_CLOEXEC);
  uint32_t status = engine_fail(env->copy < 0 ? errno : 0, env, "make a copy in memory");
  bool moved = status == ROV_OK;
  for (int attempt = 0; attempt < kCopyAttempts && moved; ++attempt) {
    moved = false;
    status = copy_once(data, env, &moved);
  }
  close(data);
  if (moved) {
    status = fail_text(ROV_ERR_BUSY,
                       "database %s changes faster than this process can copy it, which it must as "
                       "it may not write to lock.mdb: try again, or get the right to write there",
                       env->path);
  }
  return status == ROV_OK ? check_mark(mark, env->path, env->use.verified) : status;
}

}  // namespace rov
