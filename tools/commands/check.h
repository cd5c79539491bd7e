// `qimctl check`: the database's file, and what the policy in it says.
#pragma once

#include "policy/store/database.h"
#include "tools/base/form.h"
#include "tools/commands/policy_files.h"

namespace qimctl {

struct CheckOptions {
  OutputForm form = OutputForm::table;
  bool strict = false;   // entries that do nothing, or can't be decided, are defects, too
  bool verbose = false;  // list conflicts of entries
};

// Verifies the file, looks for defects and for what is odd about access lists, and prints what was
// found. Returns whether all is well. Throws DatabaseError, above all for a damaged file.
bool check_database(const Database& database, const CheckOptions& options);

// The same of the access lists that files hold, each with its place; no database is looked at.
// Throws InputError.
bool check_files(const FileOptions& files, const CheckOptions& options);

}  // namespace qimctl
