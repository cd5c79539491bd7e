#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

#include "mem.h"

namespace {

using Bytes = std::array<unsigned char, 8>;

Bytes filled(size_t destsz, int ch, size_t count, bool fails) {
  Bytes bytes;
  bytes.fill(0x77);
  EXPECT_EQ(memset_s(bytes.data(), destsz, ch, count) != 0, fails);
  return bytes;
}

TEST(MemsetS, SetsCountBytesAndNoMore) {
  EXPECT_EQ(filled(8, 0, 3, false), (Bytes{0, 0, 0, 0x77, 0x77, 0x77, 0x77, 0x77}));
  EXPECT_EQ(filled(8, 0x41, 8, false), (Bytes{0x41, 0x41, 0x41, 0x41, 0x41, 0x41, 0x41, 0x41}));
  EXPECT_EQ(filled(8, 0x41, 0, false), (Bytes{0x77, 0x77, 0x77, 0x77, 0x77, 0x77, 0x77, 0x77}));
}

TEST(MemsetS, UsesTheLowByteOfTheValue) {
  EXPECT_EQ(filled(1, 0x1234, 1, false)[0], 0x34);
  EXPECT_EQ(filled(1, -1, 1, false)[0], 0xff);
}

TEST(MemsetS, ACountOverTheRoomFillsTheRoomAndFails) {
  EXPECT_EQ(filled(4, 0, 5, true), (Bytes{0, 0, 0, 0, 0x77, 0x77, 0x77, 0x77}));
  EXPECT_EQ(filled(4, 0, SIZE_MAX, true), (Bytes{0, 0, 0, 0, 0x77, 0x77, 0x77, 0x77}));
  EXPECT_EQ(filled(0, 0, 1, true)[0], 0x77);
}

TEST(MemsetS, NothingIsWrittenWithoutADestinationOrWithAnImpossibleRoom) {
  EXPECT_NE(memset_s(nullptr, 8, 0, 8), 0);
  EXPECT_NE(memset_s(nullptr, 0, 0, 0), 0);
  EXPECT_EQ(filled(SIZE_MAX / 2 + 1, 0, 4, true)[0], 0x77);
  EXPECT_EQ(filled(SIZE_MAX, 0, 4, true)[0], 0x77);
}

TEST(MemsetS, TheLargestRoomIsAllowed) {
  EXPECT_EQ(filled(SIZE_MAX / 2, 0, 2, false), (Bytes{0, 0, 0x77, 0x77, 0x77, 0x77, 0x77, 0x77}));
}

}  // namespace
