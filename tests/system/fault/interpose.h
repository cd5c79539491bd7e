// Calls of the C library that fail on demand, counted by kind. The executable's definitions stand
// in front of the C library's for everything that it loads; it is linked with its symbols exported.
#ifndef TESTS_SYSTEM_FAULT_INTERPOSE_H
#define TESTS_SYSTEM_FAULT_INTERPOSE_H

#include <cstdint>

namespace interpose {

enum Call : uint32_t {
  kMemory,    // malloc, calloc, realloc and what stands on them: operator new, strdup, ...
  kOpen,      // open, openat, fopen
  kRead,      // read
  kPread,     // pread
  kWrite,     // write
  kPwrite,    // pwrite, pwritev, writev
  kSync,      // fdatasync, fsync, msync
  kTruncate,  // ftruncate
  kMap,       // mmap
  kRename,    // rename, renameat
  kControl,   // fcntl
  kCalls
};

const char* name_of(Call call);

// A call that writes half of what it was to write, instead of failing.
inline constexpr int kShort = -1;

// Calls number `from` to `until` - 1 of that kind, counted from 0, end with errno `error`.
struct Plan {
  Call call;
  uint32_t from;
  uint32_t until;
  int error;
};

inline constexpr uint32_t kForever = 0xffffffff;

struct Counts {
  uint32_t calls[kCalls];
  uint32_t injected;  // how many of them were made to fail
};

// From now on, calls are counted and, with a plan, fail. `counts` is the caller's, and may be
// shared with another process.
void begin(Counts* counts, const Plan* plan);
// Nothing fails any more, and nothing is counted.
void end();
// While one lives, the thread's calls are neither counted nor fail.
class Pause {
 public:
  Pause();
  ~Pause();
  Pause(const Pause&) = delete;
  Pause& operator=(const Pause&) = delete;
};

// Blocks of memory that are allocated, more or less than when the process began.
int64_t live_blocks();

}  // namespace interpose

#endif
