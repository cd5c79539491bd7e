// `qimctl status`: what a database is, holds, and who uses it.
#pragma once

#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

// `snapshot`: what was opened of the database in place of its newest state, "" for none.
void print_status(const Database& database, const std::string& snapshot, OutputForm form);

}  // namespace qimctl
