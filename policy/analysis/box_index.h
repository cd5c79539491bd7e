// Finding the boxes that overlap a box, without asking all of them.
//
// Boxes are put together by the dimensions in which they ask for something. For each of these the
// ranges of such a group are kept in order, so how many of them overlap another range is known at
// once: the boxes looked at are those that overlap in the dimension where there are fewest.
#pragma once

#include <map>
#include <vector>

#include "policy/analysis/box.h"

namespace qimctl {

class BoxIndex {
 public:
  // `whole` is all that there is. The boxes must live as long as the index.
  BoxIndex(Masked masked, const std::vector<Range>& whole, const Boxes& boxes);

  // Numbers of the boxes that overlap `box`, in ascending order.
  std::vector<uint32_t> overlapping(Box box) const;

 private:
  // The ranges of a group's boxes in one dimension.
  struct Line {
    size_t dimension = 0;
    std::vector<Wide> firsts;       // in ascending order
    std::vector<Wide> lasts;        // in ascending order
    std::vector<uint32_t> numbers;  // by first
    std::vector<Wide> highest;      // the highest last of parts of `numbers`: a heap, root at 1

    size_t count(const Range& range) const;
    void collect(const Range& range, std::vector<uint32_t>& found) const;
  };
  struct Group {
    std::vector<uint32_t> numbers;
    std::vector<Line> lines;
  };

  Line make_line(const Group& group, size_t dimension) const;
  static constexpr size_t few = 8;  // boxes that are better asked all

  Masked masked_;
  const Boxes& boxes_;
  std::map<std::vector<bool>, Group> groups_;
};

}  // namespace qimctl
