// The table and the data that a run leaves.
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "bench/harness.h"

namespace bench {
namespace {

std::string format(const char* how, double value) {
  char text[64];
  (void)std::snprintf(text, sizeof text, how, value);
  return text;
}

std::string time_text(double nanos) {
  if (nanos <= 0) return "";
  return nanos < 100 ? format("%.1f", nanos) : format("%.0f", nanos);
}

std::string value_text(const Row& row) {
  const double value = row.value.value;
  if (value == 0) return "";
  if (row.claim.rule == Rule::kExtra) return format("%+.0f ns", value);
  if (row.claim.rule == Rule::kAbsolute) return format("%.1f ns", value);
  return format(value < 0.1 ? "%.3f" : "%.2f", value);
}

// "1.31 to 1.36"
std::string spread_text(const Row& row) {
  const Estimate& value = row.value;
  if (value.low == value.high) return "";
  const char* how = row.claim.rule == Rule::kExtra      ? "%+.0f"
                    : row.claim.rule == Rule::kAbsolute ? "%.1f"
                    : value.value < 0.1                 ? "%.3f"
                                                        : "%.2f";
  return format(how, value.low) + " to " + format(how, value.high);
}

const char* verdict_text(const Row& row) {
  switch (verdict_of(row)) {
    case Verdict::kNone:
      return "";
    case Verdict::kMet:
      return "met";
    case Verdict::kMissed:
      return "MISSED";
    case Verdict::kUnsteady:
      return "can't tell";
  }
  return "";
}

std::string goal_text(const Row& row) {
  switch (row.claim.rule) {
    case Rule::kShown:
      return "";
    case Rule::kAtMost:
      return "<= " + format("%g", row.claim.limit);
    case Rule::kExtra:
      return "<= " + format("%+g ns", row.claim.limit);
    case Rule::kAbsolute:
      return "<= " + format("%g ns", row.claim.limit);
    case Rule::kSpeedup:
      return ">= " + format("%g", row.claim.limit);
  }
  return "";
}

std::string table_of(const Results& results) {
  std::string text =
      "| workload | ours | ns | beside it | ns | ratio | goal | | spread |\n"
      "|---|---|---|---|---|---|---|---|---|\n";
  for (const Row& row : results.rows) {
    text += "| " + row.workload + " | " + row.claim.ours + " | " + time_text(row.ours) + " | " +
            row.claim.theirs + " | " + time_text(row.theirs) + " | " + value_text(row) + " | " +
            goal_text(row) + " | " + verdict_text(row) + " | " + spread_text(row) + " |\n";
  }
  return text;
}

nlohmann::json json_of(const Options& options, const Results& results) {
  nlohmann::json rows = nlohmann::json::array();
  for (const Row& row : results.rows) {
    rows.push_back({{"workload", row.workload},
                    {"ours", row.claim.ours},
                    {"theirs", row.claim.theirs},
                    {"ours_ns", row.ours},
                    {"theirs_ns", row.theirs},
                    {"value", row.value.value},
                    {"low", row.value.low},
                    {"high", row.value.high},
                    {"ratio", row.claim.rule != Rule::kExtra && row.claim.rule != Rule::kAbsolute},
                    {"more_is_better", row.claim.rule == Rule::kSpeedup},
                    {"goal", goal_text(row)},
                    {"verdict", verdict_text(row)}});
  }
  nlohmann::json timings = nlohmann::json::array();
  for (const Timing& timing : results.timings) {
    timings.push_back({{"workload", timing.workload},
                       {"side", timing.side},
                       {"ns", timing.nanos},
                       {"median_ns", estimate_of(timing.nanos).value},
                       {"instructions", timing.instructions},
                       {"cache_misses", timing.cache_misses}});
  }
  return {{"pointer_bits", sizeof(void*) * 8},
          {"repetitions", options.repetitions},
          {"seconds", options.seconds},
          {"rows", rows},
          {"timings", timings}};
}

bool write_file(const std::filesystem::path& path, const std::string& text) {
  std::ofstream file(path);
  file << text;
  file.close();
  if (!file.fail()) return true;
  std::fprintf(stderr, "bench: cannot write %s\n", path.c_str());
  return false;
}

}  // namespace

bool write_report(const Options& options, const Results& results) {
  const std::filesystem::path folder = options.report;
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  const std::string table = table_of(results);
  std::fputs(table.c_str(), stdout);
  return write_file(folder / "table.txt", table) &&
         write_file(folder / "results.json", json_of(options, results).dump(2) + "\n");
}

}  // namespace bench
