// Packets from the bytes of a frame.
#pragma once

#include <cstdint>
#include <span>

#include "policy/trace/packet.h"

namespace qimctl {

// What a frame begins with.
enum class FrameKind {
  ethernet,
  ip,  // an IPv4 or IPv6 header, without Ethernet
};

// Takes a frame apart: Ethernet with its tags, IPv4 with options, IPv6 with extension headers, TCP,
// UDP, ICMP and ICMPv6. Everything is known afterwards; a header that is not whole, or whose lengths
// can't be, is one that the packet does not have, and so is that of the payload in any fragment but
// the first. `is_cut` says that the frame went on: what would lie there is not known then.
Packet packet_from_bytes(std::span<const uint8_t> frame, FrameKind kind, bool is_cut = false);

}  // namespace qimctl
