// What is measured, by subject.
#ifndef BENCH_WORKLOADS_H
#define BENCH_WORKLOADS_H

#include "bench/harness.h"

namespace bench {

// Databases of these numbers of nodes.
struct Sizes {
  uint32_t small;
  uint32_t middle;
  uint32_t large;  // 0: none
};
Sizes sizes_of(const Options& options);
// "1k", "100k", "1M".
std::string size_text(uint32_t nodes);

void run_reads(Harness& harness);
void run_codec(Harness& harness);
void run_links(Harness& harness);
void run_referrers(Harness& harness);
void run_edests(Harness& harness);
void run_sessions(Harness& harness);
void run_writes(Harness& harness);
// Last: it gives every thread a context of its own for good.
void run_parallel(Harness& harness, const char* program);

// Reads nodes of a database until its standard input ends: what another process does meanwhile.
int read_meanwhile(const char* path, uint32_t nodes);

}  // namespace bench

#endif
