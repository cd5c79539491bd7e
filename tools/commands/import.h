// `qimctl import`: policy files into a database, all of them or nothing.
#pragma once

#include <cstdint>
#include <string>

#include "tools/base/form.h"
#include "tools/commands/policy_files.h"

namespace qimctl {

struct ImportOptions {
  std::string database;  // as in database_directory
  FileOptions input;
  bool lossy = false;    // import although something could not be carried, or not as it was
  bool replace = false;  // replace nodes and lists that the database has already
  bool verbose = false;  // list what was accepted too
  OutputForm form = OutputForm::table;
  uint32_t group = 0;  // of a database that is made, as in Database
};

// Returns false when something was approximated or skipped and `lossy` is not set, or none of a
// list's entries can be carried; nothing is imported then. Throws InputError and DatabaseError;
// nothing is imported then either.
bool import_files(const ImportOptions& options);

}  // namespace qimctl
