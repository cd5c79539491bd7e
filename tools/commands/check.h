// `qimctl check`: the database's file, and what the policy in it says.
#pragma once

#include "policy/store/database.h"

namespace qimctl {

// Verifies the file, looks for defects and prints what was found. Returns whether all is well.
// Throws DatabaseError, above all for a damaged file.
bool check_database(const Database& database, bool json);

}  // namespace qimctl
