// What the processor counts, asked of the system by perf_event_open(2).
#include "bench/counters.h"

#include <linux/perf_event.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <initializer_list>

namespace bench {
namespace {

int open_counter(uint64_t what) {
  perf_event_attr asked = {};
  asked.type = PERF_TYPE_HARDWARE;
  asked.size = sizeof asked;
  asked.config = what;
  asked.disabled = 1;
  asked.exclude_kernel = 1;
  asked.exclude_hv = 1;
  return static_cast<int>(syscall(SYS_perf_event_open, &asked, 0, -1, -1, PERF_FLAG_FD_CLOEXEC));
}

bool read_counter(int descriptor, uint64_t* value) {
  return read(descriptor, value, sizeof *value) == sizeof *value;
}

}  // namespace

Counters::Counters()
    : instructions_(open_counter(PERF_COUNT_HW_INSTRUCTIONS)),
      cache_misses_(open_counter(PERF_COUNT_HW_CACHE_MISSES)) {}

Counters::~Counters() {
  for (const int descriptor : {instructions_, cache_misses_}) {
    if (descriptor >= 0) close(descriptor);
  }
}

void Counters::start() {
  for (const int descriptor : {instructions_, cache_misses_}) {
    if (descriptor < 0) continue;
    ioctl(descriptor, PERF_EVENT_IOC_RESET, 0);
    ioctl(descriptor, PERF_EVENT_IOC_ENABLE, 0);
  }
}

Counted Counters::stop() {
  Counted counted;
  for (const int descriptor : {instructions_, cache_misses_}) {
    if (descriptor >= 0) ioctl(descriptor, PERF_EVENT_IOC_DISABLE, 0);
  }
  counted.known = instructions_ >= 0 && cache_misses_ >= 0 &&
                  read_counter(instructions_, &counted.instructions) &&
                  read_counter(cache_misses_, &counted.cache_misses);
  return counted;
}

}  // namespace bench
