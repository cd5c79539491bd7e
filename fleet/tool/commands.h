// What each command of a fleet does, called with plain values.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fleet/publish/rollout.h"
#include "fleet/publish/scope.h"
#include "tools/base/exit_code.h"
#include "tools/base/form.h"
#include "tools/commands/policy_files.h"

namespace qim::fleet {

struct PushOptions {
  std::string scope;
  qimctl::FileOptions input;
  std::optional<uint64_t> expect;
  std::string message;
  bool prune = false;
  bool dry_run = false;
  bool lossy = false;
  qimctl::OutputForm form = qimctl::OutputForm::table;
};
qimctl::ExitCode push_files(const Publisher& publisher, const PushOptions& options);

struct StatusOptions {
  std::vector<std::string> scopes;  // none = all there are
  bool behind = false;
  bool refused = false;
  bool drift = false;
  qimctl::OutputForm form = qimctl::OutputForm::table;
};
qimctl::ExitCode print_status(const Publisher& publisher, const StatusOptions& options);

// Where a scope stands, printed behind each move of its head.
void print_head(const Head& head, qimctl::OutputForm form);

struct WatchOptions {
  std::string scope;
  std::chrono::milliseconds every{5'000};
  std::chrono::milliseconds most{0};  // 0 = until it is done
  qimctl::OutputForm form = qimctl::OutputForm::table;
};
// Prints how far a rollout is, until all that take it at this stage have it; holds it when too many
// refuse it.
qimctl::ExitCode watch_rollout(const Publisher& publisher, const WatchOptions& options);

struct PruneOptions {
  std::string scope;
  uint64_t keep = 0;
  bool dry_run = false;
  qimctl::OutputForm form = qimctl::OutputForm::table;
};
qimctl::ExitCode prune_scope(const Publisher& publisher, const PruneOptions& options);

qimctl::ExitCode print_log(const Scope& scope, qimctl::OutputForm form);
qimctl::ExitCode print_difference(const Scope& scope, uint64_t from, uint64_t to,
                                  qimctl::OutputForm form);
qimctl::ExitCode print_verification(const Scope& scope, qimctl::OutputForm form);

// Makes a key in a file that is not there yet, and prints the line that others trust it by.
qimctl::ExitCode make_key(const std::string& file, const std::string& name);

}  // namespace qim::fleet
