// Changes in words.
#include "policy/change/words.h"

#include <algorithm>

#include "policy/base/criteria.h"
#include "policy/base/text.h"
#include "policy/model/words.h"

namespace qimctl {

namespace {

std::string entry_words(const Entry& entry) {
  return criteria_words(entry) + ": " + action_words(entry);
}

std::string place_words(const Attachment& place) {
  return printable(attachment_text(place));
}

// Clauses with commas or semicolons between them.
class Clauses {
 public:
  void add(const std::string& clause, const char* separator = ", ") {
    if (!text_.empty()) text_ += separator;
    text_ += clause;
  }
  std::string text() const { return text_; }

 private:
  std::string text_;
};

void add_entries(const ListChange& list, Clauses& clauses) {
  struct Kind {
    EntryFate fate;
    const char* word;
  };
  constexpr Kind kinds[] = {{EntryFate::added, "added"},
                            {EntryFate::removed, "removed"},
                            {EntryFate::changed, "changed"},
                            {EntryFate::moved, "moved"}};
  bool first = true;
  for (const Kind& kind : kinds) {
    const auto count = std::count_if(list.entries.begin(), list.entries.end(),
                                     [&](const EntryChange& one) { return one.fate == kind.fate; });
    if (count == 0) continue;
    const auto number = static_cast<uint64_t>(count);
    const std::string amount = std::to_string(number);
    const std::string entries = number == 1 ? "1 entry" : amount + " entries";
    clauses.add((first ? entries : amount) + " " + kind.word);
    first = false;
  }
}

void add_places(const ListChange& list, Clauses& clauses) {
  struct Kind {
    PlaceFate fate;
    const char* words;
  };
  constexpr Kind kinds[] = {{PlaceFate::added, "attached to"},
                            {PlaceFate::removed, "detached from"},
                            {PlaceFate::moved, "asked in another order at"},
                            {PlaceFate::renumbered, "stage numbered anew at"}};
  for (const Kind& kind : kinds) {
    Clauses places;
    for (const PlaceChange& place : list.places) {
      if (place.fate == kind.fate) places.add(place_words(place.place));
    }
    if (!places.text().empty()) clauses.add(kind.words + (" " + places.text()), "; ");
  }
}

std::string added_summary(const ListChange& list) {
  const size_t count = list.after->entries.size();
  Clauses clauses;
  clauses.add("added with " + (count == 1 ? "1 entry" : std::to_string(count) + " entries"));
  add_places(list, clauses);
  return clauses.text();
}

void add_line(char sign, const std::string& name, const std::string& what,
              std::vector<DifferenceLine>& lines) {
  lines.push_back({sign, name, what});
}

// Says which entry an entry stands behind now.
std::string moved_words(const AccessList& list, size_t to) {
  return to == 0 ? "moved to the front" : "moved behind " + name_word(list.entries[to - 1].name);
}

void add_entry(const ListChange& list, const EntryChange& entry, const std::string& list_name,
               std::vector<DifferenceLine>& lines) {
  const bool gone = entry.fate == EntryFate::removed;
  const Entry& named = gone ? list.before->entries[entry.from] : list.after->entries[entry.to];
  const std::string name = list_name + "/" + name_word(named.name);
  if (gone) return add_line('-', name, entry_words(named), lines);
  if (entry.fate == EntryFate::added) return add_line('+', name, entry_words(named), lines);
  std::string what = entry.moved ? moved_words(*list.after, entry.to) : "";
  if (entry.fate == EntryFate::changed) {
    what += entry.moved ? "; " : "";
    what += entry_words(list.before->entries[entry.from]) + " => " + entry_words(named);
  }
  add_line('~', name, what, lines);
}

void add_whole(char sign, const AccessList& list, std::vector<DifferenceLine>& lines) {
  const std::string name = name_word(list.name);
  add_line(sign, name, "type " + list_type_words(list.type) + ", default " + default_words(list),
           lines);
  for (const Entry& entry : list.entries)
    add_line(sign, name + "/" + name_word(entry.name), entry_words(entry), lines);
}

void add_list(const ListChange& list, std::vector<DifferenceLine>& lines) {
  const std::string name = name_word(list.name());
  if (list.fate == ListFate::added) add_whole('+', *list.after, lines);
  if (list.fate == ListFate::removed) add_whole('-', *list.before, lines);
  if (list.type_changed)
    add_line(
        '~', name,
        "type " + list_type_words(list.before->type) + " => " + list_type_words(list.after->type),
        lines);
  if (list.default_changed)
    add_line('~', name,
             "default " + default_words(*list.before) + " => " + default_words(*list.after), lines);
  for (const std::string& policer : list.policers)
    add_line('~', name, "policer " + name_word(policer) + " changed", lines);
  for (const EntryChange& entry : list.entries) add_entry(list, entry, name, lines);
  for (const PlaceChange& place : list.places) {
    const std::string where = place_words(place.place);
    if (place.fate == PlaceFate::added) add_line('+', name, "attached to " + where, lines);
    if (place.fate == PlaceFate::removed) add_line('-', name, "attached to " + where, lines);
    if (place.fate == PlaceFate::moved)
      add_line('~', name, "asked in another order at " + where, lines);
  }
}

}  // namespace

std::string change_summary(const ListChange& list) {
  if (list.fate == ListFate::unchanged) return "unchanged";
  if (list.fate == ListFate::removed) return "deleted";
  if (list.fate == ListFate::added) return added_summary(list);
  Clauses clauses;
  add_entries(list, clauses);
  if (list.type_changed) clauses.add("type " + list_type_words(list.after->type), "; ");
  if (list.default_changed) clauses.add("default " + default_words(*list.after), "; ");
  for (const std::string& policer : list.policers)
    clauses.add("policer " + name_word(policer) + " changed", "; ");
  add_places(list, clauses);
  return clauses.text();
}

std::vector<DifferenceLine> difference_lines(const Change& change) {
  std::vector<DifferenceLine> lines;
  for (const ListChange& list : change.lists) add_list(list, lines);
  return lines;
}

}  // namespace qimctl
