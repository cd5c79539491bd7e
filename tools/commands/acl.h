// `qimctl acl`: access lists as people think of them.
#pragma once

#include <string>

#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

// All lists, one a line; what cannot be read as a list is named with the reason.
void print_lists(const ReadSession& session, OutputForm form);

// One list, an entry a line. Throws DatabaseError when there is none of that name.
void print_list(const ReadSession& session, const std::string& name, OutputForm form);

}  // namespace qimctl
