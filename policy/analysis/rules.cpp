// Entries of one or more lists as boxes in all shapes.
#include "policy/analysis/rules.h"

namespace qimctl {

RuleBoxes::RuleBoxes(const Space& space, const std::vector<const Entry*>& entries)
    : space_(&space), shapes_(entries.size()) {
  for (const Shape shape : all_shapes) {
    OfShape& all = by_shape_.emplace_back(space.dimensions(shape).size());
    for (size_t rule = 0; rule < entries.size(); rule++) {
      const Boxes boxes = space.boxes(shape, *entries[rule]);
      for (size_t i = 0; i < boxes.size(); i++) all.boxes.add(boxes[i]);
      all.ends.push_back(static_cast<uint32_t>(all.boxes.size()));
      if (boxes.size() != 0) shapes_[rule] |= 1u << static_cast<uint32_t>(shape);
    }
  }
}

bool RuleBoxes::overlap(Shape shape, size_t a, size_t b) const {
  const Masked& masked = space_->masked(shape);
  for (size_t i = 0; i < count(shape, a); i++) {
    for (size_t k = 0; k < count(shape, b); k++)
      if (qimctl::overlap(masked, box(shape, a, i), box(shape, b, k))) return true;
  }
  return false;
}

bool RuleBoxes::overlap(size_t a, size_t b) const {
  const uint32_t both = shapes_[a] & shapes_[b];
  if (both == 0) return false;
  for (const Shape shape : all_shapes) {
    const bool shared = (both >> static_cast<uint32_t>(shape) & 1) != 0;
    if (shared && overlap(shape, a, b)) return true;
  }
  return false;
}

// The boxes of one entry have a gap between them, so a box that lies in all of them lies in one.
bool RuleBoxes::contains(size_t a, size_t b) const {
  if ((shapes_[b] & ~shapes_[a]) != 0) return false;
  for (const Shape shape : all_shapes) {
    const Masked& masked = space_->masked(shape);
    for (size_t k = 0; k < count(shape, b); k++) {
      bool inside = false;
      for (size_t i = 0; i < count(shape, a) && !inside; i++)
        inside = qimctl::contains(masked, box(shape, a, i), box(shape, b, k));
      if (!inside) return false;
    }
  }
  return true;
}

}  // namespace qimctl
