#include "database/base/crc32c.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using Checksum = uint32_t (*)(uint32_t, const void*, size_t);

// Both implementations, so that the one this processor does not pick is tested too.
class Crc32c : public testing::TestWithParam<Checksum> {};

std::vector<uint8_t> counting(int from, int step) {
  std::vector<uint8_t> bytes;
  for (int i = 0; i < 32; ++i) bytes.push_back(static_cast<uint8_t>(from + step * i));
  return bytes;
}

TEST_P(Crc32c, GivesThePublishedValues) {
  const std::vector<uint8_t> zeros(32, 0x00);
  const std::vector<uint8_t> ones(32, 0xff);
  EXPECT_EQ(GetParam()(0, zeros.data(), zeros.size()), 0x8a9136aau);
  EXPECT_EQ(GetParam()(0, ones.data(), ones.size()), 0x62a8ab43u);
  EXPECT_EQ(GetParam()(0, counting(0, 1).data(), 32), 0x46dd794eu);
  EXPECT_EQ(GetParam()(0, counting(31, -1).data(), 32), 0x113fdb5cu);
  EXPECT_EQ(GetParam()(0, "123456789", 9), 0xe3069283u);
}

TEST_P(Crc32c, OfTheIscsiReadCommandIsThePublishedValue) {
  std::vector<uint8_t> pdu(48, 0x00);
  pdu[0] = 0x01;
  pdu[1] = 0xc0;
  pdu[16] = 0x14;
  pdu[22] = 0x04;
  pdu[27] = 0x14;
  pdu[31] = 0x18;
  pdu[32] = 0x28;
  pdu[40] = 0x02;
  EXPECT_EQ(GetParam()(0, pdu.data(), pdu.size()), 0xd9963a56u);
}

TEST_P(Crc32c, OfNothingIsTheChecksumSoFar) {
  EXPECT_EQ(GetParam()(0, nullptr, 0), 0u);
  EXPECT_EQ(GetParam()(0x12345678, "", 0), 0x12345678u);
}

TEST_P(Crc32c, ContinuesOverPieces) {
  const std::string text = "a record is checked as a whole, whatever the pieces it is read in";
  const uint32_t whole = GetParam()(0, text.data(), text.size());
  for (size_t cut = 0; cut <= text.size(); ++cut) {
    const uint32_t head = GetParam()(0, text.data(), cut);
    EXPECT_EQ(GetParam()(head, text.data() + cut, text.size() - cut), whole) << cut;
  }
}

TEST_P(Crc32c, SeesEveryBit) {
  std::vector<uint8_t> bytes(37, 0x5a);
  const uint32_t before = GetParam()(0, bytes.data(), bytes.size());
  for (size_t bit = 0; bit < bytes.size() * 8; ++bit) {
    bytes[bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
    EXPECT_NE(GetParam()(0, bytes.data(), bytes.size()), before) << bit;
    bytes[bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
  }
}

// One bit at a time, straight from the polynomial.
uint32_t bitwise(const uint8_t* p, size_t len) {
  uint32_t crc = 0xffffffff;
  for (size_t i = 0; i < len; ++i) {
    crc ^= p[i];
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0x82f63b78u : 0u);
  }
  return ~crc;
}

TEST_P(Crc32c, EqualsTheBitwiseDefinitionAtEveryLengthAndAlignment) {
  std::mt19937 random(3720);
  std::vector<uint8_t> bytes(160);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  for (size_t at = 0; at < 9; ++at) {
    for (size_t len = 0; at + len <= bytes.size(); ++len) {
      ASSERT_EQ(GetParam()(0, bytes.data() + at, len), bitwise(bytes.data() + at, len))
          << "at " << at << " length " << len;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Implementations, Crc32c, testing::Values(&crc32c, &crc32c_by_table),
                         [](const auto& test) {
                           return test.param == &crc32c ? std::string("Dispatched")
                                                        : std::string("ByTable");
                         });

}  // namespace
