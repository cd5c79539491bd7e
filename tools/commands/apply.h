// `qimctl apply`: makes a database hold what policy files say, touching only what differs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "policy/change/change.h"
#include "policy/store/database.h"
#include "tools/base/exit_code.h"
#include "tools/base/form.h"
#include "tools/commands/policy_files.h"
#include "tools/commands/remembered.h"

namespace qimctl {

struct ApplyOptions {
  std::string database;  // as in database_directory
  FileOptions input;
  bool prune = false;    // delete the lists that no file names
  bool dry_run = false;  // say what would be done, and do nothing
  bool lossy = false;    // accept that something can't be carried, or not as it is
  bool verbose = false;  // list what was accepted, too
  OutputForm form = OutputForm::table;
  uint32_t group = 0;  // of a database that is made, as in Database
};

// exit_lossy when something can't be carried as it is and `lossy` is not set, or a list would come
// out empty: nothing is done then. Throws InputError and DatabaseError, nothing is done then either.
ExitCode apply_files(const ApplyOptions& options);

// How many nodes and entries are in files, for a progress line.
size_t node_count(const PolicyFiles& files);

// Remembers, with what the session commits, that the files were applied whose access lists these are;
// unless they lose something, or hold more than access lists.
void remember(const WriteSession& session, const Database& database, const PolicyFiles& files,
              const FilePrints& prints, const std::vector<AccessList>& lists, bool pruned);

// False, with everything said that is to be said, when losses are not accepted.
bool accept_losses(const PolicyFiles& files, bool lossy, const char* done);

}  // namespace qimctl
