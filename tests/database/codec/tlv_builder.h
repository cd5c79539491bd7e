// Builds TLV data byte by byte, right or wrong.
#ifndef TESTS_DATABASE_CODEC_TLV_BUILDER_H
#define TESTS_DATABASE_CODEC_TLV_BUILDER_H

#include <cstdint>
#include <string>
#include <vector>

namespace tlv_test {

using Bytes = std::vector<uint8_t>;

class Builder {
 public:
  Builder& u8(uint32_t value) { return raw({static_cast<uint8_t>(value)}); }
  Builder& u16(uint32_t value) { return u8(value >> 8).u8(value); }
  Builder& u32(uint32_t value) { return u16(value >> 16).u16(value); }
  Builder& u64(uint64_t value) {
    return u32(static_cast<uint32_t>(value >> 32)).u32(static_cast<uint32_t>(value));
  }
  Builder& raw(const Bytes& bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
  }

  Builder& attribute(uint32_t tag, const Bytes& value) {
    u32(tag).u32(static_cast<uint32_t>(value.size())).raw(value);
    while (bytes_.size() % 4 != 0) u8(0);
    return *this;
  }
  Builder& attribute(uint32_t tag, const Builder& value) { return attribute(tag, value.bytes_); }
  Builder& attribute(uint32_t tag, const std::string& text) {
    return attribute(tag, Bytes(text.begin(), text.end()));
  }
  Builder& int8(uint32_t tag, uint32_t value) { return attribute(tag, Builder().u8(value)); }
  Builder& int16(uint32_t tag, uint32_t value) { return attribute(tag, Builder().u16(value)); }
  Builder& int32(uint32_t tag, uint32_t value) { return attribute(tag, Builder().u32(value)); }
  Builder& int64(uint32_t tag, uint64_t value) { return attribute(tag, Builder().u64(value)); }

  const Bytes& bytes() const { return bytes_; }

 private:
  Bytes bytes_;
};

}  // namespace tlv_test

#endif
