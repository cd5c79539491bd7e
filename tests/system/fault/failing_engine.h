// Calls of the storage engine, and searches in its file, that fail on demand, or hand out records that are
// damaged. An
// executable that uses it is linked with --wrap for each of the functions, so that the database's
// calls come here.
#ifndef TESTS_SYSTEM_FAULT_FAILING_ENGINE_H
#define TESTS_SYSTEM_FAULT_FAILING_ENGINE_H

#include <cstdint>

namespace failing_engine {

enum Call : uint32_t {
  kEnvCreate,
  kSetMaxDbs,
  kSetMaxReaders,
  kSetMapSize,
  kEnvOpen,
  kEnvSync,
  kCopy,     // mdb_env_copyfd
  kCompact,  // mdb_env_copyfd2
  kListReaders,
  kTxnBegin,
  kTxnRenew,
  kTxnCommit,
  kDbiOpen,
  kDel,
  kCursorOpen,
  kCursorGet,
  kCursorPut,
  kSearch,         // rov::Search::get
  kSearchInOrder,  // its first_from and last_to
  kCalls
};

const char* name_of(Call call);

// In place of an error, for searches: the record is found, but a bit of its value is another; or it has
// the right checksum over half of a value, or over one of nothing but ones; or it is none.
inline constexpr int kFlipped = 0x10001;
inline constexpr int kHalf = 0x10002;
inline constexpr int kOnes = 0x10003;
inline constexpr int kNoRecord = 0x10004;

// Calls number `from` to `until` - 1 of that kind, counted from 0, end with `error`.
struct Plan {
  Call call;
  uint32_t from;
  uint32_t until;
  int error;
};

inline constexpr uint32_t kForever = 0xffffffff;

struct Counts {
  uint32_t calls[kCalls] = {};
  uint32_t injected = 0;
};

// From now on, calls are counted and, with a plan, fail.
void begin(const Plan* plan);
// Nothing fails any more. What was counted since begin().
Counts end();

}  // namespace failing_engine

#endif
