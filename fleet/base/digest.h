// SHA-256, and bytes as hexadecimal digits.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace qim::fleet {

using Digest = std::array<uint8_t, 32>;

// Of bytes that come in pieces.
class Sha256 {
 public:
  Sha256();
  ~Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;

  void add(std::string_view bytes);
  // Of all that was added. Nothing is added afterwards.
  Digest finish();

 private:
  struct Context;
  std::unique_ptr<Context> context_;
};

Digest sha256(std::string_view bytes);

// Between digests and texts of bytes.
std::string to_bytes(const Digest& digest);
// False when there are not 32.
[[nodiscard]] bool from_bytes(std::string_view bytes, Digest& digest);

// Lower-case digits.
std::string to_hex(std::string_view bytes);
std::string to_hex(const Digest& digest);
// The first of them, as people are shown a digest: "3fa9c1d20b7e".
std::string short_hex(const Digest& digest);
// False for anything but pairs of digits.
[[nodiscard]] bool from_hex(std::string_view text, std::string& bytes);

}  // namespace qim::fleet
