// The memory of edits, which refuses on demand. An executable that uses it has refusing_arena.cpp in
// place of platform/arena.cpp, so that every piece of memory is a request of its own.
#ifndef TESTS_SYSTEM_FAULT_REFUSING_ARENA_H
#define TESTS_SYSTEM_FAULT_REFUSING_ARENA_H

#include <cstdint>

namespace refusing_arena {

// From now on requests are counted from 0, and number `at` is refused.
void begin(uint32_t at);
// Nothing is refused any more. Whether something was.
bool end();

}  // namespace refusing_arena

#endif
