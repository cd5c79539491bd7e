// Boxes, and what of one is left when others are taken away.
#include "policy/analysis/box.h"

#include <algorithm>

namespace qimctl {

namespace {

bool ranges_overlap(bool masked, const Range& a, const Range& b) {
  if (masked) return ((a.first.low ^ b.first.low) & a.last.low & b.last.low) == 0;
  return a.first <= b.last && b.first <= a.last;
}

// The values without one of the bits that `by` asks for, for each of them.
void cut_masked(std::vector<Range>& box, size_t dimension, const Range& by, Boxes& pieces) {
  Range& range = box[dimension];
  for (uint64_t bits = by.last.low & ~range.last.low; bits != 0; bits &= bits - 1) {
    const uint64_t bit = bits & ~(bits - 1);
    range.last.low |= bit;
    range.first.low |= ~by.first.low & bit;
    pieces.add(box);
    range.first.low ^= bit;
  }
}

void cut_range(std::vector<Range>& box, size_t dimension, const Range& by, Boxes& pieces) {
  Range& range = box[dimension];
  const Range whole = range;
  if (whole.first < by.first) {
    range.last = previous(by.first);
    pieces.add(box);
    range = {by.first, whole.last};
  }
  if (by.last < whole.last) {
    range.first = next(by.last);
    pieces.add(box);
    range = {std::max(whole.first, by.first), by.last};
  }
}

}  // namespace

bool overlap(const Masked& masked, Box a, Box b) {
  for (size_t i = 0; i < a.size(); i++) {
    if (!ranges_overlap(masked[i], a[i], b[i])) return false;
  }
  return true;
}

bool contains(const Masked& masked, Box a, Box b) {
  for (size_t i = 0; i < a.size(); i++) {
    const bool inside =
        masked[i] ? (a[i].last.low & ~b[i].last.low) == 0 && ranges_overlap(true, a[i], b[i])
                  : a[i].first <= b[i].first && b[i].last <= a[i].last;
    if (!inside) return false;
  }
  return true;
}

void cut(const Masked& masked, std::vector<Range>& box, Box by, Boxes& pieces) {
  for (size_t i = 0; i < box.size(); i++) {
    if (masked[i]) {
      cut_masked(box, i, by[i], pieces);
    } else {
      cut_range(box, i, by[i], pieces);
    }
  }
}

Walk walk_uncovered(const Masked& masked, Box box, const std::vector<Box>& rules, Effort& effort,
                    const std::function<bool(Box)>& visit, const std::function<void(size_t)>& met) {
  Boxes pieces(box.size());
  std::vector<size_t> pending;  // the rule from which on each piece is still to be compared
  pieces.add(box);
  pending.push_back(0);
  while (!pending.empty()) {
    std::vector<Range> piece = pieces.take(pieces.size() - 1);
    size_t rule = pending.back();
    pieces.pop();
    pending.pop_back();
    while (rule < rules.size() && !overlap(masked, piece, rules[rule])) {
      if (!effort.spend()) return Walk::gave_up;
      rule++;
    }
    if (rule == rules.size()) {
      if (!visit(piece)) return Walk::stopped;
      continue;
    }
    if (!effort.spend()) return Walk::gave_up;
    if (met) met(rule);
    cut(masked, piece, rules[rule], pieces);
    pending.resize(pieces.size(), rule + 1);
  }
  return Walk::finished;
}

}  // namespace qimctl
