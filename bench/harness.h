// Runs what is compared side by side. The sides of a workload take turns; a claim about two of them is
// judged by the median of what each turn says of both, so that what the machine does besides, which
// comes and goes more slowly than turns do, is in both sides of every ratio.
#ifndef BENCH_HARNESS_H
#define BENCH_HARNESS_H

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace bench {

struct Options {
  bool smoke = false;     // sizes and times just large enough to see that everything runs
  bool large = false;     // a database of a million nodes, too
  int repetitions = 21;   // turns of each side
  double seconds = 0.01;  // of each of them
  std::string filter;     // only workloads whose name contains it
  std::string report = "bench-report";
};

// One of those that are compared. The body loops over the state and leaves nothing behind.
struct Side {
  std::string name;
  std::function<void(benchmark::State&)> body;
  double per = 1;          // how many things one iteration does
  int threads = 1;         // that run the body at once
  bool wall = false;       // time by the clock on the wall, not the processor's
  int64_t iterations = 0;  // of a repetition; 0: as many as its time asks for
};

// What is said of two sides.
enum class Rule {
  kShown,     // nothing: their ratio is of interest
  kAtMost,    // ours / theirs is at most the limit
  kExtra,     // ours - theirs, in nanoseconds, is at most the limit
  kAbsolute,  // ours, in nanoseconds, is at most the limit
  kSpeedup    // theirs / ours is at least the limit
};

struct Claim {
  std::string ours;
  std::string theirs;
  Rule rule = Rule::kShown;
  double limit = 0;
};

struct Workload {
  std::string name;
  std::vector<Side> sides;
  std::vector<Claim> claims;
};

// The median of some turns, and where the median of ever more turns lies with a probability of 95 %.
struct Estimate {
  double value = 0;
  double low = 0;
  double high = 0;
};
Estimate estimate_of(std::vector<double> turns);

enum class Verdict { kNone, kMet, kMissed, kUnsteady };

struct Row {
  std::string workload;
  Claim claim;
  double ours = 0;
  double theirs = 0;
  Estimate value;  // what the rule compares with the limit
};
// Whether the limit is kept. It can't be told where the limit lies within what the turns leave open
// and that is wider than 5 % to either side; nor, without a limit, where it is wider.
Verdict verdict_of(const Row& row);

struct Timing {
  std::string workload;
  std::string side;
  std::vector<double> nanos;  // of each turn
  std::vector<double>
      instructions;  // the same, per thing; none where the machine doesn't count them
  std::vector<double> cache_misses;
};

struct Results {
  std::vector<Row> rows;
  std::vector<Timing> timings;
};

class Harness {
 public:
  explicit Harness(Options options);

  const Options& options() const { return options_; }
  const Results& results() const { return results_; }
  bool wanted(const std::string& workload) const;

  void run(const Workload& workload);
  // Takes a result that needed no clock.
  void add(Row row);

 private:
  Options options_;
  Results results_;
  std::mt19937 random_{7};  // of the order in each turn
};

// Writes table.txt and results.json into the folder of the options; the table goes to the standard
// output, too. False, with a message, when a file can't be written.
bool write_report(const Options& options, const Results& results);

}  // namespace bench

#endif
