// Waiting for news, signals and the time to look after everything.
#include "processes/enforce/service.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "policy/base/json_print.h"
#include "policy/base/text.h"
#include "policy/formats/nft/commands.h"
#include "processes/base/supervisor.h"
#include "processes/enforce/enforcer.h"
#include "processes/enforce/filter.h"
#include "processes/enforce/kernel_reader.h"
#include "processes/enforce/log.h"

namespace enforce {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// How often the kernel's table is compared with what it should be.
constexpr milliseconds repair_time{10000};
// After a failure.
constexpr milliseconds retry_time{2000};
// While an interface is waited for.
constexpr milliseconds look_time{500};

// Signals as something to read.
class Signals {
 public:
  Signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&set, signal);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    descriptor_ = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  }
  ~Signals() { close(descriptor_); }
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;
  int descriptor() const { return descriptor_; }
  // The number of one that came, or 0.
  int next() const {
    signalfd_siginfo info;
    return read(descriptor_, &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo)
                                                                : 0;
  }

 private:
  int descriptor_ = -1;
};

class Service {
 public:
  explicit Service(const Options& options) : options_(options), enforcer_(options.database) {}

  ExitCode run() {
    enforcer_.take_news();
    Outcome outcome = enforcer_.update();
    tell("READY=1\n");
    if (options_.once)
      return outcome == Outcome::good      ? exit_good
             : outcome == Outcome::refused ? exit_refused
                                           : exit_failed;
    for (int signal = 0; signal != SIGTERM && signal != SIGINT; signal = signals_.next()) {
      process::notify("WATCHDOG=1");
      // A revision that was refused is not tried again; one at which the kernel failed is.
      const bool again = signal == SIGHUP || outcome == Outcome::failed ||
                         (enforcer_.is_waiting() && enforcer_.has_come());
      if (enforcer_.take_news() || again) {
        outcome = enforcer_.update();
        tell("");
      } else if (Clock::now() - repaired_ >= repair_time) {
        if (enforcer_.repair() == Outcome::failed) outcome = Outcome::failed;
        repaired_ = Clock::now();
        tell("");
      }
      wait(outcome);
    }
    process::notify("STOPPING=1");
    say(Level::info, "stops; the kernel keeps what it has");
    return exit_good;
  }

 private:
  void wait(Outcome outcome) {
    if (enforcer_.take_news()) return;
    milliseconds time = repair_time;
    if (watchdog_.count() != 0) time = std::min(time, watchdog_);
    if (outcome == Outcome::failed) time = std::min(time, retry_time);
    if (enforcer_.is_waiting()) time = std::min(time, look_time);
    pollfd waiting[] = {{enforcer_.descriptor(), POLLIN, 0}, {signals_.descriptor(), POLLIN, 0}};
    poll(waiting, 2, static_cast<int>(time.count()));
  }

  void tell(const std::string& what) const {
    const Metrics metrics = enforcer_.metrics();
    const std::string state = "STATUS=revision " + std::to_string(metrics.revision) + " of " +
                              std::to_string(metrics.seen_revision) + ", " +
                              std::to_string(metrics.entries) + " entries";
    process::notify(what + state);
    if (!options_.metrics.empty() && !write_metrics(metrics, options_.metrics))
      say(Level::warning, "can't write " + qimctl::quoted(options_.metrics));
  }

  const Options& options_;
  Signals signals_;
  Enforcer enforcer_;
  milliseconds watchdog_ = process::watchdog_time();
  Clock::time_point repaired_ = Clock::now();
};

// What can't be written at once fails there, and is forgotten when the rest is flushed.
ExitCode print(const std::string& text) {
  if (fputs(text.c_str(), stdout) >= 0 && fflush(stdout) == 0) return exit_good;
  say(Level::error, "its output can't be written");
  return exit_failed;
}

ExitCode print_ruleset(const Options& options) {
  const qimctl::Database database(options.database, qimctl::OpenMode::read);
  const Revision revision = read_revision(database);
  for (const qimctl::nft::Refusal& refusal : revision.made.refusals)
    say(Level::error, qimctl::quoted(refusal.where) + ": " + refusal.what);
  if (!revision.made.refusals.empty()) return exit_refused;
  return print(qimctl::nft::to_json(revision.made.ruleset));
}

// Sums by entry, over all chains that an entry has rules in.
ExitCode print_counters() {
  qimctl::JsonPrinter printer;
  printer.object();
  for (const auto& [key, count] : qimctl::nft::counts_of(read_kernel())) {
    printer.member(key).object();
    printer.member("packets").number(count.packets);
    printer.member("bytes").number(count.bytes);
    printer.close();
  }
  printer.close();
  return print(printer.take());
}

ExitCode remove_table() {
  if (!read_kernel().is_there) return exit_good;
  qimctl::nft::Commands commands;
  commands.delete_table();
  run_commands(commands.take());
  return exit_good;
}

}  // namespace

ExitCode run(const Options& options) {
  if (options.dry_run) return print_ruleset(options);
  if (options.counters) return print_counters();
  if (options.remove) return remove_table();
  return Service(options).run();
}

}  // namespace enforce
