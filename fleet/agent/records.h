// What a device remembers: of the content of its database in a mark there, which is written with the
// content in one commit, and of the fleet in a file.
#pragma once

#include <cstdint>
#include <string>

#include "fleet/base/digest.h"

namespace qim::fleet {

// The newest head that was believed. It is remembered in both places: in the mark with what it led to, and
// in the file.
struct SeenHead {
  uint64_t count = 0;     // of heads that this device believed, which tells the newer of both
  uint64_t sequence = 0;  // 0: none was ever seen
  Digest bytes{};

  bool operator==(const SeenHead&) const = default;
};

// The revision that a database holds.
struct Held {
  std::string scope;
  uint64_t number = 0;  // 0: none was ever taken
  Digest state{};
  uint64_t previous = 0;  // what was held before, 0 = none, or it is not to be gone back to
  Digest previous_state{};
  uint32_t confirm_seconds = 0;  // how long it may be held without having reached the store
  SeenHead seen;                 // the head that was gone by

  bool operator==(const Held&) const = default;
};

struct Refusal {
  uint64_t number = 0;  // 0: none
  Digest state{};
  std::string reason;

  bool operator==(const Refusal&) const = default;
};

struct Memory {
  std::string scope;
  uint64_t cluster = 0;  // of the store, 0 = none was ever seen
  SeenHead seen;
  uint64_t confirmed =
      0;  // the revision held of which is known that the store can be reached with it
  uint64_t status_sequence = 0;
  Refusal refused;

  bool operator==(const Memory&) const = default;
};

// The name of the mark.
inline constexpr const char* mark_name = "fleet";

std::string to_text(const Held& held);
std::string to_text(const Memory& memory);
// Both throw ConfigError for what they did not make.
Held parse_held(const std::string& text);
Memory parse_memory(const std::string& text, const std::string& file);

}  // namespace qim::fleet
