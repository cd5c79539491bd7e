// An access list as it is read, entry by entry.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "policy/formats/parts/criteria.h"
#include "policy/formats/parts/notes.h"

namespace qimctl::formats {

class ListBuilder {
 public:
  ListBuilder(Notes& notes, AccessList list) : notes_(notes), list_(std::move(list)) {}

  // Adds what an entry of the input becomes: one entry, one for each combination of alternatives, or,
  // with obstacles, none. Names that are taken get a number.
  void add(const Entry& entry, const std::vector<Choice>& choices, std::vector<Obstacle> obstacles);
  // Counts an entry of the input that is no entry here.
  void leave_out() { entries_++; }

  AccessList& list() { return list_; }
  // The list, what became of it, and whether nothing of it is left.
  void finish(ModelInput& input);

 private:
  Notes& notes_;
  AccessList list_;
  std::set<std::string> names_;
  size_t entries_ = 0;  // of the input
  size_t carried_ = 0;
};

}  // namespace qimctl::formats
