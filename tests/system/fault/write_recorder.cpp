// The functions are declared here as they are in the C library's binary: its headers give the
// narrow and the wide forms (pwrite, pwrite64) one name. So no header that declares them is
// included.
#include "tests/system/fault/write_recorder.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cstddef>
#include <utility>

#define EXPORTED extern "C" __attribute__((visibility("default"), used))

extern "C" long long lseek64(int file, long long offset, int whence);

namespace fault {
namespace {

bool g_recording = false;
dev_t g_device = 0;
ino_t g_inode = 0;
std::vector<WriteEvent> g_events;

bool is_recorded(int file) {
  struct stat info;
  return g_recording && fstat(file, &info) == 0 && info.st_dev == g_device &&
         info.st_ino == g_inode;
}

void record_write(int file, uint64_t offset, const void* bytes, ptrdiff_t written) {
  if (written <= 0) return;
  const bool durable = (fcntl(file, F_GETFL) & O_DSYNC) != 0;
  const auto* from = static_cast<const uint8_t*>(bytes);
  g_events.push_back(
      {durable ? WriteEvent::kDurable : WriteEvent::kWrite, 0, offset, {from, from + written}});
}

template <typename Function>
Function* next(const char* name, Function*) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

bool record_begin(const char* path) {
  struct stat info;
  if (stat(path, &info) != 0) return false;
  g_device = info.st_dev;
  g_inode = info.st_ino;
  g_events.clear();
  g_recording = true;
  return true;
}

void record_mark(uint32_t mark) {
  g_events.push_back({WriteEvent::kMark, mark, 0, {}});
}

std::vector<WriteEvent> record_end() {
  g_recording = false;
  return std::exchange(g_events, {});
}

}  // namespace fault

struct Piece {
  const void* bytes;
  size_t size;
};

namespace {

// Pieces are recorded as writes of their own: no more than the system promises of them.
void record_pieces(int file, uint64_t offset, const Piece* pieces, int count, ptrdiff_t written) {
  for (int i = 0; i < count && written > 0; ++i) {
    const auto size = static_cast<ptrdiff_t>(pieces[i].size);
    const ptrdiff_t done = size < written ? size : written;
    fault::record_write(file, offset, pieces[i].bytes, done);
    offset += static_cast<uint64_t>(done);
    written -= done;
  }
}

}  // namespace

#define NEXT(name) fault::next(#name, &(name))

#define PWRITE(name, offset_type)                                                         \
  EXPORTED ptrdiff_t name(int file, const void* bytes, size_t size, offset_type offset) { \
    const ptrdiff_t written = NEXT(name)(file, bytes, size, offset);                      \
    if (fault::is_recorded(file)) {                                                       \
      fault::record_write(file, static_cast<uint64_t>(offset), bytes, written);           \
    }                                                                                     \
    return written;                                                                       \
  }
PWRITE(pwrite, long)
PWRITE(pwrite64, long long)

#define PWRITEV(name, offset_type)                                                        \
  EXPORTED ptrdiff_t name(int file, const Piece* pieces, int count, offset_type offset) { \
    const ptrdiff_t written = NEXT(name)(file, pieces, count, offset);                    \
    if (fault::is_recorded(file)) {                                                       \
      record_pieces(file, static_cast<uint64_t>(offset), pieces, count, written);         \
    }                                                                                     \
    return written;                                                                       \
  }
PWRITEV(pwritev, long)
PWRITEV(pwritev64, long long)

EXPORTED ptrdiff_t writev(int file, const Piece* pieces, int count) {
  const bool recorded = fault::is_recorded(file);
  const long long offset = recorded ? lseek64(file, 0, 1) : 0;
  const ptrdiff_t written = NEXT(writev)(file, pieces, count);
  if (recorded) record_pieces(file, static_cast<uint64_t>(offset), pieces, count, written);
  return written;
}

#define SYNC(name)                                                     \
  EXPORTED int name(int file) {                                        \
    const int result = NEXT(name)(file);                               \
    if (result == 0 && fault::is_recorded(file)) {                     \
      fault::g_events.push_back({fault::WriteEvent::kSync, 0, 0, {}}); \
    }                                                                  \
    return result;                                                     \
  }
SYNC(fdatasync)
SYNC(fsync)
