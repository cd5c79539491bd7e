// `qimctl delete`, `detach` and `gc`: taking away what a database holds.
#pragma once

#include <cstdint>
#include <string>

#include "tools/base/exit_code.h"
#include "tools/base/form.h"

namespace qimctl {

struct DeleteOptions {
  std::string database;  // as in database_directory
  bool force = false;    // delete what is still in use, too
  bool dry_run = false;
  OutputForm form = OutputForm::table;
};

// Each returns exit_refused, and says by what, when something is still in use. Each throws
// DatabaseError, ROV_ERR_NO_ITEM for what is not there. Nothing is changed unless exit_ok is
// returned.
ExitCode delete_list(const DeleteOptions& options, const std::string& name);
ExitCode delete_node_command(const DeleteOptions& options, uint32_t id);
// `place` as in "if:eth0/in".
ExitCode detach_list(const DeleteOptions& options, const std::string& name,
                     const std::string& place);
ExitCode collect_garbage(const DeleteOptions& options);

}  // namespace qimctl
