// Frames of every kind, with values that lists ask for, and at the edges of what headers can hold.
#ifndef TESTS_SYSTEM_ENFORCE_FRAMES_H
#define TESTS_SYSTEM_ENFORCE_FRAMES_H

#include <cstdint>
#include <vector>

#include "tests/database/random.h"

namespace frames {

using testing_rov::Random;
using Bytes = std::vector<uint8_t>;

struct Frame {
  Bytes bytes;
  // Lengths that are wrong, more headers or tags than the kernel looks at: what is behind them may be
  // open to it.
  bool is_odd = false;
};

// `tags` is how many tags a frame has at most. `deep`: for lists that ask for TCP options and what
// follows the ICMP checksum.
Frame random_frame(Random& random, uint32_t tags, bool deep);

// What lists and frames have in common, so that they meet.
uint8_t some_u8(Random& random);
uint16_t some_port(Random& random);
Bytes some_ipv4(Random& random);
Bytes some_ipv6(Random& random);
Bytes some_mac(Random& random);
uint16_t some_ethertype(Random& random);
uint8_t some_protocol(Random& random);

}  // namespace frames

#endif
