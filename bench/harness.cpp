#include "bench/harness.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace bench {
namespace {

// Collects the repetitions of each side.
class Collector : public benchmark::BenchmarkReporter {
 public:
  explicit Collector(const Workload& workload) : workload_(workload) {
    for (const Side& side : workload.sides) timings_.push_back({workload.name, side.name, {}, 0});
  }

  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) {
        std::fprintf(stderr, "bench: %s/%s: %s\n", workload_.name.c_str(),
                     run.run_name.function_name.c_str(), run.error_message.c_str());
        std::exit(1);
      }
      if (run.run_type == Run::RT_Iteration) take(run);
    }
  }

  std::vector<Timing> finish() {
    for (Timing& timing : timings_) {
      std::vector<double> sorted = timing.nanos;
      std::sort(sorted.begin(), sorted.end());
      if (!sorted.empty()) timing.quartile = sorted[sorted.size() / 4];
    }
    return std::move(timings_);
  }

 private:
  void take(const Run& run) {
    for (size_t i = 0; i < timings_.size(); ++i) {
      const Side& side = workload_.sides[i];
      if (side.name != run.run_name.function_name) continue;
      const double nanos = side.wall ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime();
      timings_[i].nanos.push_back(nanos / side.per);
    }
  }

  const Workload& workload_;
  std::vector<Timing> timings_;
};

double quartile_of(const std::vector<Timing>& timings, const std::string& side) {
  for (const Timing& timing : timings) {
    if (timing.side == side) return timing.quartile;
  }
  return 0;
}

Row judge(const std::string& workload, const Claim& claim, const std::vector<Timing>& timings) {
  Row row{workload, claim, quartile_of(timings, claim.ours), quartile_of(timings, claim.theirs),
          0,        true};
  switch (claim.rule) {
    case Rule::kShown:
      row.value = row.theirs > 0 ? row.ours / row.theirs : 0;
      break;
    case Rule::kAtMost:
      row.value = row.ours / row.theirs;
      row.met = row.value <= claim.limit;
      break;
    case Rule::kExtra:
      row.value = row.ours - row.theirs;
      row.met = row.value <= claim.limit;
      break;
    case Rule::kAbsolute:
      row.value = row.ours;
      row.met = row.value <= claim.limit;
      break;
    case Rule::kSpeedup:
      row.value = row.theirs / row.ours;
      row.met = row.value >= claim.limit;
      break;
  }
  return row;
}

}  // namespace

Harness::Harness(Options options) : options_(std::move(options)) {
  std::vector<std::string> words = {
      "bench", "--benchmark_enable_random_interleaving=true",
      "--benchmark_repetitions=" + std::to_string(options_.repetitions),
      "--benchmark_min_time=" + std::to_string(options_.seconds)};
  std::vector<char*> arguments;
  arguments.reserve(words.size());
  for (std::string& word : words) arguments.push_back(word.data());
  auto count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
}

bool Harness::wanted(const std::string& workload) const {
  return workload.find(options_.filter) != std::string::npos;
}

void Harness::run(const Workload& workload) {
  if (!wanted(workload.name)) return;
  std::fprintf(stderr, "bench: %s\n", workload.name.c_str());
  for (const Side& side : workload.sides) {
    auto* registered = benchmark::RegisterBenchmark(side.name.c_str(), side.body);
    registered->Threads(side.threads);
    if (side.wall) registered->UseRealTime();
    if (side.iterations != 0) registered->Iterations(side.iterations);
  }
  Collector collector(workload);
  benchmark::RunSpecifiedBenchmarks(&collector, "all");
  benchmark::ClearRegisteredBenchmarks();
  for (Timing& timing : collector.finish()) {
    results_.timings.push_back(std::move(timing));
  }
  const auto first = results_.timings.end() - static_cast<std::ptrdiff_t>(workload.sides.size());
  const std::vector<Timing> own(first, results_.timings.end());
  for (const Claim& claim : workload.claims) add(judge(workload.name, claim, own));
}

void Harness::add(Row row) {
  if (options_.smoke) row.claim.rule = Rule::kShown;  // such times say nothing
  results_.rows.push_back(std::move(row));
}

}  // namespace bench
