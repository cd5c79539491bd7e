// Metrics as text.
#include "processes/enforce/metrics.h"

#include <array>
#include <cstdio>
#include <fstream>

namespace enforce {

namespace {

void add(std::string& text, const char* name, const char* type, const char* help, double value) {
  std::array<char, 512> lines;
  const int length =
      snprintf(lines.data(), lines.size(),
               "# HELP qim_enforce_%s %s\n# TYPE qim_enforce_%s %s\nqim_enforce_%s %.15g\n", name,
               help, name, type, name, value);
  text.append(lines.data(), static_cast<size_t>(length));
}

}  // namespace

std::string to_text(const Metrics& metrics) {
  const auto number = [](uint64_t value) { return static_cast<double>(value); };
  std::string text;
  add(text, "revision", "gauge", "Revision that the kernel holds.", number(metrics.revision));
  add(text, "seen_revision", "gauge", "Newest revision that is known.",
      number(metrics.seen_revision));
  add(text, "lag_seconds", "gauge", "Time since a revision came that the kernel does not hold.",
      metrics.lag_seconds);
  add(text, "update_seconds", "gauge", "Time that the last update took.", metrics.update_seconds);
  add(text, "updates_total", "counter", "Updates in which the kernel was changed.",
      number(metrics.updates));
  add(text, "refused_revisions_total", "counter", "Revisions that the kernel can't do.",
      number(metrics.refusals));
  add(text, "failures_total", "counter", "Updates that failed.", number(metrics.failures));
  add(text, "repairs_total", "counter", "Updates of what others had changed.",
      number(metrics.repairs));
  add(text, "lists", "gauge", "Attached access lists.", number(metrics.lists));
  add(text, "entries", "gauge", "Entries of attached access lists.", number(metrics.entries));
  add(text, "rules", "gauge", "Rules of the kernel.", number(metrics.rules));
  return text;
}

bool write_metrics(const Metrics& metrics, const std::string& file) {
  const std::string beside = file + ".new";
  std::ofstream stream(beside, std::ios::trunc);
  stream << to_text(metrics);
  stream.close();
  return stream && rename(beside.c_str(), file.c_str()) == 0;
}

}  // namespace enforce
