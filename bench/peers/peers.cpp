#include "bench/peers/peers.h"

#include <cstdio>
#include <cstdlib>

namespace bench::peers {

void check(bool ok, const char* peer, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "bench: %s cannot %s\n", peer, what);
  std::exit(1);
}

void add_lookups([[maybe_unused]] uint32_t values, [[maybe_unused]] Workload* workload) {
#ifdef BENCH_SQLITE
  sqlite::add_lookups(values, workload);
#endif
#ifdef BENCH_REDIS
  redis::add_lookups(values, workload);
#endif
}

void add_decoders([[maybe_unused]] const qim_node_t& node, [[maybe_unused]] Workload* workload) {
#ifdef BENCH_PROTOBUF
  protobuf::add_decoders(node, workload);
#endif
#ifdef BENCH_NANOPB
  nanopb::add_decoders(node, workload);
#endif
#ifdef BENCH_FLATBUFFERS
  flatbuffers::add_decoders(node, workload);
#endif
#ifdef BENCH_NFTNL
  nftnl::add_decoders(node, workload);
#endif
}

void add_encoders([[maybe_unused]] const qim_node_t& node, [[maybe_unused]] Workload* workload) {
#ifdef BENCH_PROTOBUF
  protobuf::add_encoders(node, workload);
#endif
#ifdef BENCH_NANOPB
  nanopb::add_encoders(node, workload);
#endif
#ifdef BENCH_FLATBUFFERS
  flatbuffers::add_encoders(node, workload);
#endif
#ifdef BENCH_NFTNL
  nftnl::add_encoders(node, workload);
#endif
}

void drop() {
#ifdef BENCH_SQLITE
  sqlite::drop();
#endif
#ifdef BENCH_REDIS
  redis::drop();
#endif
}

}  // namespace bench::peers
