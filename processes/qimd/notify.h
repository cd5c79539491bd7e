// What is told to those who watch the process: the journal, and a file of metrics.
#pragma once

#include <string>

#include "fleet/agent/agent.h"

namespace qimd {

// A line of its own, as process::say writes it.
void say(qim::fleet::LogLevel level, const std::string& text);

// In the text format of Prometheus.
std::string metrics_text(const qim::fleet::Machine& machine, const qim::fleet::AgentCounts& counts);

}  // namespace qimd
