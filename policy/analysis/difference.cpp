// Searching for packets that are decided differently.
//
// A packet that no changed entry matches is decided by the same entry on both sides, for the others are
// the same and in the same order. So only the boxes of changed entries are searched: each is cut by the
// entries of both sides until a piece has one verdict on each.
#include "policy/analysis/difference.h"

#include <algorithm>
#include <deque>
#include <map>
#include <set>

#include "policy/analysis/regions.h"
#include "policy/base/dsetname.h"
#include "policy/model/words.h"
#include "policy/trace/packet_words.h"

namespace qimctl {

namespace {

// The entries of lists that are asked one after the other, as those of one.
struct Side {
  explicit Side(const Lists& lists) {
    for (const AccessList* list : lists) {
      for (const Entry& entry : list->entries) entries.push_back(&entry);
    }
    otherwise.forwarding = lists.empty() ? ActionType::accept : lists.back()->default_action;
  }

  std::vector<const Entry*> entries;
  Verdict otherwise;
};

// What an entry matches and does, as a text that is the same for those that do the same.
std::string content(const Entry& entry) {
  std::string text = verdict_text(verdict_of(entry));
  for (const Criterion& criterion : entry.criteria) {
    if (criterion.type == criterion_name) continue;
    text +=
        '\n' + std::to_string(criterion.type) + ' ' + std::to_string(criterion.args.size()) + ' ';
    text.append(criterion.args.begin(), criterion.args.end());
  }
  return text;
}

// Of a sequence of places the longest part that ascends, as marks.
std::vector<bool> ascending_part(const std::vector<size_t>& places) {
  std::vector<size_t> tails;  // the last of the best sequence of each length
  std::vector<size_t> previous_of(places.size());
  for (size_t i = 0; i < places.size(); i++) {
    const auto tail =
        std::lower_bound(tails.begin(), tails.end(), i,
                         [&places](size_t a, size_t b) { return places[a] < places[b]; });
    previous_of[i] = tail == tails.begin() ? i : *(tail - 1);
    if (tail == tails.end()) {
      tails.push_back(i);
    } else {
      *tail = i;
    }
  }
  std::vector<bool> marks(places.size());
  for (size_t i = tails.empty() ? places.size() : tails.back(); i < places.size();) {
    marks[i] = true;
    i = previous_of[i] == i ? places.size() : previous_of[i];
  }
  return marks;
}

// The entries of both sides that are not the same in the same order.
std::vector<const Entry*> changed_entries(const Side& before, const Side& after) {
  std::map<std::string, std::deque<size_t>> places;
  for (size_t i = 0; i < after.entries.size(); i++) places[content(*after.entries[i])].push_back(i);
  std::vector<const Entry*> changed;
  std::vector<const Entry*> kept;
  std::vector<size_t> kept_places;
  for (const Entry* entry : before.entries) {
    std::deque<size_t>& there = places[content(*entry)];
    if (there.empty()) {
      changed.push_back(entry);
      continue;
    }
    kept.push_back(entry);
    kept_places.push_back(there.front());
    there.pop_front();
  }
  const std::vector<bool> in_order = ascending_part(kept_places);
  std::set<size_t> same;
  for (size_t i = 0; i < kept.size(); i++) {
    if (in_order[i]) {
      same.insert(kept_places[i]);
    } else {
      changed.push_back(kept[i]);
    }
  }
  for (size_t i = 0; i < after.entries.size(); i++)
    if (!same.contains(i)) changed.push_back(after.entries[i]);
  return changed;
}

// One side's boxes in a shape, and whose they are.
struct SideBoxes {
  std::vector<Box> boxes;
  std::vector<size_t> entries;
};

class Search {
 public:
  Search(const Side& before, const Side& after, const DifferenceAt& at,
         const AnalysisLimits& limits)
      : sides_{&before, &after},
        changed_(changed_entries(before, after)),
        space_(all(before, after), {at.ingress, at.egress}),
        rules_{RuleBoxes(space_, before.entries), RuleBoxes(space_, after.entries)},
        effort_(limits.total, limits.total) {
    if (before.otherwise != after.otherwise) changed_.push_back(&everything_);
  }

