// The one program of the benchmarks: reads its options and runs every subject.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bench/database.h"
#include "bench/peers/peers.h"
#include "bench/raw_engine.h"
#include "bench/workloads.h"

namespace bench {

Sizes sizes_of(const Options& options) {
  if (options.smoke) return {100, 500, 0};
  return {1000, 100000, options.large ? 1000000U : 0U};
}

std::string size_text(uint32_t nodes) {
  if (nodes >= 1000000) return std::to_string(nodes / 1000000) + "M";
  if (nodes >= 1000) return std::to_string(nodes / 1000) + "k";
  return std::to_string(nodes);
}

}  // namespace bench

namespace {

constexpr const char* kUsage =
    "usage: bench_policy [--smoke] [--large] [--repetitions=N] [--seconds=S] [--filter=TEXT]\n"
    "                    [--report=FOLDER]\n"
    "Measures the policy library and its database beside the storage engine used directly, code\n"
    "written by hand, and other programs' formats and stores, as far as they were there when it "
    "was\n"
    "built. --large adds a database of a million nodes, --smoke only shows that everything runs,\n"
    "--filter takes the workloads whose name contains the text. The table goes to the standard\n"
    "output and, with results.json, into the folder of the report; scripts/plot draws it.\n";

// The text behind "--name=", NULL when the argument is another one.
const char* value_of(const char* argument, const char* name) {
  const size_t len = std::strlen(name);
  return std::strncmp(argument, name, len) == 0 && argument[len] == '=' ? argument + len + 1
                                                                        : nullptr;
}

bool parse(const char* argument, bench::Options* options) {
  if (std::strcmp(argument, "--smoke") == 0) {
    options->smoke = true;
    options->repetitions = 2;
    options->seconds = 0.0001;
  } else if (std::strcmp(argument, "--large") == 0) {
    options->large = true;
  } else if (const char* repetitions = value_of(argument, "--repetitions")) {
    options->repetitions = std::atoi(repetitions);
  } else if (const char* seconds = value_of(argument, "--seconds")) {
    options->seconds = std::atof(seconds);
  } else if (const char* filter = value_of(argument, "--filter")) {
    options->filter = filter;
  } else if (const char* report = value_of(argument, "--report")) {
    options->report = report;
  } else {
    return false;
  }
  return options->repetitions > 0 && options->seconds > 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && std::strcmp(argv[1], "--read") == 0) {
    return bench::read_meanwhile(argv[2], static_cast<uint32_t>(std::atoi(argv[3])));
  }
  bench::Options options;
  for (int i = 1; i < argc; ++i) {
    if (parse(argv[i], &options)) continue;
    std::fputs(kUsage, stderr);
    return 2;
  }
  bench::Harness harness(options);
  bench::run_codec(harness);
  bench::run_reads(harness);
  bench::run_links(harness);
  bench::run_referrers(harness);
  bench::run_edests(harness);
  bench::run_sessions(harness);
  bench::run_writes(harness);
  bench::run_parallel(harness, "/proc/self/exe");
  bench::peers::drop();
  bench::drop_prepared();
  bench::drop_raw_engines();
  return bench::write_report(options, harness.results()) ? 0 : 1;
}
