// Searching an access list for entries that do nothing, or not what they seem to.
#include "policy/analysis/list_analysis.h"

#include <algorithm>
#include <bit>
#include <optional>

#include "policy/analysis/rules.h"
#include "policy/base/criteria.h"
#include "policy/trace/evaluate.h"

namespace qimctl {

namespace {

std::vector<const Entry*> entries_of(const AccessList& list) {
  std::vector<const Entry*> entries;
  for (const Entry& entry : list.entries) entries.push_back(&entry);
  return entries;
}

bool is_open(const Entry& entry) {
  return std::any_of(entry.criteria.begin(), entry.criteria.end(), [](const Criterion& criterion) {
    return to_condition(criterion).kind == Condition::Kind::undecided;
  });
}

// The boxes of some entries in one shape, as far as they overlap a box, and whose each is.
struct Candidates {
  std::vector<Box> boxes;
  std::vector<size_t> entries;
};

class Analysis {
 public:
  Analysis(const AccessList& list, bool hands_on, const AnalysisLimits& limits)
      : entries_(entries_of(list)),
        space_(entries_),
        rules_(space_, entries_),
        effort_(limits.total, limits.each),
        removed_(entries_.size()),
        unknown_(entries_.size()) {
    for (const Entry* entry : entries_) verdicts_.push_back(verdict_of(*entry));
    if (!hands_on) default_ = Verdict{list.default_action, false, {}};
  }

  ListAnalysis run();

 private:
  void find_shadowed(size_t entry);
  void find_redundant(size_t entry);
  void find_conflicts(size_t entry);
  void find_undecided(size_t entry);
  std::optional<size_t> find_container(size_t entry) const;
  Candidates candidates(Shape shape, Box box, size_t end, size_t but) const;
  Walk decided_by_others(Shape shape, size_t entry, Box box, std::vector<size_t>& used);
  // Does the entry behind it decide anything of the box when this one is gone? `stopped`: it does.
  Walk decides(Shape shape, size_t entry, Box box, uint32_t behind);
  void add(EntryFault fault, size_t entry, std::vector<size_t> others, bool same = true);
  std::string why_impossible(size_t entry) const;

