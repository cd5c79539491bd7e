// `qimctl compact`: the database's file, made as small as it can be.
#pragma once

#include <string>

#include "tools/base/form.h"

namespace qimctl {

// `given`: as in database_directory. Throws DatabaseError.
void compact_database(const std::string& given, OutputForm form);

}  // namespace qimctl
