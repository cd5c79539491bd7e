// Metrics as text.
#include "processes/enforce/metrics.h"

#include <cstdio>
#include <fstream>

#include "processes/base/metrics_text.h"

namespace enforce {

std::string to_text(const Metrics& metrics) {
  const auto number = [](uint64_t value) { return static_cast<double>(value); };
  process::MetricsText text("qim_enforce_");
  text.gauge("revision", "Revision that the kernel holds.", number(metrics.revision));
  text.gauge("seen_revision", "Newest revision that is known.", number(metrics.seen_revision));
  text.gauge("lag_seconds", "Time since a revision came that the kernel does not hold.",
             metrics.lag_seconds);
  text.gauge("update_seconds", "Time that the last update took.", metrics.update_seconds);
  text.counter("updates_total", "Updates in which the kernel was changed.",
               number(metrics.updates));
  text.counter("refused_revisions_total", "Revisions that the kernel can't do.",
               number(metrics.refusals));
  text.counter("failures_total", "Updates that failed.", number(metrics.failures));
  text.counter("repairs_total", "Updates of what others had changed.", number(metrics.repairs));
  text.gauge("lists", "Attached access lists.", number(metrics.lists));
  text.gauge("entries", "Entries of attached access lists.", number(metrics.entries));
  text.gauge("rules", "Rules of the kernel.", number(metrics.rules));
  return text.take();
}

bool write_metrics(const Metrics& metrics, const std::string& file) {
  const std::string beside = file + ".new";
  std::ofstream stream(beside, std::ios::trunc);
  stream << to_text(metrics);
  stream.close();
  return stream && rename(beside.c_str(), file.c_str()) == 0;
}

}  // namespace enforce
