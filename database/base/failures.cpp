// The failures that a thread remembers. They lie in pages of their own, which a thread has from its
// first failure to its end: the memory that each thread has from its start on is scarce for a library
// that is loaded while a program runs, and the heap may be what there is none left of.
#include "database/base/failures.h"

#include <pthread.h>
#include <sys/mman.h>

#include <atomic>

namespace rov {

namespace {

constexpr uint32_t kKept = 16;

struct Failures {
  uint32_t count;       // of all that the thread has had
  Failure kept[kKept];  // the newest at count % kKept
};

constinit thread_local Failures* t_failures = nullptr;
constinit thread_local uint32_t t_unkept = 0;

// For one thread that gets no pages.
constinit Failures g_spare = {};
constinit std::atomic<bool> g_spare_taken{false};

pthread_once_t g_once = PTHREAD_ONCE_INIT;
pthread_key_t g_key;
bool g_key_made = false;

void release(Failures* failures) {
  if (failures != &g_spare) {
    munmap(failures, sizeof *failures);
    return;
  }
  g_spare = {};
  g_spare_taken.store(false, std::memory_order_release);
}

void forget(void* failures) {
  release(static_cast<Failures*>(failures));
  t_failures = nullptr;
}

void make_key() {
  g_key_made = pthread_key_create(&g_key, forget) == 0;
}

// NULL when there are none, and the spare ones are taken.
Failures* take_pages() {
  void* pages =
      mmap(nullptr, sizeof(Failures), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages != MAP_FAILED) return static_cast<Failures*>(pages);
  return g_spare_taken.exchange(true, std::memory_order_acquire) ? nullptr : &g_spare;
}

// A thread that could not be told to give them back at its end gets none.
Failures* new_failures() {
  pthread_once(&g_once, make_key);
  Failures* failures = g_key_made ? take_pages() : nullptr;
  if (failures == nullptr || pthread_setspecific(g_key, failures) == 0) return failures;
  release(failures);
  return nullptr;
}

}  // namespace

Failure* next_failure(uint32_t status, Note note) {
  if (t_failures == nullptr) t_failures = new_failures();
  t_unkept = t_failures == nullptr ? status : 0;
  if (t_failures == nullptr) return nullptr;
  Failure& failure = t_failures->kept[++t_failures->count % kKept];
  failure.status = status;
  failure.note = note;
  return &failure;
}

Failure* find_failure(uint32_t* number) {
  if (t_failures == nullptr) return nullptr;
  const uint32_t newest = t_failures->count;
  const uint32_t wanted = *number == 0 ? newest : *number;
  if (wanted > newest || newest - wanted >= kKept) return nullptr;
  *number = wanted;
  return &t_failures->kept[wanted % kKept];
}

uint32_t unkept_failure() {
  return t_unkept;
}

}  // namespace rov
