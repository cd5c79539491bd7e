// Putting boxes together that are next to each other.
#include "policy/analysis/regions.h"

#include <algorithm>

namespace qimctl {

namespace {

using RangeBox = std::vector<Range>;

// In the order in which boxes that can be joined in `dimension` follow each other.
bool before(const RangeBox& a, const RangeBox& b, size_t dimension) {
  const auto less = [](const Range& x, const Range& y) {
    return x.first != y.first ? x.first < y.first : x.last < y.last;
  };
  for (size_t i = 0; i < a.size(); i++) {
    if (i != dimension && a[i] != b[i]) return less(a[i], b[i]);
  }
  return less(a[dimension], b[dimension]);
}

bool same_but(const RangeBox& a, const RangeBox& b, size_t dimension) {
  for (size_t i = 0; i < a.size(); i++) {
    if (i != dimension && a[i] != b[i]) return false;
  }
  return true;
}

// Makes `a` the two of them, when that is a range.
bool join_ranges(bool masked, Range& a, const Range& b) {
  if (masked) {
    const uint64_t differing = a.first.low ^ b.first.low;
    if (a.last != b.last || (differing & (differing - 1)) != 0) return false;
    a.last.low &= ~differing;
    a.first.low &= ~differing;
    return true;
  }
  if (next(a.last) != b.first) return false;
  a.last = b.last;
  return true;
}

bool join_in(bool masked, std::vector<RangeBox>& boxes, size_t dimension) {
  std::sort(boxes.begin(), boxes.end(),
            [dimension](const RangeBox& a, const RangeBox& b) { return before(a, b, dimension); });
  std::vector<RangeBox> joined;
  for (RangeBox& box : boxes) {
    const bool fits = !joined.empty() && same_but(joined.back(), box, dimension) &&
                      join_ranges(masked, joined.back()[dimension], box[dimension]);
    if (!fits) joined.push_back(std::move(box));
  }
  const bool any = joined.size() < boxes.size();
  boxes = std::move(joined);
  return any;
}

}  // namespace

void join_boxes(const Masked& masked, std::vector<std::vector<Range>>& boxes) {
  bool any = !boxes.empty();
  while (any) {
    any = false;
    for (size_t dimension = boxes.front().size(); dimension-- > 0;)
      any = join_in(masked[dimension], boxes, dimension) || any;
  }
}

Region to_region(const Space& space, Shape shape, std::vector<Range> box) {
  Region region{{shape}, std::move(box), {}};
  const std::vector<Range> whole = space.whole(shape);
  for (size_t i = 0; i < whole.size(); i++) {
    if (region.box[i] != whole[i])
      region.demands.emplace_back(space.dimensions(shape)[i], region.box[i]);
  }
  return region;
}

void join_shapes(std::vector<Region>& regions) {
  std::vector<Region> joined;
  for (Region& region : regions) {
    // Addresses of IPv4 and IPv6 are different things; so are Ethernet types where there is no IP.
    const auto same = std::find_if(joined.begin(), joined.end(), [&](const Region& known) {
      const bool same_network =
          shape_network(known.shapes.front()) == shape_network(region.shapes.front());
      return known.demands == region.demands && (same_network || region.demands.empty());
    });
    if (same == joined.end()) {
      joined.push_back(std::move(region));
    } else {
      same->shapes.push_back(region.shapes.front());
    }
  }
  regions = std::move(joined);
}

std::vector<Range> box_in(const Space& space, const Region& region, Shape shape) {
  std::vector<Range> box = space.whole(shape);
  const std::vector<Dimension>& to = space.dimensions(shape);
  for (const auto& [dimension, range] : region.demands) {
    const auto at = std::find(to.begin(), to.end(), dimension);
    box[static_cast<size_t>(at - to.begin())] = range;
  }
  return box;
}

}  // namespace qimctl
