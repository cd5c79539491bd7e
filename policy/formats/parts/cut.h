// A JSON text cut into the entries of its access lists, without parsing it: what has not changed since
// it was read need not be read again.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace qimctl::formats {

// An array of entries in the text.
struct CutList {
  size_t at = 0;                         // of the frame, where its entries were
  std::deque<std::string_view> entries;  // without blanks around them
};

struct CutText {
  std::string frame;  // the text without them: arrays are empty
  std::vector<CutList> lists;
};

// Takes each member of that name that is an array for a list; entries are its elements. A text that is
// no JSON may come out as anything; one that is stays JSON when texts of JSON values are put
// where the entries were, with commas between them. Refers to the text.
CutText cut_entries(std::string_view text, std::string_view member);

// The frame with some of the entries: from and behind, by list.
struct CutRange {
  size_t from = 0;
  size_t end = 0;
};
std::string text_with(const CutText& cut, const std::vector<CutRange>& kept);

}  // namespace qimctl::formats
