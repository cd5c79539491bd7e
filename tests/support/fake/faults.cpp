#include "faults.h"

#include <pthread.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <set>

namespace fake {
namespace {

struct Fault {
  unsigned calls = 0;
  unsigned fail_at = 0;  // number of the call that fails, 0 = none
  bool every = false;
};

struct Faults {
  std::mutex mutex;
  std::array<Fault, 5> of;
  std::set<void*> blocks;
  std::size_t last_size = 0;
  unsigned frees = 0;
};

Faults& faults() {
  static Faults* const instance = new Faults;
  return *instance;
}

Fault& fault(System function) {
  return faults().of[static_cast<std::size_t>(function)];
}

}  // namespace

bool system_call_fails(System function) {
  const std::lock_guard lock(faults().mutex);
  Fault& f = fault(function);
  return ++f.calls == f.fail_at || f.every;
}

void* keep_system_block(void* block, std::size_t size) {
  const std::lock_guard lock(faults().mutex);
  faults().last_size = size;
  if (block != nullptr) faults().blocks.insert(block);
  return block;
}

void forget_system_block(void* block) {
  const std::lock_guard lock(faults().mutex);
  faults().blocks.erase(block);
  ++faults().frees;
}

void fail_system(System function, unsigned nth) {
  const std::lock_guard lock(faults().mutex);
  fault(function).fail_at = fault(function).calls + nth;
}

void fail_system_every(System function) {
  const std::lock_guard lock(faults().mutex);
  fault(function).every = true;
}

unsigned system_calls(System function) {
  const std::lock_guard lock(faults().mutex);
  return fault(function).calls;
}

std::size_t last_system_size() {
  const std::lock_guard lock(faults().mutex);
  return faults().last_size;
}

std::size_t system_blocks() {
  const std::lock_guard lock(faults().mutex);
  return faults().blocks.size();
}

unsigned system_frees() {
  const std::lock_guard lock(faults().mutex);
  return faults().frees;
}

void reset_system() {
  const std::lock_guard lock(faults().mutex);
  faults().of = {};
  faults().blocks.clear();
  faults().last_size = 0;
  faults().frees = 0;
}

}  // namespace fake

using fake::System;

// The names are the linker's: a reference to f goes to __wrap_f, and __real_f is the original.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void __real_free(void* block);
int __real_pthread_once(pthread_once_t* once, void (*routine)(void));
int __real_pthread_key_create(pthread_key_t* key, void (*destructor)(void*));
int __real_pthread_setspecific(pthread_key_t key, const void* value);

void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void __wrap_free(void* block);
int __wrap_pthread_once(pthread_once_t* once, void (*routine)(void));
int __wrap_pthread_key_create(pthread_key_t* key, void (*destructor)(void*));
int __wrap_pthread_setspecific(pthread_key_t key, const void* value);

void* __wrap_malloc(size_t size) {
  if (fake::system_call_fails(System::malloc)) return nullptr;
  return fake::keep_system_block(__real_malloc(size), size);
}

void* __wrap_calloc(size_t count, size_t size) {
  if (fake::system_call_fails(System::calloc)) return nullptr;
  return fake::keep_system_block(__real_calloc(count, size), count * size);
}

void __wrap_free(void* block) {
  fake::forget_system_block(block);
  __real_free(block);
}

int __wrap_pthread_once(pthread_once_t* once, void (*routine)(void)) {
  if (fake::system_call_fails(System::pthread_once)) return ENOMEM;
  return __real_pthread_once(once, routine);
}

int __wrap_pthread_key_create(pthread_key_t* key, void (*destructor)(void*)) {
  if (fake::system_call_fails(System::pthread_key_create)) return ENOMEM;
  return __real_pthread_key_create(key, destructor);
}

int __wrap_pthread_setspecific(pthread_key_t key, const void* value) {
  if (fake::system_call_fails(System::pthread_setspecific)) return ENOMEM;
  return __real_pthread_setspecific(key, value);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
