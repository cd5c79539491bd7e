// Frames, from the outer headers to the inner.
#include "tests/system/enforce/frames.h"

#include <array>

namespace frames {

namespace {

template <typename T, size_t count>
T one_of(Random& random, const std::array<T, count>& all) {
  return all[random.below(count)];
}

void put(Bytes& to, uint64_t value, uint32_t width) {
  for (uint32_t i = width; i-- > 0;) to.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

void append(Bytes& to, const Bytes& more) {
  to.insert(to.end(), more.begin(), more.end());
}

bool one_in(Random& random, uint32_t count) {
  return random.below(count) == 0;
}

Bytes noise(Random& random, uint32_t count) {
  Bytes bytes;
  for (uint32_t i = 0; i < count; i++) bytes.push_back(static_cast<uint8_t>(random()));
  return bytes;
}

Bytes tcp(Random& random) {
  Bytes bytes;
  put(bytes, some_port(random), 2);
  put(bytes, some_port(random), 2);
  put(bytes, some_u8(random), 4);
  put(bytes, some_u8(random), 4);
  const uint32_t words = one_in(random, 4) ? random.below(16) : 5;
  put(bytes, words << 4 | (one_in(random, 4) ? random.below(16) : 0), 1);
  put(bytes, one_in(random, 3) ? random.below(256) : one_of<uint8_t, 4>(random, {2, 16, 18, 4}), 1);
  put(bytes, some_u8(random), 2);
  put(bytes, random(), 2);
  put(bytes, some_u8(random), 2);
  if (words > 5)
    append(bytes,
           one_in(random, 2) ? Bytes(4 * size_t{words} - 20, 1) : noise(random, 4 * words - 20));
  return bytes;
}

Bytes udp(Random& random) {
  Bytes bytes;
  put(bytes, some_port(random), 2);
  put(bytes, some_port(random), 2);
  put(bytes, one_in(random, 2) ? 8 : some_u8(random), 2);
  put(bytes, random(), 2);
  return bytes;
}

Bytes icmp(Random& random) {
  Bytes bytes{some_u8(random), some_u8(random)};
  put(bytes, random(), 2);
  append(bytes,
         one_in(random, 2) ? Bytes(4, 0) : noise(random, one_in(random, 3) ? random.below(4) : 4));
  if (one_in(random, 2)) append(bytes, Bytes(8, 0));
  return bytes;
}

// What a protocol number stands for; of some packets less than a whole header.
Bytes payload_of(Random& random, uint8_t protocol, bool deep, bool& is_odd) {
  Bytes bytes;
  if (protocol == 6) bytes = tcp(random);
  if (protocol == 17) bytes = udp(random);
  if (protocol == 1 || protocol == 58) bytes = icmp(random);
  if (one_in(random, 12)) {
    bytes.resize(random.below(static_cast<uint32_t>(bytes.size()) + 1));
  } else {
    append(bytes, noise(random, random.below(24)));
  }
  // Less than lists ask for that look so deep.
  if (deep && protocol == 6 && bytes.size() >= 20 && bytes.size() < size_t{4} * (bytes[12] >> 4))
    is_odd = true;
  if (deep && (protocol == 1 || protocol == 58) && bytes.size() < 16) is_odd = true;
  return bytes;
}

Bytes ipv4(Random& random, bool deep, bool& is_odd) {
  const uint8_t protocol = some_protocol(random);
  const uint32_t words = one_in(random, 5) ? 5 + random.below(11) : 5;
  Bytes payload = payload_of(random, protocol, deep, is_odd);
  uint32_t length = 4 * words + static_cast<uint32_t>(payload.size());
  const bool is_wrong = one_in(random, 20);
  if (is_wrong) {
    is_odd = true;
    length = one_of<uint32_t, 4>(random, {0, 4 * words, length + 1, 65535});
  }
  Bytes bytes;
  const bool is_strange = one_in(random, 40);
  if (is_strange) is_odd = true;
  put(bytes, is_strange ? random.below(256) : 0x40 + words, 1);
  put(bytes, some_u8(random), 1);
  put(bytes, length, 2);
  put(bytes, some_u8(random), 2);
  const uint32_t flags = one_of<uint32_t, 4>(random, {0, 2, 1, 4});
  const uint32_t offset = one_in(random, 8) ? one_of<uint32_t, 3>(random, {1, 5, 0x1fff}) : 0;
  put(bytes, flags << 13 | offset, 2);
  put(bytes, some_u8(random), 1);
  put(bytes, protocol, 1);
  put(bytes, random(), 2);
  append(bytes, some_ipv4(random));
  append(bytes, some_ipv4(random));
  append(bytes, noise(random, 4 * words - 20));
  append(bytes, payload);
  return bytes;
}

// An extension header with what is behind it.
Bytes extension(Random& random, uint8_t kind, uint8_t next, bool& is_odd) {
  Bytes bytes{next};
  if (kind == 44) {
    const uint32_t offset = one_in(random, 2) ? 0 : one_of<uint32_t, 3>(random, {1, 3, 0x1fff});
    bytes.push_back(static_cast<uint8_t>(random()));
    put(bytes, offset << 3 | random.below(8), 2);
    put(bytes, random(), 4);
    return bytes;
  }
  const uint32_t length = one_in(random, 10) ? random.below(40) : random.below(4);
  if (length >= 16) is_odd = true;
  bytes.push_back(static_cast<uint8_t>(length));
  append(bytes, noise(random, kind == 51 ? 6 + 4 * length : 6 + 8 * length));
  return bytes;
}

Bytes ipv6(Random& random, bool deep, bool& is_odd) {
  static constexpr std::array<uint8_t, 8> extensions{0, 43, 44, 51, 60, 60, 44, 135};
  const uint8_t protocol = some_protocol(random);
  uint32_t count = one_in(random, 3) ? 1 : 0;
  if (one_in(random, 20)) count = 2 + random.below(2);
  if (count > 1 || (deep && count == 1)) is_odd = true;
  std::vector<uint8_t> chain;
  for (uint32_t i = 0; i < count; i++) chain.push_back(one_of(random, extensions));
  chain.push_back(protocol);
  Bytes payload;
  for (uint32_t i = 0; i < count; i++) {
    if (chain[i] == 135 || chain[i] == 51) is_odd = true;
    append(payload, extension(random, chain[i], chain[i + 1], is_odd));
  }
  // What looks like one more extension header.
  for (const uint32_t each : {0u, 43u, 44u, 51u, 60u, 135u, 139u, 140u})
    if (protocol == each) is_odd = true;
  append(payload, payload_of(random, protocol, deep, is_odd));
  auto length = static_cast<uint32_t>(payload.size());
  if (one_in(random, 20)) {
    is_odd = true;
    length = one_of<uint32_t, 4>(random, {0, length / 2, length + 1, 65535});
  }
  // Without a length a packet may be of any, or have nothing behind its header.
  if (length == 0) is_odd = true;
  Bytes bytes;
  const uint32_t version = one_in(random, 40) ? random.below(16) : 6;
  if (version != 6) is_odd = true;
  put(bytes, version << 28 | uint32_t{some_u8(random)} << 20 | some_u8(random), 4);
  put(bytes, length, 2);
  put(bytes, chain[0], 1);
  put(bytes, some_u8(random), 1);
  append(bytes, some_ipv6(random));
  append(bytes, some_ipv6(random));
  append(bytes, payload);
  return bytes;
}

}  // namespace

uint8_t some_u8(Random& random) {
  return one_of<uint8_t, 8>(random, {0, 1, 2, 8, 64, 0xb8, 254, 255});
}

uint16_t some_port(Random& random) {
  return one_of<uint16_t, 9>(random, {0, 1, 22, 53, 80, 1023, 1024, 8080, 65535});
}

Bytes some_ipv4(Random& random) {
  static constexpr std::array<std::array<uint8_t, 3>, 4> networks{
      {{10, 0, 0}, {10, 0, 1}, {192, 0, 2}, {255, 255, 255}}};
  const auto& network = one_of(random, networks);
  return {network[0], network[1], network[2], one_of<uint8_t, 5>(random, {0, 1, 2, 128, 255})};
}

Bytes some_ipv6(Random& random) {
  Bytes bytes{0x20, 0x01, 0x0d, 0xb8};
  put(bytes, random.below(2), 4);
  put(bytes, one_of<uint64_t, 3>(random, {0, 1, uint64_t{1} << 63}), 8);
  if (one_in(random, 8)) bytes.assign(16, one_in(random, 2) ? 0 : 0xff);
  return bytes;
}

Bytes some_mac(Random& random) {
  Bytes bytes{0x02, 0, 0x5e, 0, 0};
  bytes.push_back(one_of<uint8_t, 4>(random, {0, 1, 2, 255}));
  if (one_in(random, 8)) bytes.assign(6, 0xff);
  return bytes;
}

uint16_t some_ethertype(Random& random) {
  return one_of<uint16_t, 9>(random,
                             {0x0800, 0x86dd, 0x0806, 0x8100, 0x88a8, 0x88cc, 46, 0x600, 0xffff});
}

uint8_t some_protocol(Random& random) {
  if (random.below(6) == 0) return static_cast<uint8_t>(random());
  return one_of<uint8_t, 7>(random, {1, 6, 6, 17, 17, 58, 47});
}

Frame random_frame(Random& random, uint32_t most_tags, bool deep) {
  Frame frame;
  append(frame.bytes, some_mac(random));
  append(frame.bytes, some_mac(random));
  uint32_t tags = one_in(random, 4) ? 1 : one_in(random, 20) ? 2 + random.below(2) : 0;
  if (tags > most_tags) tags = most_tags;
  if (tags > 1) frame.is_odd = true;
  for (uint32_t i = 0; i < tags; i++) {
    put(frame.bytes, one_in(random, 3) ? 0x88a8 : 0x8100, 2);
    put(frame.bytes, random.below(0x10000), 2);
  }
  const uint32_t kind = random.below(10);
  if (kind < 5) {
    put(frame.bytes, 0x0800, 2);
    append(frame.bytes, ipv4(random, deep, frame.is_odd));
  } else if (kind < 9) {
    put(frame.bytes, 0x86dd, 2);
    append(frame.bytes, ipv6(random, deep, frame.is_odd));
  } else {
    put(frame.bytes, 0x0806 + random.below(3) * 0x1000, 2);
    append(frame.bytes, noise(random, 20 + random.below(40)));
  }
  if (one_in(random, 3)) frame.bytes.resize(frame.bytes.size() + random.below(30));
  if (one_in(random, 25)) {
    frame.is_odd = true;
    const size_t least = 14 + 4 * size_t{tags} + 2;
    const auto room = static_cast<uint32_t>(frame.bytes.size() - least);
    frame.bytes.resize(least + random.below(room));
  }
  return frame;
}

}  // namespace frames
