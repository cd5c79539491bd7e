// Other programs' formats and stores, as far as they were there at build time: each adds its sides,
// and what is claimed of them, to a workload.
#ifndef BENCH_PEERS_PEERS_H
#define BENCH_PEERS_PEERS_H

#include <cstdint>

#include "bench/harness.h"
#include "qim.h"

namespace bench::peers {

// Looking a value of kRawBytes up by its number, among so many.
void add_lookups(uint32_t values, Workload* workload);
// The node's message, decoded and given back, and encoded. Only Filter, Hfilter and Police.
void add_decoders(const qim_node_t& node, Workload* workload);
void add_encoders(const qim_node_t& node, Workload* workload);
// Ends what was started.
void drop();

// Each peer's own part; only those that were there are built.
namespace sqlite {
void add_lookups(uint32_t values, Workload* workload);
void drop();
}  // namespace sqlite
namespace redis {
void add_lookups(uint32_t values, Workload* workload);
void drop();
}  // namespace redis
namespace protobuf {
void add_decoders(const qim_node_t& node, Workload* workload);
void add_encoders(const qim_node_t& node, Workload* workload);
}  // namespace protobuf
namespace nanopb {
void add_decoders(const qim_node_t& node, Workload* workload);
void add_encoders(const qim_node_t& node, Workload* workload);
}  // namespace nanopb
namespace flatbuffers {
void add_decoders(const qim_node_t& node, Workload* workload);
void add_encoders(const qim_node_t& node, Workload* workload);
}  // namespace flatbuffers
namespace nftnl {
void add_decoders(const qim_node_t& node, Workload* workload);
void add_encoders(const qim_node_t& node, Workload* workload);
}  // namespace nftnl

// Ends the program with a message unless `ok`.
void check(bool ok, const char* peer, const char* what);

}  // namespace bench::peers

#endif
