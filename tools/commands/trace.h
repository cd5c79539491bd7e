// `qimctl trace`: what access lists decide about a packet, and why.
#pragma once

#include <string>

#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

struct TraceOptions {
  std::string where;     // as in find_place
  std::string packet;    // in words, or "frame HEX"; "" when there is a capture
  std::string capture;   // a file of captured packets
  bool verbose = false;  // every entry that was asked; a line for each captured packet
  OutputForm form = OutputForm::table;
};

// False, with a complaint, when there is no such place. Throws DatabaseError, UsageError for a packet
// that can't be understood, and InputError for a capture that can't be read.
bool trace_packets(const ReadSession& session, const TraceOptions& options);

}  // namespace qimctl
