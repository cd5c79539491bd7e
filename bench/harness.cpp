#include "bench/harness.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <random>
#include <utility>

#include "bench/counters.h"

namespace bench {
namespace {

// How far the interval of an estimate may reach to either side of a value that is said to be known.
constexpr double kSteady = 0.05;

// Takes what one run of sides came to.
class Collector : public benchmark::BenchmarkReporter {
 public:
  explicit Collector(const Workload& workload) : workload_(workload) {}

  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) {
        std::fprintf(stderr, "bench: %s/%s: %s\n", workload_.name.c_str(),
                     run.run_name.function_name.c_str(), run.error_message.c_str());
        std::exit(1);
      }
      nanos = workload_.sides[side].wall ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime();
      iterations = run.iterations / run.threads;
    }
  }

  size_t side = 0;  // the one that runs
  double nanos = 0;
  int64_t iterations = 0;

 private:
  const Workload& workload_;
};

// Runs a side once, for as many iterations as are given or, with 0, as its time asks for.
void run_side(const Side& side, int64_t iterations, Collector* collector) {
  auto* registered = benchmark::RegisterBenchmark(side.name.c_str(), side.body);
  registered->Threads(side.threads);
  if (side.wall) registered->UseRealTime();
  if (iterations != 0) registered->Iterations(iterations);
  benchmark::RunSpecifiedBenchmarks(collector, "all");
  benchmark::ClearRegisteredBenchmarks();
}

// The first run finds how many iterations a turn of a side takes.
std::vector<int64_t> learn(const Workload& workload, Collector* collector) {
  std::vector<int64_t> iterations;
  for (collector->side = 0; collector->side < workload.sides.size(); ++collector->side) {
    const Side& side = workload.sides[collector->side];
    if (side.iterations == 0) run_side(side, 0, collector);
    iterations.push_back(side.iterations != 0 ? side.iterations : collector->iterations);
  }
  return iterations;
}

// What the turns of a side say: of one thing, in nanoseconds.
const std::vector<double>& turns_of(const std::vector<Timing>& timings, const std::string& side) {
  static const std::vector<double> none;
  for (const Timing& timing : timings) {
    if (timing.side == side) return timing.nanos;
  }
  return none;
}

// What the rule compares with the limit, of one turn.
double compared(Rule rule, double ours, double theirs) {
  switch (rule) {
    case Rule::kShown:
      return theirs > 0 ? ours / theirs : 0;
    case Rule::kAtMost:
      return ours / theirs;
    case Rule::kExtra:
      return ours - theirs;
    case Rule::kAbsolute:
      return ours;
    case Rule::kSpeedup:
      return theirs / ours;
  }
  return 0;
}

Row judge(const std::string& workload, const Claim& claim, const std::vector<Timing>& timings) {
  const std::vector<double>& ours = turns_of(timings, claim.ours);
  const std::vector<double>& theirs = turns_of(timings, claim.theirs);
  std::vector<double> turns;
  for (size_t i = 0; i < ours.size(); ++i) {
    turns.push_back(compared(claim.rule, ours[i], i < theirs.size() ? theirs[i] : 0));
  }
  return {workload, claim, estimate_of(ours).value, estimate_of(theirs).value,
          estimate_of(std::move(turns))};
}

}  // namespace

// The interval between the k-th smallest and the k-th largest of n turns holds the median unless fewer
// than k of them fall to one side of it: twice the sum of a binomial distribution's lower end
// (H. A. David, H. N. Nagaraja, Order Statistics, section 7.1).
Estimate estimate_of(std::vector<double> turns) {
  if (turns.empty()) return {};
  std::sort(turns.begin(), turns.end());
  const size_t n = turns.size();
  double term = std::pow(0.5, static_cast<double>(n));  // of 0 successes, of 1, ...
  double outside = 2 * term;
  size_t k = 0;
  while (outside <= 0.05 && 2 * (k + 1) < n) {
    ++k;
    term *= static_cast<double>(n - k + 1) / static_cast<double>(k);
    outside += 2 * term;
  }
  const size_t rank = k == 0 ? 0 : k - 1;
  const double median = n % 2 != 0 ? turns[n / 2] : (turns[n / 2 - 1] + turns[n / 2]) / 2;
  return {median, turns[rank], turns[n - 1 - rank]};
}

Verdict verdict_of(const Row& row) {
  const Estimate& value = row.value;
  const double limit = row.claim.limit;
  // A difference is small beside what it is the difference of, which is what it is known by.
  const double whole = row.claim.rule == Rule::kExtra ? row.ours : value.value;
  const bool steady =
      std::max(value.high - value.value, value.value - value.low) <= kSteady * whole;
  if (row.claim.rule == Rule::kShown) return steady ? Verdict::kNone : Verdict::kUnsteady;
  const bool apart = limit < value.low || limit > value.high;
  if (!steady && !apart) return Verdict::kUnsteady;
  const bool met = row.claim.rule == Rule::kSpeedup ? value.value >= limit : value.value <= limit;
  return met ? Verdict::kMet : Verdict::kMissed;
}

Harness::Harness(Options options) : options_(std::move(options)) {
  std::vector<std::string> words = {"bench",
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
  Collector collector(workload);
  const std::vector<int64_t> iterations = learn(workload, &collector);
  std::vector<Timing> timings;
  for (const Side& side : workload.sides) timings.push_back({workload.name, side.name, {}, {}, {}});
  std::vector<size_t> order(workload.sides.size());
  std::iota(order.begin(), order.end(), 0);
  Counters counters;
  for (int turn = 0; turn < options_.repetitions; ++turn) {
    std::shuffle(order.begin(), order.end(), random_);
    for (const size_t i : order) {
      const Side& side = workload.sides[i];
      collector.side = i;
      counters.start();
      run_side(side, iterations[i], &collector);
      const Counted counted = counters.stop();
      const double things = side.per * static_cast<double>(iterations[i]);
      timings[i].nanos.push_back(collector.nanos / side.per);
      if (!counted.known || side.threads != 1) continue;
      timings[i].instructions.push_back(static_cast<double>(counted.instructions) / things);
      timings[i].cache_misses.push_back(static_cast<double>(counted.cache_misses) / things);
    }
  }
  for (const Claim& claim : workload.claims) add(judge(workload.name, claim, timings));
  for (Timing& timing : timings) results_.timings.push_back(std::move(timing));
}

void Harness::add(Row row) {
  if (options_.smoke) row.claim.rule = Rule::kShown;  // such times say nothing
  results_.rows.push_back(std::move(row));
}

}  // namespace bench
