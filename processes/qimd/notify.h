// What is told to those who watch the process: the service manager, the journal, a file of metrics.
#pragma once

#include <chrono>
#include <string>

#include "fleet/agent/agent.h"

namespace qimd {

// Writes a line to standard error. Where that is no terminal the level stands in front, as the journal
// takes it. The text is made harmless.
void say(qim::fleet::LogLevel level, const std::string& text);

// Tells the service manager, if there is one, by the protocol of sd_notify(3).
void notify(const std::string& state);
// How often it wants to hear, 0 = never.
std::chrono::milliseconds watchdog_time();

// In the text format of Prometheus.
std::string metrics_text(const qim::fleet::Machine& machine, const qim::fleet::AgentCounts& counts);

}  // namespace qimd
