// Files of captured packets: pcap in either byte order, with times in micro- or nanoseconds.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "policy/trace/packet_bytes.h"

namespace qimctl {

struct CapturedFrame {
  std::span<const uint8_t> bytes;
  FrameKind kind = FrameKind::ethernet;
  bool is_cut = false;  // it was longer than what was captured
};

// Calls `visit` with each frame of a file's contents. Throws InputError for what is no such file, or
// ends in the middle of a frame; the frames before that are visited. `file` names it in the error.
void read_capture(std::span<const uint8_t> contents, const std::string& file,
                  const std::function<void(const CapturedFrame&)>& visit);

}  // namespace qimctl
