// Rolling a revision out in stages, and going back.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "fleet/publish/scope.h"

namespace qim::fleet {

// Is there a next revision that some devices may have taken?
[[nodiscard]] bool has_begun(const Head& head);
// And that not all are to take yet?
[[nodiscard]] bool is_under_way(const Head& head);
// "not begun", "20 %", "20 % and lab, canary", "20 %, held", "all"
std::string stage_text(const Head& head);

// Begins with a stage; its salt is chosen here. Throws RefusedError when there is nothing to roll out.
Head start_rollout(const Scope& scope, Stage stage);

struct Advance {
  uint32_t percent = 100;
  bool force = false;  // in spite of failures
};
// Goes on to more devices, or on after a hold. When more devices refused the revision than may, it is
// held instead, and RefusedError says so. With force, those that refused it are no failures any more.
Head advance_rollout(const Scope& scope, const Advance& advance);
// How far a rollout is, as devices say.
struct Progress {
  Head head;
  size_t devices = 0;  // that take the revision at this stage
  size_t there = 0;    // of these
  size_t refused = 0;  // of all
  bool held = false;   // just now, for more refused it than may

  bool is_done() const { return there == devices; }
};
[[nodiscard]] bool has_failed(const Progress& progress);
// "7 of 10 devices hold revision 3, 1 refused it"
std::string to_string(const Progress& progress);
// Why a rollout is held that so many devices refused.
std::string failures_text(const Head& head, size_t failures);
Progress progress_of(const Scope& scope);
// Looks, and holds the rollout where more devices refused the revision than may.
Progress guard_rollout(const Scope& scope);

// Nobody takes it who has not taken it.
Head hold_rollout(const Scope& scope);

// Makes an earlier revision what all devices hold: `to`, else the one before what is being rolled
// out, which is none at the first one.
Head roll_back(const Scope& scope, std::optional<uint64_t> to);

}  // namespace qim::fleet
