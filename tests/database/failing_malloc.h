// A C library allocator that refuses on demand. An executable that uses it is linked with
// --wrap=malloc, --wrap=calloc and --wrap=realloc, so that its own calls come here.
#ifndef TESTS_DATABASE_FAILING_MALLOC_H
#define TESTS_DATABASE_FAILING_MALLOC_H

namespace failing_malloc {

inline constexpr int kNever = -1;

// From now on this thread's calls are counted from 0, and calls `from` to `until` - 1 are refused.
void begin(int from, int until);
// Nothing is refused any more. Returns how many calls there were.
int end();

}  // namespace failing_malloc

#endif
