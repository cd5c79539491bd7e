// Reading files of captured packets.
#include "policy/trace/capture.h"

#include "policy/base/policy.h"

namespace qimctl {

namespace {

// The file's head: magic number, version, time zone, accuracy, longest frame, kind of link.
constexpr size_t head_size = 24;
// A frame's: seconds, their fraction, bytes captured, bytes there were.
constexpr size_t frame_head_size = 16;

constexpr uint32_t magic_micro = 0xa1b2c3d4;
constexpr uint32_t magic_nano = 0xa1b23c4d;
// What a file of the newer format begins with, in either byte order.
constexpr uint32_t magic_blocks = 0x0a0d0d0a;
constexpr uint32_t link_ethernet = 1;
constexpr uint32_t link_raw = 101;
constexpr uint32_t link_ipv4 = 228;
constexpr uint32_t link_ipv6 = 229;

[[noreturn]] void fail(const std::string& file, const std::string& what) {
  throw InputError(Place{file, 0, ""}, what);
}

class Numbers {
 public:
  Numbers(std::span<const uint8_t> bytes, bool big) : bytes_(bytes), big_(big) {}

  uint32_t at(size_t offset) const {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; i++) value = value << 8 | bytes_[offset + (big_ ? i : 3 - i)];
    return value;
  }

 private:
  std::span<const uint8_t> bytes_;
  bool big_;
};

bool is_magic(uint32_t number) {
  return number == magic_micro || number == magic_nano;
}

}  // namespace

void read_capture(std::span<const uint8_t> contents, const std::string& file,
                  const std::function<void(const CapturedFrame&)>& visit) {
  const bool whole = contents.size() >= head_size;
  const bool big = whole && is_magic(Numbers(contents, true).at(0));
  const Numbers numbers(contents, big);
  if (contents.size() >= 4 && Numbers(contents, true).at(0) == magic_blocks)
    fail(file, "is a capture in pcapng format; 'editcap -F pcap OLD NEW' makes one in pcap format");
  if (!whole || !is_magic(numbers.at(0)))
    fail(file, "is no capture in pcap format; 'tcpdump -w' and 'editcap -F pcap' write such files");
  const uint32_t link = numbers.at(20) & 0xffff;
  if (link != link_ethernet && link != link_raw && link != link_ipv4 && link != link_ipv6)
    fail(file, "holds frames of link type " + std::to_string(link) +
                   ", but only Ethernet (1) and IP (101, 228, 229) can be read");
  const FrameKind kind = link == link_ethernet ? FrameKind::ethernet : FrameKind::ip;
  size_t at = head_size;
  while (at < contents.size()) {
    const size_t left = contents.size() - at;
    const uint32_t captured = left < frame_head_size ? 0 : numbers.at(at + 8);
    if (left < frame_head_size || left - frame_head_size < captured)
      fail(file, "ends in the middle of a frame; what was before it is counted");
    const uint32_t length = numbers.at(at + 12);
    visit({contents.subspan(at + frame_head_size, captured), kind, captured < length});
    at += frame_head_size + captured;
  }
}

}  // namespace qimctl
