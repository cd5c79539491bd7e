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
// held instead, and RefusedError says so.
Head advance_rollout(const Scope& scope, const Advance& advance);
// Nobody takes it who has not taken it.
Head hold_rollout(const Scope& scope);

// Makes an earlier revision what all devices hold: `to`, else the one before what is being rolled
// out, which is none at the first one.
Head roll_back(const Scope& scope, std::optional<uint64_t> to);

}  // namespace qim::fleet
