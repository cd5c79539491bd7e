// Finding the boxes that overlap a box.
#include "policy/analysis/box_index.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace qimctl {

BoxIndex::BoxIndex(Masked masked, const std::vector<Range>& whole, const Boxes& boxes)
    : masked_(std::move(masked)), boxes_(boxes) {
  std::vector<bool> asked(whole.size());
  for (size_t i = 0; i < boxes.size(); i++) {
    const Box box = boxes[i];
    for (size_t k = 0; k < whole.size(); k++) asked[k] = !masked_[k] && box[k] != whole[k];
    groups_[asked].numbers.push_back(static_cast<uint32_t>(i));
  }
  for (auto& [dimensions, group] : groups_) {
    if (group.numbers.size() <= few) continue;
    for (size_t k = 0; k < whole.size(); k++)
      if (dimensions[k]) group.lines.push_back(make_line(group, k));
  }
}

BoxIndex::Line BoxIndex::make_line(const Group& group, size_t dimension) const {
  Line line;
  line.dimension = dimension;
  line.numbers = group.numbers;
  std::sort(line.numbers.begin(), line.numbers.end(), [&](uint32_t a, uint32_t b) {
    return boxes_[a][dimension].first < boxes_[b][dimension].first;
  });
  const size_t size = std::bit_ceil(line.numbers.size());
  line.highest.resize(2 * size);
  for (size_t i = 0; i < line.numbers.size(); i++) {
    const Range& range = boxes_[line.numbers[i]][dimension];
    line.firsts.push_back(range.first);
    line.lasts.push_back(range.last);
    line.highest[size + i] = range.last;
  }
  for (size_t i = size - 1; i > 0; i--)
    line.highest[i] = std::max(line.highest[2 * i], line.highest[2 * i + 1]);
  std::sort(line.lasts.begin(), line.lasts.end());
  return line;
}

// All but those that begin behind the range and those that end before it.
size_t BoxIndex::Line::count(const Range& range) const {
  const auto begun = std::upper_bound(firsts.begin(), firsts.end(), range.last) - firsts.begin();
  const auto ended = std::lower_bound(lasts.begin(), lasts.end(), range.first) - lasts.begin();
  return static_cast<size_t>(begun - ended);
}

void BoxIndex::Line::collect(const Range& range, std::vector<uint32_t>& found) const {
  const size_t size = highest.size() / 2;
  const auto begun = static_cast<size_t>(
      std::upper_bound(firsts.begin(), firsts.end(), range.last) - firsts.begin());
  std::vector<std::pair<size_t, size_t>> open{{1, size}};  // a part of the heap and its width
  while (!open.empty()) {
    const auto [part, width] = open.back();
    open.pop_back();
    const size_t from = (part * width) & (size - 1);
    if (from >= begun || highest[part] < range.first) continue;
    if (width == 1) {
      found.push_back(numbers[from]);
      continue;
    }
    open.emplace_back(2 * part + 1, width / 2);
    open.emplace_back(2 * part, width / 2);
  }
}

std::vector<uint32_t> BoxIndex::overlapping(Box box) const {
  std::vector<uint32_t> found;
  std::vector<uint32_t> near;
  for (const auto& [dimensions, group] : groups_) {
    const Line* best = nullptr;
    size_t fewest = group.numbers.size();
    for (const Line& line : group.lines) {
      const size_t count = line.count(box[line.dimension]);
      if (count >= fewest) continue;
      fewest = count;
      best = &line;
    }
    near.clear();
    if (best != nullptr) best->collect(box[best->dimension], near);
    for (const uint32_t number : best == nullptr ? group.numbers : near)
      if (overlap(masked_, box, boxes_[number])) found.push_back(number);
  }
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace qimctl
