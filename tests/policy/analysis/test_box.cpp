// Boxes, and what is left of one when others are taken away.
#include "policy/analysis/box.h"

#include <gtest/gtest.h>

namespace {

using namespace qimctl;

Range range(uint64_t first, uint64_t last) {
  return {{0, first}, {0, last}};
}

TEST(Box, CutsIntoPiecesThatDoNotOverlap) {
  const Masked masked{false, true};
  const std::vector<Range> by{range(3, 5), range(0b10, 0b11)};
  std::vector<Range> box{range(0, 9), range(0, 0b1)};  // the last bit is 0
  Boxes pieces(2);
  EXPECT_TRUE(overlap(masked, box, by));
  EXPECT_FALSE(contains(masked, by, box));
  cut(masked, box, by, pieces);
  ASSERT_EQ(pieces.size(), 3u);
  EXPECT_EQ(pieces[0][0], range(0, 2));
  EXPECT_EQ(pieces[1][0], range(6, 9));
  EXPECT_EQ(pieces[2][1], range(0, 0b11));
  EXPECT_EQ(box[0], range(3, 5));
  EXPECT_EQ(box[1], range(0b10, 0b11));
  EXPECT_TRUE(contains(masked, by, box));
}

TEST(Box, CutsAddressesAcrossTheMiddle) {
  std::vector<Range> box{{{0, 0}, {1, 5}}};
  const std::vector<Range> by{{{1, 0}, {1, 0}}};
  Boxes pieces(1);
  cut({false}, box, by, pieces);
  ASSERT_EQ(pieces.size(), 2u);
  EXPECT_EQ(pieces[0][0], (Range{{0, 0}, {0, UINT64_MAX}}));
  EXPECT_EQ(pieces[1][0], (Range{{1, 1}, {1, 5}}));
}

TEST(Box, WalksWhatIsLeft) {
  const std::vector<Range> whole{range(0, 9)};
  const std::vector<Range> low{range(0, 2)};
  const std::vector<Range> high{range(7, 9)};
  std::vector<Range> left;
  std::vector<size_t> met;
  Effort effort(100, 100);
  effort.begin();
  const auto visit = [&left](Box box) {
    left.push_back(box[0]);
    return true;
  };
  EXPECT_EQ(walk_uncovered({false}, whole, {low, high}, effort, visit,
                           [&met](size_t rule) { met.push_back(rule); }),
            Walk::finished);
  EXPECT_EQ(left, (std::vector<Range>{range(3, 6)}));
  EXPECT_EQ(met, (std::vector<size_t>{0, 1}));
  EXPECT_EQ(walk_uncovered({false}, whole, {low}, effort, [](Box) { return false; }),
            Walk::stopped);
}

TEST(Box, GivesUpWhenTheEffortIsSpent) {
  const std::vector<Range> whole{range(0, 9)};
  const std::vector<Range> low{range(0, 2)};
  const std::vector<Range> none{range(20, 21)};
  Effort effort(3, 1);
  const auto visit = [](Box) { return true; };
  effort.begin();
  EXPECT_EQ(walk_uncovered({false}, whole, {low, low}, effort, visit), Walk::gave_up);
  effort.begin();
  EXPECT_EQ(walk_uncovered({false}, whole, {none}, effort, visit), Walk::finished);
  effort.begin();
  EXPECT_EQ(walk_uncovered({false}, whole, {none, none}, effort, visit), Walk::gave_up);
  effort.begin();
  EXPECT_EQ(walk_uncovered({false}, whole, {low}, effort, visit), Walk::gave_up);
}

}  // namespace
