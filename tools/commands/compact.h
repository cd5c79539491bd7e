// `qimctl compact`: the database's file, made as small as it can be.
#pragma once

#include <string>

namespace qimctl {

// `given`: as in database_directory. Throws DatabaseError.
void compact_database(const std::string& given);

}  // namespace qimctl
