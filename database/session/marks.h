// Marks: what a program that fills a database notes of what it put there, in the same commit.
#pragma once

#include "database/graph/view.h"
#include "rov_edit.h"

namespace rov {

constexpr uint32_t kMarkNameBytes = ROV_MARK_NAME - 1;

// A mark's name, filled up with zeros.
struct MarkName {
  char bytes[ROV_MARK_NAME] = {};
};

// ROV_ERR_INVALID, noted, for what can't be the name of a mark.
[[nodiscard]] uint32_t mark_name(const char* text, MarkName* name);

// The mark's bytes. ROV_ERR_NO_VALUE, noted, when there is no such mark.
[[nodiscard]] uint32_t mark_get(View& view, const MarkName& name, Bytes* data);
// Without bytes the mark goes.
[[nodiscard]] uint32_t mark_put(View& view, const MarkName& name, Bytes data);
// The first mark behind `after`; all zero: the first one. ROV_ERR_NO_VALUE, noted, past the last.
[[nodiscard]] uint32_t mark_next(View& view, const MarkName& after, MarkName* name);

}  // namespace rov
