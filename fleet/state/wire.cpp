// Reading of bytes that may be anything.
#include "fleet/state/wire.h"

#include "fleet/base/error.h"

namespace qim::fleet {

void WireWriter::patch_u32(size_t at, uint32_t value) {
  WireWriter number;
  number.u32(value);
  bytes_.replace(at, number.size(), number.bytes_);
}

uint32_t load_u16(std::string_view bytes, size_t at) {
  const auto high = static_cast<unsigned char>(bytes[at]);
  const auto low = static_cast<unsigned char>(bytes[at + 1]);
  return static_cast<uint32_t>(high << 8 | low);
}

uint32_t load_u32(std::string_view bytes, size_t at) {
  return load_u16(bytes, at) << 16 | load_u16(bytes, at + 2);
}

uint32_t WireReader::u8() {
  return static_cast<unsigned char>(bytes(1).front());
}

uint32_t WireReader::u16() {
  return load_u16(bytes(2), 0);
}

uint32_t WireReader::u32() {
  return load_u32(bytes(4), 0);
}

std::string_view WireReader::bytes(size_t count) {
  if (bytes_.size() - at_ < count) refuse("it ends too early");
  const std::string_view taken = bytes_.substr(at_, count);
  at_ += count;
  return taken;
}

void WireReader::refuse(const std::string& why) const {
  throw ForgedError(std::string(what_) + ", byte " + std::to_string(at_) + ": " + why);
}

}  // namespace qim::fleet
