// Records what is written to a file and when it is synced. The executable's functions stand in
// front of the C library's for everything that it loads; it is linked with its symbols exported.
#ifndef TESTS_SYSTEM_FAULT_WRITE_RECORDER_H
#define TESTS_SYSTEM_FAULT_WRITE_RECORDER_H

#include <cstdint>
#include <vector>

namespace fault {

struct WriteEvent {
  enum Kind : uint8_t {
    kWrite,    // durable after the next sync
    kDurable,  // a write that is durable when it returns (O_DSYNC)
    kSync,
    kMark  // what the test said
  };
  Kind kind;
  uint32_t mark;
  uint64_t offset;
  std::vector<uint8_t> bytes;
};

// Records the writes to the file at `path` from now on, by whatever descriptor.
bool record_begin(const char* path);
void record_mark(uint32_t mark);
std::vector<WriteEvent> record_end();

}  // namespace fault

#endif
