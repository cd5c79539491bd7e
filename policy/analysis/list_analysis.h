// What is wrong, or odd, with the entries of an access list: those that no packet reaches, those that
// change nothing, those that contradict others, and those that nobody here can decide.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "policy/analysis/box.h"
#include "policy/model/model.h"

namespace qimctl {

enum class EntryFault {
  impossible,  // no packet can match
  shadowed,    // all packets that match are decided before; `others` decide them
  redundant,   // without it everything is decided as it is; `others` do it then, or the default
  conflict,    // overlaps `others`, before it, that do something else, and neither holds the other
  undecided,   // only another model can tell; `others` behind it do something else to such packets
  gave_up,     // not known: it would have taken too long to find out
};
// "impossible", "shadowed", ...
const char* fault_name(EntryFault fault);

struct EntryFinding {
  EntryFault fault = EntryFault::impossible;
  size_t entry = 0;
  std::vector<size_t> others;  // entries of the same list, in order
  bool same_verdict = true;    // of a shadowed one: the others all do what it would do
  std::string what;            // of an impossible one: why
};

struct ListAnalysis {
  std::vector<EntryFinding> findings;  // in the order of entries
};

struct AnalysisLimits {
  uint64_t total = 400000000;  // comparisons of boxes
  uint64_t each = 4000000;     // of one entry
  size_t pieces = 1000;  // in which to tell what two policies decide differently by two entries
};

// `hands_on` says that packets which no entry matches may go on to another list, so that the default
// is not what decides them. An entry that is shadowed or redundant counts as removed for those that
// come behind it in this search: all of these can be removed together.
ListAnalysis analyse_list(const AccessList& list, bool hands_on, const AnalysisLimits& limits = {});

// Is there a place where another list is asked after this one?
bool hands_on(const Model& model, const AccessList& list);
bool is_attached(const Model& model, const AccessList& list);

}  // namespace qimctl
