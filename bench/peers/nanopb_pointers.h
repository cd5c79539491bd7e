// The same messages with fields from malloc: nanopb gives both forms the same names, so each is
// known to a file of its own.
#ifndef BENCH_PEERS_NANOPB_POINTERS_H
#define BENCH_PEERS_NANOPB_POINTERS_H

#include <cstddef>
#include <cstdint>

namespace bench::peers::nanopb {

// Decodes a node and gives it back.
bool decode_with_pointers(const uint8_t* bytes, size_t len);

}  // namespace bench::peers::nanopb

#endif
