// Numbers and bytes in network order, written and read one after the other.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace qim::fleet {

class WireWriter {
 public:
  void u8(uint32_t value) { bytes_.push_back(static_cast<char>(value)); }
  void u16(uint32_t value) {
    u8(value >> 8 & 0xff);
    u8(value & 0xff);
  }
  void u32(uint32_t value) {
    u16(value >> 16);
    u16(value & 0xffff);
  }
  void bytes(std::string_view value) { bytes_.append(value); }
  // A length of 32 bits, and the bytes.
  void sized(std::string_view value) {
    u32(static_cast<uint32_t>(value.size()));
    bytes(value);
  }
  size_t size() const { return bytes_.size(); }
  // Puts another number in the place of an earlier one.
  void patch_u32(size_t at, uint32_t value);
  std::string take() { return std::move(bytes_); }

 private:
  std::string bytes_;
};

uint32_t load_u16(std::string_view bytes, size_t at);
uint32_t load_u32(std::string_view bytes, size_t at);

// Reads what somebody else wrote. Every complaint is a ForgedError with the place.
class WireReader {
 public:
  // `what` names the bytes in complaints.
  WireReader(std::string_view bytes, const char* what) : bytes_(bytes), what_(what) {}

  size_t at() const { return at_; }
  bool done() const { return at_ == bytes_.size(); }
  uint32_t u8();
  uint32_t u16();
  uint32_t u32();
  std::string_view bytes(size_t count);
  // Throws ForgedError: "snapshot, byte 17: ...".
  [[noreturn]] void refuse(const std::string& why) const;

 private:
  std::string_view bytes_;
  const char* what_;
  size_t at_ = 0;
};

}  // namespace qim::fleet