  Differences run();

 private:
  using Key = std::pair<std::string, std::string>;
  struct Piece {
    std::vector<Range> box;
    size_t side = 0;  // that is to be asked
    size_t rule = 0;  // from here on
    size_t before = 0;
  };

  static std::vector<const Entry*> all(const Side& before, const Side& after) {
    std::vector<const Entry*> both = before.entries;
    both.insert(both.end(), after.entries.begin(), after.entries.end());
    return both;
  }
  void search(Shape shape);
  bool decide(Shape shape, Box whole);
  SideBoxes side_boxes(Shape shape, size_t side, Box box) const;
  Verdict verdict(size_t side, size_t entry) const;
  void report(std::vector<DifferentRegion>& regions) const;

  static constexpr size_t none = SIZE_MAX;
  Entry everything_;
  std::array<const Side*, 2> sides_;
  std::vector<const Entry*> changed_;
  Space space_;
  std::array<RuleBoxes, 2> rules_;
  Effort effort_;
  std::map<Key, std::array<std::vector<std::vector<Range>>, shape_count>> found_;
  std::map<Key, std::pair<Verdict, Verdict>> verdicts_;
  bool complete_ = true;
};

Verdict Search::verdict(size_t side, size_t entry) const {
  return entry == none ? sides_[side]->otherwise : verdict_of(*sides_[side]->entries[entry]);
}

SideBoxes Search::side_boxes(Shape shape, size_t side, Box box) const {
  SideBoxes found;
  const RuleBoxes& rules = rules_[side];
  for (size_t rule = 0; rule < rules.size(); rule++) {
    for (size_t i = 0; i < rules.count(shape, rule); i++) {
      if (!overlap(space_.masked(shape), box, rules.box(shape, rule, i))) continue;
      found.boxes.push_back(rules.box(shape, rule, i));
      found.entries.push_back(rule);
    }
  }
  return found;
}

Differences Search::run() {
  effort_.begin();
  for (const Shape shape : all_shapes) search(shape);
  Differences differences;
  differences.complete = complete_;
  report(differences.regions);
  return differences;
}

void Search::search(Shape shape) {
  Boxes regions(space_.dimensions(shape).size());
  for (const Entry* entry : changed_) {
    const Boxes boxes = space_.boxes(shape, *entry);
    for (size_t i = 0; i < boxes.size(); i++) regions.add(boxes[i]);
  }
  std::vector<Box> done;
  for (size_t i = 0; i < regions.size() && complete_; i++) {
    const Walk walk = walk_uncovered(space_.masked(shape), regions[i], done, effort_,
                                     [&](Box box) { return decide(shape, box); });
    complete_ = walk == Walk::finished;
    done.push_back(regions[i]);
  }
}

// Cuts a box until each piece has one verdict on either side. False when that takes too long.
bool Search::decide(Shape shape, Box whole) {
  const std::array rules{side_boxes(shape, 0, whole), side_boxes(shape, 1, whole)};
  const Masked& masked = space_.masked(shape);
  std::vector<Piece> pieces{{{whole.begin(), whole.end()}, 0, 0, none}};
  while (!pieces.empty()) {
    Piece piece = std::move(pieces.back());
    pieces.pop_back();
    const SideBoxes& asked = rules[piece.side];
    while (piece.rule < asked.boxes.size() &&
           !overlap(masked, piece.box, asked.boxes[piece.rule])) {
      if (!effort_.spend()) return false;
      piece.rule++;
    }
    size_t entry = none;
    if (piece.rule < asked.boxes.size()) {
      if (!effort_.spend()) return false;
      entry = asked.entries[piece.rule];
      Boxes outside(piece.box.size());
      cut(masked, piece.box, asked.boxes[piece.rule], outside);
      for (size_t i = 0; i < outside.size(); i++)
        pieces.push_back({outside.take(i), piece.side, piece.rule + 1, piece.before});
    }
    if (piece.side == 0) {
      pieces.push_back({std::move(piece.box), 1, 0, entry});
      continue;
    }
    const Verdict before = verdict(0, piece.before);
    const Verdict after = verdict(1, entry);
    if (before == after) continue;
    const Key key{verdict_text(before), verdict_text(after)};
    verdicts_[key] = {before, after};
    found_[key][static_cast<size_t>(shape)].push_back(std::move(piece.box));
  }
  return true;
}

void Search::report(std::vector<DifferentRegion>& regions) const {
  for (const auto& [key, by_shape] : found_) {
    std::vector<Region> of_key;
    for (const Shape shape : all_shapes) {
      std::vector<std::vector<Range>> boxes = by_shape[static_cast<size_t>(shape)];
      join_boxes(space_.masked(shape), boxes);
      for (std::vector<Range>& box : boxes)
        of_key.push_back(to_region(space_, shape, std::move(box)));
    }
    join_shapes(of_key);
    const auto& [before, after] = verdicts_.at(key);
    for (const Region& region : of_key) {
      // Of all that are the same a packet with ports is the one that people think of.
      const auto tcp = std::find_if(region.shapes.begin(), region.shapes.end(), [](Shape shape) {
        return shape_transport(shape) == Header::tcp;
      });
      const Shape shape = tcp == region.shapes.end() ? region.shapes.front() : *tcp;
      const std::vector<Range> box = box_in(space_, region, shape);
      regions.push_back({before, after, region, space_.words(region.shapes, region.box),
                         packet_words(space_.example(shape, box))});
    }
  }
}

// The lists of the policy's own that are asked at each place: "if:eth0/in", and the names of lists that
// are attached nowhere.
struct PlaceLists {
  DifferenceAt at;
  std::array<Lists, 2> lists;
};

void note_places(const Model& model, size_t side, std::map<std::string, PlaceLists>& places) {
  for (const Attachment& attachment : model.attachments) {
    PlaceLists& place = places[attachment_text(attachment)];
    const bool in = attachment.dir == QIM_DIR_IN;
    (in ? place.at.ingress : place.at.egress) = attachment.interface;
    if (place.lists[side].empty())
      place.lists[side] = lists_at(model, attachment.interface, attachment.dir);
  }
}

// Lists that both have and that are attached nowhere: what they would decide counts, too.
void note_idle_lists(const Model& before, const Model& after,
                     std::map<std::string, PlaceLists>& places) {
  for (const AccessList& list : before.lists) {
    const AccessList* other = find_list(after, list.name);
    if (other == nullptr || is_attached(before, list) || is_attached(after, *other)) continue;
    places["list " + name_word(list.name)].lists = {Lists{&list}, Lists{other}};
  }
}

}  // namespace

Differences semantic_difference(const Lists& before, const Lists& after, const DifferenceAt& at,
                                const AnalysisLimits& limits) {
  const Side first(before);
  const Side second(after);
  return Search(first, second, at, limits).run();
}

std::vector<PlaceDifference> semantic_difference(const Model& before, const Model& after,
                                                 const AnalysisLimits& limits) {
  std::map<std::string, PlaceLists> places;
  note_places(before, 0, places);
  note_places(after, 1, places);
  note_idle_lists(before, after, places);
  std::vector<PlaceDifference> found;
  for (const auto& [name, place] : places) {
    Differences differences = semantic_difference(place.lists[0], place.lists[1], place.at, limits);
    if (!differences.regions.empty() || !differences.complete)
      found.push_back({name, std::move(differences)});
  }
  return found;
}

}  // namespace qimctl
