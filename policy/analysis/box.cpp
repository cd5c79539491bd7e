// Boxes, and what of one is left when others are taken away.
#include "policy/analysis/box.h"

#include <algorithm>
#include <memory>
#include <numeric>
#include <utility>

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

namespace {

// A piece that is still to be compared with the rules of `rules` from `next` on. Those that were cut out
// of one box share them: what does not overlap the box overlaps none of its pieces.
struct Pending {
  std::vector<Range> piece;
  std::shared_ptr<const std::vector<uint32_t>> rules;
  size_t next = 0;
};

// Leaves of the rules only those that overlap the piece. False when that takes too long.
bool narrow(const Masked& masked, const std::vector<Box>& rules, Effort& effort, Pending& pending) {
  auto near = std::make_shared<std::vector<uint32_t>>();
  for (size_t i = pending.next; i < pending.rules->size(); i++) {
    if (!effort.spend()) return false;
    const uint32_t rule = (*pending.rules)[i];
    if (overlap(masked, pending.piece, rules[rule])) near->push_back(rule);
  }
  pending.rules = std::move(near);
  pending.next = 0;
  return true;
}

}  // namespace

Walk walk_uncovered(const Masked& masked, Box box, const std::vector<Box>& rules, Effort& effort,
                    const std::function<bool(Box)>& visit, const std::function<void(size_t)>& met) {
  auto all = std::make_shared<std::vector<uint32_t>>(rules.size());
  std::iota(all->begin(), all->end(), 0u);
  std::vector<Pending> open;
  open.push_back({{box.begin(), box.end()}, std::move(all)});
  while (!open.empty()) {
    Pending pending = std::move(open.back());
    open.pop_back();
    if (!narrow(masked, rules, effort, pending)) return Walk::gave_up;
    if (pending.rules->empty()) {
      if (!visit(pending.piece)) return Walk::stopped;
      continue;
    }
    const uint32_t rule = pending.rules->front();
    if (met) met(rule);
    Boxes outside(pending.piece.size());
    cut(masked, pending.piece, rules[rule], outside);
    for (size_t i = 0; i < outside.size(); i++) open.push_back({outside.take(i), pending.rules, 1});
  }
  return Walk::finished;
}

}  // namespace qimctl
