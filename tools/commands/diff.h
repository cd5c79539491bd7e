// `qimctl diff`: what differs between access lists here and there.
#pragma once

#include <string>
#include <vector>

#include "tools/base/exit_code.h"
#include "tools/base/form.h"
#include "tools/commands/policy_files.h"

namespace qimctl {

struct DiffOptions {
  std::vector<std::string> databases;  // one, or two to be compared; as in database_directory
  FileOptions input;                   // the database is compared with these, if any
  std::string from;       // what the database was: the name of a snapshot, or a revision
  std::string at;         // the snapshot that stands for its newest state, if any
  bool semantic = false;  // tell packets, not entries
  OutputForm form = OutputForm::table;
};

// Two databases and snapshots are compared whole; of files the lists that they name. Prints a line
// for each difference, or which packets are decided differently. exit_ok when there is none,
// exit_differs when there are some. Throws InputError, DatabaseError and UsageError.
ExitCode diff(const DiffOptions& options);

}  // namespace qimctl
