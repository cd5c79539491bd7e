// What a device remembers: of the content of its database in a mark there, which is written with the
// content in one commit, and of the fleet in a file.
#pragma once

#include <cstdint>
#include <string>

#include "fleet/base/digest.h"

namespace qim::fleet {

// The revision that a database holds.
struct Held {
  std::string scope;
  uint64_t number = 0;  // 0: none was ever taken
  Digest state{};
  uint64_t previous = 0;  // what was held before, 0 = none, or it is not to be gone back to
  Digest previous_state{};
  uint32_t confirm_seconds = 0;  // how long it may be held without having reached the store

  bool operator==(const Held&) const = default;
};

struct Refusal {
  uint64_t number = 0;  // 0: none
  Digest state{};
  std::string reason;
};

struct Memory {
  std::string scope;
  uint64_t cluster = 0;        // of the store, 0 = none was ever seen
  uint64_t head_sequence = 0;  // of the newest head that was believed
  Digest head{};               // of its bytes
  uint64_t confirmed =
      0;  // the revision held of which is known that the store can be reached with it
  uint64_t status_sequence = 0;
  Refusal refused;
};

// The name of the mark.
inline constexpr const char* mark_name = "fleet";

std::string to_text(const Held& held);
std::string to_text(const Memory& memory);
// Both throw ConfigError for what they did not make.
Held parse_held(const std::string& text);
Memory parse_memory(const std::string& text, const std::string& file);

}  // namespace qim::fleet
