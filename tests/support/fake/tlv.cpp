#include "tlv.h"

namespace fake {

std::uint64_t read_big(const std::uint8_t* at, std::uint32_t width) {
  std::uint64_t value = 0;
  for (std::uint32_t i = 0; i < width; ++i) value = value << 8 | at[i];
  return value;
}

void write_big(std::uint8_t* at, std::uint64_t value, std::uint32_t width) {
  for (std::uint32_t i = width; i-- > 0; value >>= 8) at[i] = static_cast<std::uint8_t>(value);
}

void Tlv::put(std::uint64_t value, unsigned width) {
  data_.resize(data_.size() + width);
  write_big(data_.data() + data_.size() - width, value, width);
}

void Tlv::head(std::uint16_t record, std::uint16_t field, std::size_t length) {
  put(record, 2);
  put(field, 2);
  put(length, 4);
}

Tlv& Tlv::u32(std::uint16_t record, std::uint16_t field, std::uint32_t value) {
  head(record, field, 4);
  put(value, 4);
  return *this;
}

Tlv& Tlv::u64(std::uint16_t record, std::uint16_t field, std::uint64_t value) {
  head(record, field, 8);
  put(value, 8);
  return *this;
}

Tlv& Tlv::bytes(std::uint16_t record, std::uint16_t field, const std::vector<std::uint8_t>& value) {
  head(record, field, value.size());
  data_.insert(data_.end(), value.begin(), value.end());
  return *this;
}

Tlv& Tlv::nest(std::uint16_t record, std::uint16_t field, const Tlv& value) {
  return bytes(record, field, value.data());
}

Tlv& Tlv::unite(std::uint16_t record, std::uint16_t field, std::uint32_t type, const Tlv& value) {
  head(record, field, 4 + value.data().size());
  put(type, 4);
  data_.insert(data_.end(), value.data().begin(), value.data().end());
  return *this;
}

}  // namespace fake
