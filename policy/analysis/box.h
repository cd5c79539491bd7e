// Boxes: sets of packets that are a range of values in each of some dimensions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "policy/trace/wide.h"

namespace qimctl {

// The values of a box in one dimension: `first` to `last`; in a masked dimension those whose bits in
// `last` are those of `first`.
struct Range {
  Wide first;
  Wide last;

  bool operator==(const Range&) const = default;
};

// A box, one range a dimension. What knows the dimensions says which of them are masked.
using Box = std::span<const Range>;
using Masked = std::vector<bool>;

bool overlap(const Masked& masked, Box a, Box b);
// Is all of b in a?
bool contains(const Masked& masked, Box a, Box b);

// Boxes of one space, one behind the other.
class Boxes {
 public:
  explicit Boxes(size_t dimensions) : dimensions_(dimensions) {}

  void add(Box box) {
    ranges_.insert(ranges_.end(), box.begin(), box.end());
    count_++;
  }
  void pop() {
    ranges_.resize(ranges_.size() - dimensions_);
    count_--;
  }
  size_t size() const { return count_; }
  Box operator[](size_t i) const { return Box(ranges_).subspan(i * dimensions_, dimensions_); }
  Box back() const { return (*this)[count_ - 1]; }
  std::vector<Range> take(size_t i) const { return {(*this)[i].begin(), (*this)[i].end()}; }

 private:
  size_t dimensions_;
  size_t count_ = 0;  // there may be no dimensions
  std::vector<Range> ranges_;
};

// What of `box` is not in `by`, in pieces that do not overlap, is added to `pieces`; `box` becomes
// what both have. They must overlap.
void cut(const Masked& masked, std::vector<Range>& box, Box by, Boxes& pieces);

// How much work is still allowed; what runs out of it gives up. One unit is a comparison of boxes.
class Effort {
 public:
  Effort(uint64_t total, uint64_t each) : total_(total), each_(each) {}

  // Begins a question, which may take its share.
  void begin() { left_ = each_ < total_ ? each_ : total_; }
  // False when the question has taken all it may.
  bool spend() {
    if (left_ == 0) return false;
    left_--;
    total_--;
    return true;
  }

 private:
  uint64_t total_;
  uint64_t each_;
  uint64_t left_ = 0;
};

enum class Walk { finished, stopped, gave_up };

// Calls `visit` with the pieces of `box` that none of the `rules` overlaps; it returns false to stop.
// `met` is called with the number of each rule that takes something away.
Walk walk_uncovered(const Masked& masked, Box box, const std::vector<Box>& rules, Effort& effort,
                    const std::function<bool(Box)>& visit,
                    const std::function<void(size_t)>& met = {});

}  // namespace qimctl
