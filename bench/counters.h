// What the processor counted of this thread's work, where it does and lets us see it.
#ifndef BENCH_COUNTERS_H
#define BENCH_COUNTERS_H

#include <cstdint>

namespace bench {

struct Counted {
  bool known = false;
  uint64_t instructions = 0;  // of this program's own, not the system's
  uint64_t cache_misses = 0;
};

class Counters {
 public:
  Counters();
  ~Counters();
  Counters(const Counters&) = delete;
  Counters& operator=(const Counters&) = delete;

  void start();
  Counted stop();

 private:
  int instructions_ = -1;  // descriptors, as perf_event_open(2) gives them
  int cache_misses_ = -1;
};

}  // namespace bench

#endif
