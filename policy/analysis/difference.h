// Which packets two policies decide differently.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "policy/analysis/list_analysis.h"
#include "policy/analysis/regions.h"
#include "policy/trace/evaluate.h"

namespace qimctl {

// Packets that are decided in one way before and in another after.
struct DifferentRegion {
  Verdict before;
  Verdict after;
  Region region;
  size_t unless = 0;  // not 0: of the region only what none of so many entries before them matches,
                      // for that would be too many regions to tell
  std::string words;  // the packets, as entries are written
  std::string example;  // one of them, as trace takes it
};

struct Differences {
  std::vector<DifferentRegion> regions;  // no two of them overlap
  bool complete = true;  // false: it took too long to find them all, and there may be more
};

// Where the packets are that are asked about, "" = anywhere.
struct DifferenceAt {
  std::string ingress;
  std::string egress;
};

// Where there are no lists every packet is accepted.
Differences semantic_difference(const Lists& before, const Lists& after,
                                const DifferenceAt& at = {}, const AnalysisLimits& limits = {});

// What differs at one place: "if:eth0/in", or a list that is attached nowhere on both sides.
struct PlaceDifference {
  std::string place;
  Differences differences;
};
// At all places of two models; those where nothing differs are left out.
std::vector<PlaceDifference> semantic_difference(const Model& before, const Model& after,
                                                 const AnalysisLimits& limits = {});

}  // namespace qimctl
