// Searching for packets that are decided differently.
//
// A packet that no changed entry matches is decided by the same entry on both sides, for the others are
// the same and in the same order. So only pairs of entries with different verdicts are looked at of
// which at least one is changed: of what both match, what entries before them match is taken away.
#include "policy/analysis/difference.h"

#include <algorithm>
#include <array>
#include <deque>
#include <iterator>
#include <map>
#include <utility>

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

// Of each entry of one side its place on the other, where it is the same in the same order; else none.
constexpr size_t none = SIZE_MAX;
using Partners = std::array<std::vector<size_t>, 2>;

Partners partners(const Side& before, const Side& after) {
  std::map<std::string, std::deque<size_t>> places;
  for (size_t i = 0; i < after.entries.size(); i++) places[content(*after.entries[i])].push_back(i);
  std::vector<size_t> kept;
  std::vector<size_t> kept_places;
  for (size_t i = 0; i < before.entries.size(); i++) {
    std::deque<size_t>& there = places[content(*before.entries[i])];
    if (there.empty()) continue;
    kept.push_back(i);
    kept_places.push_back(there.front());
    there.pop_front();
  }
  Partners found{std::vector<size_t>(before.entries.size(), none),
                 std::vector<size_t>(after.entries.size(), none)};
  const std::vector<bool> in_order = ascending_part(kept_places);
  for (size_t i = 0; i < kept.size(); i++) {
    if (!in_order[i]) continue;
    found[0][kept[i]] = kept_places[i];
    found[1][kept_places[i]] = kept[i];
  }
  return found;
}

class Search {
 public:
  Search(const Side& before, const Side& after, const DifferenceAt& at,
         const AnalysisLimits& limits)
      : sides_{&before, &after},
        partners_(partners(before, after)),
        space_(all(before, after), {at.ingress, at.egress}),
        rules_{RuleBoxes(space_, with_default(before)), RuleBoxes(space_, with_default(after))},
        effort_(limits.total, limits.total),
        most_pieces_(limits.pieces) {
    const bool same = before.otherwise == after.otherwise;
    partners_[0].push_back(same ? after.entries.size() : none);
    partners_[1].push_back(same ? before.entries.size() : none);
  }

  Differences run();

 private:
  using Key = std::pair<std::string, std::string>;
  // Packets of a shape that one entry decides on one side and another one on the other.
  struct Pair {
    Shape shape;
    std::array<size_t, 2> entries;
    std::array<Box, 2> boxes;
  };
  // The box of a pair of which too many pieces are left, and one of them.
  struct Rest {
    Key key;
    Shape shape;
    std::vector<Range> box;
    std::vector<Range> piece;
    size_t unless;
  };

  static std::vector<const Entry*> all(const Side& before, const Side& after) {
    std::vector<const Entry*> both = before.entries;
    both.insert(both.end(), after.entries.begin(), after.entries.end());
    return both;
  }
  // The default is what an entry behind all others that matches everything would be.
  std::vector<const Entry*> with_default(const Side& side) const {
    std::vector<const Entry*> entries = side.entries;
    entries.push_back(&everything_);
    return entries;
  }
  bool search(Shape shape, size_t side, size_t entry, Box box);
  bool compare(const Pair& pair);
  std::vector<Box> before(const Pair& pair, Box box) const;
  Verdict verdict(size_t side, size_t entry) const;
  void report(std::vector<DifferentRegion>& regions) const;
  void report_rests(std::vector<DifferentRegion>& regions) const;

  const Entry everything_{};
  std::array<const Side*, 2> sides_;
  Partners partners_;  // of the defaults, too
  Space space_;
  std::array<RuleBoxes, 2> rules_;
  Effort effort_;
  size_t most_pieces_;
  std::map<Key, std::array<std::vector<std::vector<Range>>, shape_count>> found_;
  std::vector<Rest> rests_;
  std::map<Key, std::pair<Verdict, Verdict>> verdicts_;
};

Verdict Search::verdict(size_t side, size_t entry) const {
  const Side& of = *sides_[side];
  return entry == of.entries.size() ? of.otherwise : verdict_of(*of.entries[entry]);
}

