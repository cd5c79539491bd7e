// SipHash-2-4 with 128 bits.
#include "policy/base/siphash.h"

#include <bit>
#include <cstring>
#include <random>

namespace qimctl {

namespace {

constexpr size_t word_size = 8;

// A word whose first byte is the lowest.
uint64_t load(const char* bytes) {
  uint64_t word = 0;
  if constexpr (std::endian::native == std::endian::little) {
    memcpy(&word, bytes, word_size);
  } else {
    for (size_t i = word_size; i-- > 0;) word = word << 8 | static_cast<unsigned char>(bytes[i]);
  }
  return word;
}

uint64_t load(const uint8_t* bytes) {
  return load(reinterpret_cast<const char*>(bytes));
}

struct State {
  uint64_t a, b, c, d;

  void mix() {
    a += b;
    c += d;
    b = std::rotl(b, 13) ^ a;
    d = std::rotl(d, 16) ^ c;
    a = std::rotl(a, 32);
    c += b;
    a += d;
    b = std::rotl(b, 17) ^ c;
    d = std::rotl(d, 21) ^ a;
    c = std::rotl(c, 32);
  }

  void take(uint64_t word) {
    d ^= word;
    mix();
    mix();
    a ^= word;
  }

  void finish(uint8_t* half) {
    for (int i = 0; i < 4; i++) mix();
    const uint64_t word = a ^ b ^ c ^ d;
    for (size_t i = 0; i < word_size; i++) half[i] = static_cast<uint8_t>(word >> (8 * i));
  }
};

}  // namespace

DigestKey random_key() {
  std::random_device source;
  DigestKey key;
  for (uint8_t& byte : key) byte = static_cast<uint8_t>(source());
  return key;
}

Digest digest_of(const DigestKey& key, std::string_view text) {
  const uint64_t first = load(key.data());
  const uint64_t second = load(key.data() + word_size);
  State state{first ^ 0x736f6d6570736575, second ^ 0x646f72616e646f6d ^ 0xee,
              first ^ 0x6c7967656e657261, second ^ 0x7465646279746573};
  const auto length = uint64_t{text.size()};
  for (; text.size() >= word_size; text.remove_prefix(word_size)) state.take(load(text.data()));
  uint64_t last = length << 56;
  for (size_t i = 0; i < text.size(); i++)
    last |= uint64_t{static_cast<unsigned char>(text[i])} << (8 * i);
  state.take(last);
  Digest digest;
  state.c ^= 0xee;
  state.finish(digest.data());
  state.b ^= 0xdd;
  state.finish(digest.data() + word_size);
  return digest;
}

}  // namespace qimctl
