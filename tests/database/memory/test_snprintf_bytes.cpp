#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mem.h"

namespace {

constexpr unsigned char kBytes[] = {0x0a, 0x0b, 0xff, 0x00};

struct Text {
  int length;
  std::string text;
  bool operator==(const Text&) const = default;
};

// `room` bytes, each behind and after which nothing may be written.
Text format(size_t room, size_t len, int style) {
  std::vector<char> out(room + 2, '#');
  const int length = snprintf_bytes(out.data() + 1, room, kBytes, len, style);
  EXPECT_EQ(out.front(), '#');
  EXPECT_EQ(out.back(), '#');
  return {length, room > 0 ? std::string(out.data() + 1) : std::string()};
}

TEST(SnprintfBytes, StyleZeroRunsTheDigitsTogether) {
  EXPECT_EQ(format(100, 4, 0), (Text{8, "0a0bff00"}));
  EXPECT_EQ(format(9, 4, 0), (Text{8, "0a0bff00"}));
}

TEST(SnprintfBytes, StyleOnePutsABlankBetweenBytes) {
  EXPECT_EQ(format(100, 4, 1), (Text{11, "0a 0b ff 00"}));
  EXPECT_EQ(format(12, 4, 1), (Text{11, "0a 0b ff 00"}));
  EXPECT_EQ(format(100, 1, 1), (Text{2, "0a"}));
}

TEST(SnprintfBytes, NoBytesGiveAnEmptyText) {
  EXPECT_EQ(format(100, 0, 1), (Text{0, ""}));
  EXPECT_EQ(format(1, 0, 0), (Text{0, ""}));
}

TEST(SnprintfBytes, CutsAtAWholeByteAtEveryRoom) {
  for (const int style : {0, 1}) {
    const std::string whole = format(100, 4, style).text;
    const size_t step = style == 1 ? 3 : 2;
    for (size_t room = 1; room < 14; ++room) {
      size_t fit = 0;
      for (size_t end = 2; end <= whole.size() && end < room; end += step) fit = end;
      EXPECT_EQ(format(room, 4, style), (Text{static_cast<int>(fit), whole.substr(0, fit)}))
          << "room " << room << " style " << style;
    }
  }
}

TEST(SnprintfBytes, WithoutRoomNothingIsWritten) {
  EXPECT_EQ(format(0, 4, 0), (Text{0, ""}));
  EXPECT_EQ(snprintf_bytes(nullptr, 10, kBytes, 4, 0), 0);
}

TEST(SnprintfBytes, WithoutBytesTheTextIsEmpty) {
  char out[4] = {'#', '#', '#', '#'};
  EXPECT_EQ(snprintf_bytes(out, sizeof out, nullptr, 3, 1), 0);
  EXPECT_EQ(out[0], '\0');
}

}  // namespace
