// The process: follows the fleet's policy until it is told to stop.
#pragma once

#include <string>
#include <vector>

#include "fleet/agent/agent.h"
#include "processes/qimd/options.h"

namespace qimd {

enum ExitCode {
  exit_good = 0,
  exit_refused = 1,  // something is wrong, or the revision is not held
  exit_usage = 2,
  exit_failed = 4,  // the database or the system
};

// once: ends when the device holds what it should and has said so, or after that many seconds.
ExitCode run(const Options& options, unsigned once_seconds);

// Says what is wrong with a configuration, a line each.
ExitCode check(const std::string& file);

// Asks the agent of that directory for something; one that runs is told at once.
ExitCode ask(const Options& options, qim::fleet::Request request);

}  // namespace qimd