Differences Search::run() {
  effort_.begin();
  Differences differences;
  for (const Shape shape : all_shapes) {
    for (const size_t side : {size_t{0}, size_t{1}}) {
      for (size_t entry = 0; entry < partners_[side].size() && differences.complete; entry++) {
        if (partners_[side][entry] != none) continue;
        for (size_t i = 0; i < rules_[side].count(shape, entry) && differences.complete; i++)
          differences.complete = search(shape, side, entry, rules_[side].box(shape, entry, i));
      }
    }
  }
  report(differences.regions);
  report_rests(differences.regions);
  return differences;
}

// What a changed entry of one side decides, against what decides it on the other: an entry that is
// changed too, or one that has not been asked before it on its own side. False when that takes too long.
bool Search::search(Shape shape, size_t side, size_t entry, Box box) {
  const size_t other = 1 - side;
  for (const uint32_t number : rules_[other].overlapping(shape, box)) {
    const size_t there = rules_[other].owner(shape, number);
    const size_t partner = partners_[other][there];
    const bool once = partner == none ? side == 0 : partner > entry;
    if (!once || verdict(side, entry) == verdict(other, there)) continue;
    Pair pair{shape, {entry, there}, {box, rules_[other].numbered(shape, number)}};
    if (side == 1) {
      std::swap(pair.entries[0], pair.entries[1]);
      std::swap(pair.boxes[0], pair.boxes[1]);
    }
    if (!compare(pair)) return false;
  }
  return true;
}

// The boxes of all entries before those of the pair, on either side; what is the same on both once.
std::vector<Box> Search::before(const Pair& pair, Box box) const {
  std::vector<Box> boxes;
  for (const size_t side : {size_t{0}, size_t{1}}) {
    for (const uint32_t number : rules_[side].overlapping(pair.shape, box)) {
      const size_t entry = rules_[side].owner(pair.shape, number);
      if (entry >= pair.entries[side]) break;
      const size_t partner = partners_[side][entry];
      if (side == 1 && partner != none && partner < pair.entries[0]) continue;
      boxes.push_back(rules_[side].numbered(pair.shape, number));
    }
  }
  return boxes;
}

bool Search::compare(const Pair& pair) {
  const Masked& masked = space_.masked(pair.shape);
  std::vector<Range> both(pair.boxes[0].begin(), pair.boxes[0].end());
  Boxes outside(both.size());
  cut(masked, both, pair.boxes[1], outside);
  const std::vector<Box> rules = before(pair, both);
  std::vector<std::vector<Range>> pieces;
  const Walk walk = walk_uncovered(masked, both, rules, effort_, [&](Box piece) {
    pieces.emplace_back(piece.begin(), piece.end());
    return pieces.size() <= most_pieces_;
  });
  if (pieces.empty()) return walk != Walk::gave_up;
  const std::pair verdicts{verdict(0, pair.entries[0]), verdict(1, pair.entries[1])};
  const Key key{verdict_text(verdicts.first), verdict_text(verdicts.second)};
  verdicts_[key] = verdicts;
  if (walk != Walk::finished) {
    rests_.push_back({key, pair.shape, std::move(both), std::move(pieces.front()), rules.size()});
    return walk == Walk::stopped;
  }
  std::vector<std::vector<Range>>& found = found_[key][static_cast<size_t>(pair.shape)];
  std::move(pieces.begin(), pieces.end(), std::back_inserter(found));
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
      regions.push_back({before, after, region, 0, space_.words(region.shapes, region.box),
                         packet_words(space_.example(shape, box))});
    }
  }
}

void Search::report_rests(std::vector<DifferentRegion>& regions) const {
  for (const Rest& rest : rests_) {
    const auto& [before, after] = verdicts_.at(rest.key);
    regions.push_back({before, after, to_region(space_, rest.shape, rest.box), rest.unless,
                       space_.words({rest.shape}, rest.box) + ", where none of the " +
                           std::to_string(rest.unless) + " entries before matches",
                       packet_words(space_.example(rest.shape, rest.piece))});
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
