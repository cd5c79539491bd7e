// `qimctl status`: what a database is, holds, and who uses it.
#pragma once

#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

void print_status(const Database& database, OutputForm form);

}  // namespace qimctl
