// What is told to those who watch the process: a file in the text format of Prometheus.
#pragma once

#include <cstdint>
#include <string>

namespace enforce {

struct Metrics {
  uint64_t revision = 0;       // that the kernel holds, 0 = none was put yet
  uint64_t seen_revision = 0;  // the newest one that is known
  double lag_seconds = 0;  // since one came that the kernel does not hold, 0 = it holds the newest
  double update_seconds = 0;  // that the last update took
  uint64_t updates = 0;       // in which the kernel was changed
  uint64_t refusals = 0;      // of revisions that the kernel can't do
  uint64_t failures = 0;      // of the kernel
  uint64_t repairs = 0;       // of what others had changed
  uint64_t lists = 0;
  uint64_t entries = 0;
  uint64_t rules = 0;
};

std::string to_text(const Metrics& metrics);

// Writes them in place of the file, which is whole at any time. False when it can't be written.
bool write_metrics(const Metrics& metrics, const std::string& file);

}  // namespace enforce
