// `qimctl pinst`: the node of a data set.
#pragma once

#include <string>

#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

// By its name in 42 hexadecimal digits, or by its place among the data sets, a number. Throws
// DatabaseError.
void print_dset(const ReadSession& session, const std::string& name_or_selector, OutputForm form);

}  // namespace qimctl