  std::vector<const Entry*> entries_;
  Space space_;
  RuleBoxes rules_;
  Effort effort_;
  std::vector<Verdict> verdicts_;
  std::optional<Verdict> default_;  // nothing: another list may be asked
  std::vector<bool> removed_;       // shadowed, or redundant
  std::vector<bool> unknown_;       // given up
  ListAnalysis found_;
};

void Analysis::add(EntryFault fault, size_t entry, std::vector<size_t> others, bool same) {
  std::sort(others.begin(), others.end());
  others.erase(std::unique(others.begin(), others.end()), others.end());
  found_.findings.push_back({fault, entry, std::move(others), same, ""});
}

std::string Analysis::why_impossible(size_t entry) const {
  for (const Criterion& criterion : entries_[entry]->criteria) {
    Entry alone;
    alone.criteria = {criterion};
    const std::vector<const Entry*> one{&alone};
    const Space space(one);
    if (RuleBoxes(space, one).shapes(0) == 0)
      return "no packet has " + criterion_text(criterion.type, criterion.args);
  }
  return "its matches exclude each other";
}

// Of the entries before `end`, but for one.
Candidates Analysis::candidates(Shape shape, Box box, size_t end, size_t but) const {
  Candidates found;
  for (const uint32_t number : rules_.overlapping(shape, box)) {
    const size_t entry = rules_.owner(shape, number);
    if (entry >= end) break;
    if (removed_[entry] || entry == but) continue;
    found.boxes.push_back(rules_.numbered(shape, number));
    found.entries.push_back(entry);
  }
  return found;
}

// What holds the entry holds any of its boxes.
std::optional<size_t> Analysis::find_container(size_t entry) const {
  const auto shape = static_cast<Shape>(std::countr_zero(rules_.shapes(entry)));
  for (const uint32_t number : rules_.overlapping(shape, rules_.box(shape, entry, 0))) {
    const size_t other = rules_.owner(shape, number);
    if (other >= entry) break;
    if (!removed_[other] && rules_.contains(other, entry)) return other;
  }
  return {};
}

void Analysis::find_shadowed(size_t entry) {
  if (const auto container = find_container(entry)) {
    removed_[entry] = true;
    return add(EntryFault::shadowed, entry, {*container},
               verdicts_[*container] == verdicts_[entry]);
  }
  std::vector<size_t> others;
  for (const Shape shape : all_shapes) {
    for (size_t i = 0; i < rules_.count(shape, entry); i++) {
      const Box box = rules_.box(shape, entry, i);
      const Candidates before = candidates(shape, box, entry, entry);
      const auto met = [&](size_t rule) { others.push_back(before.entries[rule]); };
      const Walk walk = walk_uncovered(
          space_.masked(shape), box, before.boxes, effort_, [](Box) { return false; }, met);
      if (walk == Walk::stopped) return;
      if (walk == Walk::finished) continue;
      unknown_[entry] = true;
      return add(EntryFault::gave_up, entry, {});
    }
  }
  removed_[entry] = true;
  const bool same = std::all_of(others.begin(), others.end(),
                                [&](size_t other) { return verdicts_[other] == verdicts_[entry]; });
  add(EntryFault::shadowed, entry, std::move(others), same);
}

Walk Analysis::decides(Shape shape, size_t entry, Box box, uint32_t behind) {
  const Box other = rules_.numbered(shape, behind);
  std::vector<Range> both(box.begin(), box.end());
  Boxes outside(box.size());
  cut(space_.masked(shape), both, other, outside);
  const Candidates first = candidates(shape, both, rules_.owner(shape, behind), entry);
  return walk_uncovered(space_.masked(shape), both, first.boxes, effort_,
                        [](Box) { return false; });
}

// Those that decide otherwise are asked first, for the first that decides anything ends the search.
Walk Analysis::decided_by_others(Shape shape, size_t entry, Box box, std::vector<size_t>& used) {
  std::vector<uint32_t> same;
  for (const uint32_t number : rules_.overlapping(shape, box)) {
    const size_t other = rules_.owner(shape, number);
    if (other <= entry || removed_[other]) continue;
    if (verdicts_[other] == verdicts_[entry]) {
      same.push_back(number);
      continue;
    }
    const Walk walk = decides(shape, entry, box, number);
    if (walk != Walk::finished) return walk;
  }
  if (!default_ || *default_ != verdicts_[entry]) {
    const Candidates all = candidates(shape, box, entries_.size(), entry);
    const Walk walk =
        walk_uncovered(space_.masked(shape), box, all.boxes, effort_, [](Box) { return false; });
    if (walk != Walk::finished) return walk;
  }
  for (const uint32_t number : same) {
    const Walk walk = decides(shape, entry, box, number);
    if (walk == Walk::gave_up) return walk;
    if (walk == Walk::stopped) used.push_back(rules_.owner(shape, number));
  }
  return Walk::finished;
}

void Analysis::find_redundant(size_t entry) {
  std::vector<size_t> used;
  for (const Shape shape : all_shapes) {
    for (size_t i = 0; i < rules_.count(shape, entry); i++) {
      const Walk walk = decided_by_others(shape, entry, rules_.box(shape, entry, i), used);
      if (walk == Walk::stopped) return;
      if (walk == Walk::finished) continue;
      return add(EntryFault::gave_up, entry, {});
    }
  }
  removed_[entry] = true;
  add(EntryFault::redundant, entry, std::move(used));
}

void Analysis::find_conflicts(size_t entry) {
  std::vector<size_t> others;
  for (const size_t other : rules_.overlapping(entry)) {
    if (other >= entry) break;
    if (removed_[other] || verdicts_[other].forwarding == verdicts_[entry].forwarding) continue;
    if (!rules_.contains(other, entry) && !rules_.contains(entry, other)) others.push_back(other);
  }
  if (!others.empty()) add(EntryFault::conflict, entry, std::move(others));
}

void Analysis::find_undecided(size_t entry) {
  if (!is_open(*entries_[entry])) return;
  std::vector<size_t> others;
  for (const size_t other : rules_.overlapping(entry)) {
    if (other > entry && verdicts_[other] != verdicts_[entry]) others.push_back(other);
  }
  if (!others.empty()) add(EntryFault::undecided, entry, std::move(others));
}

ListAnalysis Analysis::run() {
  for (size_t entry = 0; entry < entries_.size(); entry++) {
    if (rules_.shapes(entry) == 0) {
      removed_[entry] = true;
      add(EntryFault::impossible, entry, {});
      found_.findings.back().what = why_impossible(entry);
      continue;
    }
    effort_.begin();
    find_shadowed(entry);
  }
  for (size_t entry = 0; entry < entries_.size(); entry++) {
    if (removed_[entry] || unknown_[entry]) continue;
    effort_.begin();
    find_redundant(entry);
  }
  for (size_t entry = 0; entry < entries_.size(); entry++) {
    if (removed_[entry]) continue;
    find_conflicts(entry);
    find_undecided(entry);
  }
  std::stable_sort(found_.findings.begin(), found_.findings.end(),
                   [](const EntryFinding& a, const EntryFinding& b) { return a.entry < b.entry; });
  return std::move(found_);
}

}  // namespace

const char* fault_name(EntryFault fault) {
  switch (fault) {
    case EntryFault::impossible:
      return "impossible";
    case EntryFault::shadowed:
      return "shadowed";
    case EntryFault::redundant:
      return "redundant";
    case EntryFault::conflict:
      return "conflict";
    case EntryFault::undecided:
      return "undecided";
    case EntryFault::gave_up:
      break;
  }
  return "gave_up";
}

ListAnalysis analyse_list(const AccessList& list, bool hands_on, const AnalysisLimits& limits) {
  return Analysis(list, hands_on, limits).run();
}

bool is_attached(const Model& model, const AccessList& list) {
  return std::any_of(model.attachments.begin(), model.attachments.end(),
                     [&list](const Attachment& each) { return each.list == list.name; });
}

bool hands_on(const Model& model, const AccessList& list) {
  return std::any_of(
      model.attachments.begin(), model.attachments.end(), [&](const Attachment& here) {
        return here.list == list.name && lists_at(model, here.interface, here.dir).back() != &list;
      });
}

}  // namespace qimctl
