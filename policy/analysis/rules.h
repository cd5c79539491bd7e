// Entries of one or more lists as boxes in all shapes, for those that compare them.
#pragma once

#include <array>
#include <memory>
#include <vector>

#include "policy/analysis/box_index.h"
#include "policy/analysis/space.h"

namespace qimctl {

inline constexpr std::array all_shapes{Shape::other,    Shape::ipv4,      Shape::ipv4_tcp,
                                       Shape::ipv4_udp, Shape::ipv4_icmp, Shape::ipv6,
                                       Shape::ipv6_tcp, Shape::ipv6_udp,  Shape::ipv6_icmp};

// The boxes of an entry, one behind the other.
class RuleBoxes {
 public:
  RuleBoxes(const Space& space, const std::vector<const Entry*>& entries);

  const Space& space() const { return *space_; }
  size_t size() const { return shapes_.size(); }
  // The shapes in which there are packets that the entry matches, a bit each.
  uint32_t shapes(size_t rule) const { return shapes_[rule]; }
  size_t count(Shape shape, size_t rule) const {
    const std::vector<uint32_t>& ends = of(shape).ends;
    return ends[rule + 1] - ends[rule];
  }
  Box box(Shape shape, size_t rule, size_t i) const {
    return of(shape).boxes[of(shape).ends[rule] + i];
  }

  // The boxes that overlap `box`, by their numbers, in the order of rules.
  std::vector<uint32_t> overlapping(Shape shape, Box box) const {
    return of(shape).index->overlapping(box);
  }
  Box numbered(Shape shape, uint32_t number) const { return of(shape).boxes[number]; }
  size_t owner(Shape shape, uint32_t number) const { return of(shape).owners[number]; }
  // The rules that overlap one, in order, itself included.
  std::vector<size_t> overlapping(size_t rule) const;
  // Does a match all that b matches?
  bool contains(size_t a, size_t b) const;

 private:
  struct OfShape {
    explicit OfShape(size_t dimensions) : boxes(dimensions) {}
    Boxes boxes;
    std::vector<uint32_t> ends{0};  // where each rule's end, and before it the first one's begin
    std::vector<size_t> owners;     // of each box
    std::unique_ptr<BoxIndex> index;
  };
  const OfShape& of(Shape shape) const { return by_shape_[static_cast<size_t>(shape)]; }

  const Space* space_;
  std::vector<OfShape> by_shape_;
  std::vector<uint32_t> shapes_;
};

}  // namespace qimctl
