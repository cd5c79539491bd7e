// Entries of one or more lists as boxes in all shapes.
#include "policy/analysis/rules.h"

#include <algorithm>

namespace qimctl {

RuleBoxes::RuleBoxes(const Space& space, const std::vector<const Entry*>& entries)
    : space_(&space), shapes_(entries.size()) {
  by_shape_.reserve(all_shapes.size());  // an index knows where its boxes are
  for (const Shape shape : all_shapes) {
    OfShape& all = by_shape_.emplace_back(space.dimensions(shape).size());
    for (size_t rule = 0; rule < entries.size(); rule++) {
      const Boxes boxes = space.boxes(shape, *entries[rule]);
      for (size_t i = 0; i < boxes.size(); i++) all.boxes.add(boxes[i]);
      all.owners.resize(all.boxes.size(), rule);
      all.ends.push_back(static_cast<uint32_t>(all.boxes.size()));
      if (boxes.size() != 0) shapes_[rule] |= 1u << static_cast<uint32_t>(shape);
    }
    all.index = std::make_unique<BoxIndex>(space.masked(shape), space.whole(shape), all.boxes);
  }
}

std::vector<size_t> RuleBoxes::overlapping(size_t rule) const {
  std::vector<size_t> rules;
  for (const Shape shape : all_shapes) {
    for (size_t i = 0; i < count(shape, rule); i++) {
      for (const uint32_t number : overlapping(shape, box(shape, rule, i)))
        rules.push_back(owner(shape, number));
    }
  }
  std::sort(rules.begin(), rules.end());
  rules.erase(std::unique(rules.begin(), rules.end()), rules.end());
  return rules;
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
