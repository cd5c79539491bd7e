// Looking at eight bytes of a text at once, where most texts have nothing special in them. Each says of the
// eight whether one of them may be special; some say so of a byte whose neighbour is, never the reverse.
// (H. S. Warren, Hacker's Delight, section 6-1.)
#pragma once

#include <cstdint>
#include <cstring>

namespace qimctl {

class EightBytes {
 public:
  static constexpr size_t size = 8;

  explicit EightBytes(const char* text) { memcpy(&word_, text, sizeof(word_)); }

  bool may_have(unsigned char byte) const { return has_zero(word_ ^ ones * byte); }
  // `limit` = 128 at most.
  bool may_have_below(unsigned char limit) const {
    return ((word_ - ones * limit) & ~word_ & highs) != 0;
  }
  bool is_ascii() const { return (word_ & highs) == 0; }

 private:
  static constexpr uint64_t ones = 0x0101010101010101;
  static constexpr uint64_t highs = 0x8080808080808080;

  static bool has_zero(uint64_t word) { return ((word - ones) & ~word & highs) != 0; }

  uint64_t word_;
};

}  // namespace qimctl
