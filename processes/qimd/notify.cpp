// Lines and metrics.
#include "processes/qimd/notify.h"

#include "processes/base/log.h"
#include "processes/base/metrics_text.h"

namespace qimd {

void say(qim::fleet::LogLevel level, const std::string& text) {
  process::say("qimd", static_cast<process::Level>(level), text);
}

std::string metrics_text(const qim::fleet::Machine& machine,
                         const qim::fleet::AgentCounts& counts) {
  const auto number = [](uint64_t value) { return static_cast<double>(value); };
  process::MetricsText text("qimd_");
  text.gauge("revision", "Revision that the database holds.", number(machine.held().number));
  text.gauge("wanted_revision", "Revision that it should hold.", number(machine.wanted()));
  text.gauge("refused_revision", "Revision that was refused last, 0 = none.",
             number(machine.memory().refused.number));
  text.gauge("in_contact", "Whether the store can be reached.", machine.in_contact() ? 1 : 0);
  text.gauge("drifted", "Whether somebody else changed the database.",
             machine.drift().empty() ? 0 : 1);
  text.counter("taken_total", "Revisions that were taken.", number(counts.taken));
  text.counter("refused_total", "Revisions that were refused.", number(counts.refused));
  text.counter("store_failures_total", "Calls of the store that failed.", number(counts.failures));
  text.counter("forged_total", "Answers that were damaged or forged.", number(counts.forged));
  text.counter("reports_total", "Reports that the store took.", number(counts.reports));
  return text.take();
}

}  // namespace qimd
