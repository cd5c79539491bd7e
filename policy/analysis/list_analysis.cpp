// Searching an access list for entries that do nothing, or not what they seem to.
#include "policy/analysis/list_analysis.h"

#include <algorithm>
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
  Candidates candidates(Shape shape, Box box, size_t from, size_t to) const;
  // What becomes of the piece of an entry behind it: none of it may be decided otherwise.
  Walk stays_same(Shape shape, size_t entry, Box box, std::vector<bool>& used);
  Walk decided_same(Shape shape, size_t entry, Box box, std::vector<bool>& used);
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

Candidates Analysis::candidates(Shape shape, Box box, size_t from, size_t to) const {
  Candidates found;
  for (size_t entry = from; entry < to; entry++) {
    if (removed_[entry]) continue;
    for (size_t i = 0; i < rules_.count(shape, entry); i++) {
      const Box other = rules_.box(shape, entry, i);
      if (!overlap(space_.masked(shape), box, other)) continue;
      found.boxes.push_back(other);
      found.entries.push_back(entry);
    }
  }
  return found;
}

std::optional<size_t> Analysis::find_container(size_t entry) const {
  for (size_t other = 0; other < entry; other++) {
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
      const Candidates before = candidates(shape, box, 0, entry);
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

Walk Analysis::decided_same(Shape shape, size_t entry, Box box, std::vector<bool>& used) {
  const Candidates behind = candidates(shape, box, entry + 1, entries_.size());
  Boxes pieces(box.size());
  std::vector<size_t> from{0};
  pieces.add(box);
  while (pieces.size() != 0) {
    std::vector<Range> piece = pieces.take(pieces.size() - 1);
    size_t rule = from.back();
    pieces.pop();
    from.pop_back();
    while (rule < behind.boxes.size() &&
           !overlap(space_.masked(shape), piece, behind.boxes[rule])) {
      if (!effort_.spend()) return Walk::gave_up;
      rule++;
    }
    const bool at_end = rule == behind.boxes.size();
    if (at_end && !(default_ && *default_ == verdicts_[entry])) return Walk::stopped;
    if (at_end) continue;
    const size_t other = behind.entries[rule];
    if (verdicts_[other] != verdicts_[entry]) return Walk::stopped;
    used[other] = true;
    if (!effort_.spend()) return Walk::gave_up;
    cut(space_.masked(shape), piece, behind.boxes[rule], pieces);
    from.resize(pieces.size(), rule + 1);
  }
  return Walk::finished;
}

Walk Analysis::stays_same(Shape shape, size_t entry, Box box, std::vector<bool>& used) {
  const Candidates before = candidates(shape, box, 0, entry);
  Walk result = Walk::finished;
  const Walk walk =
      walk_uncovered(space_.masked(shape), box, before.boxes, effort_, [&](Box piece) {
        result = decided_same(shape, entry, piece, used);
        return result == Walk::finished;
      });
  return walk == Walk::stopped ? result : walk;
}

void Analysis::find_redundant(size_t entry) {
  std::vector<bool> used(entries_.size());
  for (const Shape shape : all_shapes) {
    for (size_t i = 0; i < rules_.count(shape, entry); i++) {
      const Walk walk = stays_same(shape, entry, rules_.box(shape, entry, i), used);
      if (walk == Walk::stopped) return;
      if (walk == Walk::finished) continue;
      return add(EntryFault::gave_up, entry, {});
    }
  }
  removed_[entry] = true;
  std::vector<size_t> others;
  for (size_t other = 0; other < used.size(); other++)
    if (used[other]) others.push_back(other);
  add(EntryFault::redundant, entry, std::move(others));
}

void Analysis::find_conflicts(size_t entry) {
  std::vector<size_t> others;
  for (size_t other = 0; other < entry; other++) {
    if (removed_[other] || verdicts_[other].forwarding == verdicts_[entry].forwarding) continue;
    if (rules_.overlap(other, entry) && !rules_.contains(other, entry) &&
        !rules_.contains(entry, other))
      others.push_back(other);
  }
  if (!others.empty()) add(EntryFault::conflict, entry, std::move(others));
}

void Analysis::find_undecided(size_t entry) {
  if (!is_open(*entries_[entry])) return;
  std::vector<size_t> others;
  for (size_t other = entry + 1; other < entries_.size(); other++) {
    if (verdicts_[other] != verdicts_[entry] && rules_.overlap(other, entry))
      others.push_back(other);
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
