// What access lists decide about the packets of a capture.
#pragma once

#include "tools/commands/place.h"
#include "tools/commands/trace.h"

namespace qimctl {

// Counts the packets by what decides them, and with options.verbose prints a line for each. Throws
// InputError.
void trace_capture(const PlaceToAsk& place, const TraceOptions& options);

}  // namespace qimctl
