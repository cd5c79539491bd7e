// `qimctl backup`: a copy of the database, made while it is in use.
#pragma once

#include <string>

#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

// Makes the database in `directory` of what is read. replace: in the place of one that is there.
void back_up(const Database& database, const std::string& directory, bool replace, OutputForm form);

}  // namespace qimctl
