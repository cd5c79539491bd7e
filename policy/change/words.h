// Changes in words.
#pragma once

#include <string>
#include <vector>

#include "policy/change/change.h"

namespace qimctl {

// What happens to a list, in one line: "unchanged", "added with 14 entries", "3 entries added, 1
// moved; attached to if:eth0/in", "deleted".
std::string change_summary(const ListChange& list);

// A line of a difference. `sign` is '+', '-' or '~'; `name` what is concerned: "guard", "guard/ssh".
struct DifferenceLine {
  char sign = '~';
  std::string name;
  std::string what;  // "ipv4 tcp to any port 22: accept", "moved behind web"
};

// What differs, a line for each list, entry and place that is added, removed or changed. Lists whose
// places are only numbered anew have none.
std::vector<DifferenceLine> difference_lines(const Change& change);

}  // namespace qimctl
