// Packets in words, frames and captures: either a packet that words say again, or what is wrong with it.
#include <string>

#include "policy/base/policy.h"
#include "policy/trace/capture.h"
#include "policy/trace/packet_words.h"
#include "tests/fuzz/targets.h"

namespace fuzz {
namespace {

// Words say what they can of a packet, and the same of what is read from them.
void said_again(const qimctl::Packet& packet) {
  qimctl::packet_summary(packet);
  const std::string words = qimctl::packet_words(packet);
  try {
    const std::string again = qimctl::packet_words(qimctl::packet_from_words(words));
    require(again == words, "a packet in words is read again the same");
  } catch (const qimctl::PacketError&) {
    require(false, "what words say of a packet can be read");
  }
}

}  // namespace

void words(const uint8_t* bytes, size_t size) {
  try {
    said_again(qimctl::packet_from_words(std::string(reinterpret_cast<const char*>(bytes), size)));
  } catch (const qimctl::PacketError& error) {
    require(error.what()[0] != 0, "a packet that is refused has a reason");
  }
}

// Whether it was cut, then the frame.
void frame(const uint8_t* bytes, size_t size) {
  if (size == 0) return;
  const std::span<const uint8_t> rest(bytes + 1, size - 1);
  const auto kind = (bytes[0] & 2) != 0 ? qimctl::FrameKind::ip : qimctl::FrameKind::ethernet;
  qimctl::packet_words(qimctl::packet_from_bytes(rest, kind, (bytes[0] & 1) != 0));
}

void capture(const uint8_t* bytes, size_t size) {
  size_t seen = 0;
  try {
    qimctl::read_capture({bytes, size}, "file", [&](const qimctl::CapturedFrame& one) {
      require(one.bytes.data() >= bytes && one.bytes.data() + one.bytes.size() <= bytes + size,
              "a frame lies in the file");
      seen += one.bytes.size();
      qimctl::packet_from_bytes(one.bytes, one.kind, one.is_cut);
    });
  } catch (const qimctl::InputError& error) {
    require(!error.problems().empty(), "a refused capture has a problem");
  }
  require(seen <= size, "no more is read than there is");
}

}  // namespace fuzz
