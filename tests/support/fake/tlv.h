// The wire format of the programmable platform, which is its own: an attribute is a u16 struct id,
// a u16 field id, a u32 length and the value, unpadded, all big-endian. A body union's value is a
// u32 discriminator followed by the selected record's attributes.
#ifndef TESTS_SUPPORT_FAKE_TLV_H
#define TESTS_SUPPORT_FAKE_TLV_H

#include <cstdint>
#include <vector>

namespace fake {

inline constexpr std::uint32_t kTlvHead = 8;

// Builds an attribute array, value by value.
class Tlv {
 public:
  Tlv() = default;

  Tlv& u32(std::uint16_t record, std::uint16_t field, std::uint32_t value);
  Tlv& u64(std::uint16_t record, std::uint16_t field, std::uint64_t value);
  Tlv& bytes(std::uint16_t record, std::uint16_t field, const std::vector<std::uint8_t>& value);
  Tlv& nest(std::uint16_t record, std::uint16_t field, const Tlv& value);
  Tlv& unite(std::uint16_t record, std::uint16_t field, std::uint32_t type, const Tlv& value);

  const std::vector<std::uint8_t>& data() const { return data_; }

 private:
  void put(std::uint64_t value, unsigned width);
  void head(std::uint16_t record, std::uint16_t field, std::size_t length);

  std::vector<std::uint8_t> data_;
};

// A big-endian integer of 1 to 8 bytes, at any alignment.
std::uint64_t read_big(const std::uint8_t* at, std::uint32_t width);
void write_big(std::uint8_t* at, std::uint64_t value, std::uint32_t width);

}  // namespace fake

#endif
