#include "tests/database/failing_malloc.h"

#include <cstddef>

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
}

namespace failing_malloc {
namespace {

thread_local int calls = 0;
thread_local int refuse_from = kNever;
thread_local int refuse_until = kNever;

bool refuses() {
  const int call = calls++;
  return call >= refuse_from && call < refuse_until;
}

}  // namespace

void begin(int from, int until) {
  calls = 0;
  refuse_from = from;
  refuse_until = until;
}

int end() {
  refuse_from = refuse_until = kNever;
  return calls;
}

}  // namespace failing_malloc

extern "C" {
void* __wrap_malloc(size_t size) {
  return failing_malloc::refuses() ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(size_t count, size_t size) {
  return failing_malloc::refuses() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* block, size_t size) {
  return failing_malloc::refuses() ? nullptr : __real_realloc(block, size);
}
}
