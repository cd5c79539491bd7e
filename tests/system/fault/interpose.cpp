// The functions are declared here as they are in the C library's binary, not through its headers:
// those give the narrow and the wide forms of file functions (pread, pread64) one name. So no
// header that brings them in is included.
#include "tests/system/fault/interpose.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>

#define EXPORTED extern "C" __attribute__((visibility("default"), used))

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* block);
}

namespace interpose {
namespace {

Counts* volatile g_counts = nullptr;
Plan g_plan = {};
bool g_planned = false;
intptr_t g_live = 0;  // a word: wider ones are no atomics everywhere
thread_local uint32_t g_pauses = 0;

// What the call is to do instead of its work: 0 = its work, kShort, or an errno.
int verdict(Call call) {
  Counts* counts = g_counts;
  if (counts == nullptr || g_pauses != 0) return 0;
  const uint32_t number = __atomic_fetch_add(&counts->calls[call], 1U, __ATOMIC_RELAXED);
  const bool hit =
      g_planned && g_plan.call == call && number >= g_plan.from && number < g_plan.until;
  if (!hit) return 0;
  __atomic_fetch_add(&counts->injected, 1U, __ATOMIC_RELAXED);
  return g_plan.error;
}

bool refused(Call call) {
  const int error = verdict(call);
  if (error <= 0) return false;
  errno = error;
  return true;
}

bool no_memory() {
  if (verdict(kMemory) == 0) return false;
  errno = ENOMEM;
  return true;
}

void* counted(void* block) {
  if (block != nullptr) __atomic_fetch_add(&g_live, 1, __ATOMIC_RELAXED);
  return block;
}

template <typename Function>
Function* next(const char* name, Function*) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

const char* name_of(Call call) {
  constexpr const char* kNames[kCalls] = {"memory", "open",   "read",   "pread",
                                          "write",  "pwrite", "sync",   "truncate",
                                          "mmap",   "rename", "control"};
  return kNames[call];
}

void begin(Counts* counts, const Plan* plan) {
  g_planned = plan != nullptr;
  if (g_planned) g_plan = *plan;
  g_counts = counts;
}

void end() {
  g_counts = nullptr;
  g_planned = false;
}

Pause::Pause() {
  ++g_pauses;
}
Pause::~Pause() {
  --g_pauses;
}

int64_t live_blocks() {
  return __atomic_load_n(&g_live, __ATOMIC_RELAXED);
}

}  // namespace interpose

using interpose::counted;
using interpose::no_memory;
using interpose::refused;

// ---- Memory -------------------------------------------------------------------------------------

EXPORTED void* malloc(size_t size) {
  return no_memory() ? nullptr : counted(__libc_malloc(size));
}
EXPORTED void* calloc(size_t count, size_t size) {
  return no_memory() ? nullptr : counted(__libc_calloc(count, size));
}
EXPORTED void* realloc(void* block, size_t size) {
  if (no_memory()) return nullptr;
  void* moved = __libc_realloc(block, size);
  return block == nullptr ? counted(moved) : moved;
}
EXPORTED void* memalign(size_t alignment, size_t size) {
  return no_memory() ? nullptr : counted(__libc_memalign(alignment, size));
}
EXPORTED void* aligned_alloc(size_t alignment, size_t size) {
  return memalign(alignment, size);
}
EXPORTED int posix_memalign(void** out, size_t alignment, size_t size) {
  void* block = memalign(alignment, size);
  if (block == nullptr) return ENOMEM;
  *out = block;
  return 0;
}
EXPORTED void free(void* block) {
  if (block != nullptr) __atomic_fetch_sub(&interpose::g_live, 1, __ATOMIC_RELAXED);
  __libc_free(block);
}

// ---- Files --------------------------------------------------------------------------------------

// The function behind the one of the same name.
#define NEXT(name) interpose::next(#name, &(name))

#define OPEN(name)                                      \
  EXPORTED int name(const char* path, int flags, ...) { \
    va_list rest;                                       \
    va_start(rest, flags);                              \
    const unsigned mode = va_arg(rest, unsigned);       \
    va_end(rest);                                       \
    if (refused(interpose::kOpen)) return -1;           \
    return NEXT(name)(path, flags, mode);               \
  }
OPEN(open)
OPEN(open64)

#define OPENAT(name)                                            \
  EXPORTED int name(int at, const char* path, int flags, ...) { \
    va_list rest;                                               \
    va_start(rest, flags);                                      \
    const unsigned mode = va_arg(rest, unsigned);               \
    va_end(rest);                                               \
    if (refused(interpose::kOpen)) return -1;                   \
    return NEXT(name)(at, path, flags, mode);                   \
  }
OPENAT(openat)
OPENAT(openat64)

#define FOPEN(name)                                         \
  EXPORTED void* name(const char* path, const char* mode) { \
    if (refused(interpose::kOpen)) return nullptr;          \
    return NEXT(name)(path, mode);                          \
  }
FOPEN(fopen)
FOPEN(fopen64)

EXPORTED ptrdiff_t read(int file, void* bytes, size_t size) {
  if (refused(interpose::kRead)) return -1;
  return NEXT(read)(file, bytes, size);
}

#define PREAD(name, offset_type)                                                    \
  EXPORTED ptrdiff_t name(int file, void* bytes, size_t size, offset_type offset) { \
    if (refused(interpose::kPread)) return -1;                                      \
    return NEXT(name)(file, bytes, size, offset);                                   \
  }
PREAD(pread, long)
PREAD(pread64, long long)

// What is left of `size` bytes when the call writes less than it should.
namespace {
size_t shortened(int decision, size_t size) {
  return decision == interpose::kShort && size > 1 ? size / 2 : size;
}
}  // namespace

EXPORTED ptrdiff_t write(int file, const void* bytes, size_t size) {
  const int decision = interpose::verdict(interpose::kWrite);
  if (decision > 0) {
    errno = decision;
    return -1;
  }
  return NEXT(write)(file, bytes, shortened(decision, size));
}

#define PWRITE(name, offset_type)                                                         \
  EXPORTED ptrdiff_t name(int file, const void* bytes, size_t size, offset_type offset) { \
    const int decision = interpose::verdict(interpose::kPwrite);                          \
    if (decision > 0) {                                                                   \
      errno = decision;                                                                   \
      return -1;                                                                          \
    }                                                                                     \
    return NEXT(name)(file, bytes, shortened(decision, size), offset);                    \
  }
PWRITE(pwrite, long)
PWRITE(pwrite64, long long)

struct Piece {
  void* bytes;
  size_t size;
};

// A short one writes the first piece, or half of it when there is no other.
#define PWRITEV(name, offset_type)                                                          \
  EXPORTED ptrdiff_t name(int file, const Piece* pieces, int count, offset_type offset) {   \
    const int decision = interpose::verdict(interpose::kPwrite);                            \
    if (decision > 0) {                                                                     \
      errno = decision;                                                                     \
      return -1;                                                                            \
    }                                                                                       \
    if (decision == 0) return NEXT(name)(file, pieces, count, offset);                      \
    const Piece first = {pieces[0].bytes, count > 1 ? pieces[0].size : pieces[0].size / 2}; \
    return NEXT(name)(file, &first, 1, offset);                                             \
  }
PWRITEV(pwritev, long)
PWRITEV(pwritev64, long long)

EXPORTED ptrdiff_t writev(int file, const Piece* pieces, int count) {
  const int decision = interpose::verdict(interpose::kPwrite);
  if (decision > 0) {
    errno = decision;
    return -1;
  }
  return NEXT(writev)(file, pieces, decision == 0 ? count : 1);
}

#define SYNC(name)                            \
  EXPORTED int name(int file) {               \
    if (refused(interpose::kSync)) return -1; \
    return NEXT(name)(file);                  \
  }
SYNC(fdatasync)
SYNC(fsync)

EXPORTED int msync(void* from, size_t size, int flags) {
  if (refused(interpose::kSync)) return -1;
  return NEXT(msync)(from, size, flags);
}

#define TRUNCATE(name, offset_type)               \
  EXPORTED int name(int file, offset_type size) { \
    if (refused(interpose::kTruncate)) return -1; \
    return NEXT(name)(file, size);                \
  }
TRUNCATE(ftruncate, long)
TRUNCATE(ftruncate64, long long)

#define MAP(name, offset_type)                                                    \
  EXPORTED void* name(void* at, size_t size, int protection, int flags, int file, \
                      offset_type offset) {                                       \
    if (refused(interpose::kMap)) return reinterpret_cast<void*>(-1);             \
    return NEXT(name)(at, size, protection, flags, file, offset);                 \
  }
MAP(mmap, long)
MAP(mmap64, long long)

EXPORTED int rename(const char* from, const char* to) {
  if (refused(interpose::kRename)) return -1;
  return NEXT(rename)(from, to);
}
EXPORTED int renameat(int from_at, const char* from, int to_at, const char* to) {
  if (refused(interpose::kRename)) return -1;
  return NEXT(renameat)(from_at, from, to_at, to);
}

// Every command takes at most one word behind it.
#define CONTROL(name)                             \
  EXPORTED int name(int file, int command, ...) { \
    va_list rest;                                 \
    va_start(rest, command);                      \
    void* word = va_arg(rest, void*);             \
    va_end(rest);                                 \
    if (refused(interpose::kControl)) return -1;  \
    return NEXT(name)(file, command, word);       \
  }
CONTROL(fcntl)
CONTROL(fcntl64)
