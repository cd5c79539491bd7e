// Entries of one or more lists as boxes in all shapes, for those that compare them.
#pragma once

#include <array>
#include <vector>

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
  bool has(size_t rule, Shape shape) const {
    return (shapes_[rule] >> static_cast<uint32_t>(shape) & 1) != 0;
  }

  bool overlap(Shape shape, size_t a, size_t b) const;
  bool overlap(size_t a, size_t b) const;
  // Does a match all that b matches?
  bool contains(size_t a, size_t b) const;

 private:
  struct OfShape {
    explicit OfShape(size_t dimensions) : boxes(dimensions) {}
    Boxes boxes;
    std::vector<uint32_t> ends{0};  // where each rule's end, and before it the first one's begin
  };
  const OfShape& of(Shape shape) const { return by_shape_[static_cast<size_t>(shape)]; }

  const Space* space_;
  std::vector<OfShape> by_shape_;
  std::vector<uint32_t> shapes_;
};

}  // namespace qimctl
