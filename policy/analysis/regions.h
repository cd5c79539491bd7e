// Putting boxes together that are next to each other.
#pragma once

#include <vector>

#include "policy/analysis/rules.h"

namespace qimctl {

// A box in its first shape, and the others in which the same is asked: `demands`, all other
// dimensions are free.
struct Region {
  std::vector<Shape> shapes;
  std::vector<Range> box;
  std::vector<std::pair<Dimension, Range>> demands;
};

// Joins boxes of one shape that differ in one dimension and touch there, as long as there are any.
void join_boxes(const Masked& masked, std::vector<std::vector<Range>>& boxes);
// Joins regions of several shapes that ask the same.
void join_shapes(std::vector<Region>& regions);
Region to_region(const Space& space, Shape shape, std::vector<Range> box);
// The region's box in one of its shapes.
std::vector<Range> box_in(const Space& space, const Region& region, Shape shape);

}  // namespace qimctl
