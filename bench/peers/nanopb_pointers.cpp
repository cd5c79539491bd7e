#include "bench/peers/nanopb_pointers.h"

#include <benchmark/benchmark.h>
#include <pb_decode.h>

#include "bench/peers/nanopb_malloc/policy_malloc.pb.h"

namespace bench::peers::nanopb {

bool decode_with_pointers(const uint8_t* bytes, size_t len) {
  bench_pbm_Node message = bench_pbm_Node_init_zero;
  pb_istream_t stream = pb_istream_from_buffer(bytes, len);
  const bool done = pb_decode(&stream, bench_pbm_Node_fields, &message);
  benchmark::DoNotOptimize(message);
  pb_release(bench_pbm_Node_fields, &message);
  return done;
}

}  // namespace bench::peers::nanopb
