// What a fleet costs, beside what the store costs by itself: a table for docs/performance.md.
//
//   bench_fleet [DEVICES [ENTRIES [PUSHES]]]     no devices: without what is measured of many
//   bench_fleet --reconnect [CLIENTS [SECONDS]]  only how soon clients come back that were cut off at once,
//                                                each call of which may take so long
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "bench/fleet/measure.h"

namespace {

size_t number_of(int argc, char** argv, int at, size_t otherwise) {
  return argc > at ? strtoul(argv[at], nullptr, 10) : otherwise;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace fleet_bench;
  try {
    if (argc == 4 && std::string(argv[1]) == "--apply") {
      write_alone(argv[2], argv[3]);
      return 0;
    }
    printf("| what | ours | beside it | ratio | goal |\n|---|---|---|---|---|\n");
    if (argc > 1 && std::string(argv[1]) == "--reconnect") {
      measure_reconnect(number_of(argc, argv, 2, 1000), number_of(argc, argv, 3, 5));
      return 0;
    }
    fleet_test::Cluster cluster;
    {
      Fleet fleet(cluster);
      measure_push(fleet, static_cast<int>(number_of(argc, argv, 3, 300)));
    }
    {
      fleet_test::Cluster other;
      Fleet fleet(other);
      measure_first_sync(fleet, number_of(argc, argv, 2, 100000));
    }
    const size_t devices = number_of(argc, argv, 1, 200);
    if (devices == 0) return 0;
    fleet_test::Cluster third;
    Fleet fleet(third);
    measure_spread(fleet, third, static_cast<int>(devices));
    measure_reconnect(1000, 5);
    return 0;
  } catch (const std::exception& error) {
    fprintf(stderr, "bench_fleet: %s\n", error.what());
    return 1;
  }
}
