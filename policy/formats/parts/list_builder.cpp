// An access list as it is read, entry by entry.
#include "policy/formats/parts/list_builder.h"

#include <utility>

namespace qimctl::formats {

void ListBuilder::add(const Entry& entry, const std::vector<Choice>& choices,
                      std::vector<Obstacle> obstacles) {
  entries_++;
  std::optional<std::vector<Entry>> expanded;
  if (obstacles.empty()) {
    expanded = expand(entry, choices);
    if (!expanded)
      obstacles.push_back({entry.place, "so many alternatives, or ones that no criteria can say"});
  }
  if (!expanded) return note_left_out(notes_, entry, obstacles);
  carried_++;
  if (expanded->empty())
    notes_.finding(Fate::accepted, entry.place,
                   "entry " + in_quotes(entry.name) + " matches no packet and is no entry here");
  for (Entry& one : *expanded) {
    one.name = unique_name(one.name, names_);
    list_.entries.push_back(std::move(one));
  }
}

void ListBuilder::finish(ModelInput& input) {
  notes_.finding(Fate::accepted, list_.place,
                 "access list " + in_quotes(list_.name) + ": " + std::to_string(carried_) + " of " +
                     std::to_string(entries_) + " entries");
  if (carried_ == 0 && entries_ != 0) input.emptied.push_back({list_.name, entries_, list_.place});
  input.model.lists.push_back(std::move(list_));
}

}  // namespace qimctl::formats
