// The TLV data of three record kinds, decoded and encoded by code that was written for them alone:
// the floor under the codec, which is driven by tables.
#ifndef BENCH_HAND_CODEC_H
#define BENCH_HAND_CODEC_H

#include <cstdint>

#include "qim.h"

namespace bench {

// Decodes a node whose body is a Hfilter, Police or Filter into a zeroed record. Lengths are
// checked; unknown attributes are skipped. False when the data are damaged. A filter's criteria and
// their arguments come from malloc.
bool hand_decode(const uint8_t* tlv, uint32_t len, qim_node_t* node);
void hand_free(qim_node_t* node);

// Encodes such a node into `room` bytes; 0 when there is no room, else the bytes written.
uint32_t hand_encode(const qim_node_t* node, uint8_t* to, uint32_t room);

}  // namespace bench

#endif
