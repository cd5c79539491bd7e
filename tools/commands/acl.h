// `qimctl acl`: access lists as people think of them.
#pragma once

#include <string>

#include "policy/store/database.h"
#include "tools/base/form.h"
#include "tools/commands/counters.h"

namespace qimctl {

// All lists, one a line; what cannot be read as a list is named with the reason.
void print_lists(const ReadSession& session, OutputForm form);

// One list, an entry a line, and with `counters` what was counted of each. Throws DatabaseError when there
// is none of that name.
void print_list(const ReadSession& session, const std::string& name, OutputForm form,
                const EntryCounters* counters = nullptr);

}  // namespace qimctl
