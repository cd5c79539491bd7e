// Running an agent, checking its settings, and asking a running one.
#include "processes/qimd/service.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <optional>
#include <thread>

#include "fleet/base/backoff.h"
#include "fleet/base/files.h"
#include "policy/base/text.h"
#include "processes/base/supervisor.h"
#include "processes/qimd/notify.h"

namespace qimd {

namespace {

using namespace qim::fleet;
using std::chrono::milliseconds;

constexpr milliseconds longest_wait{10'000};
constexpr mode_t private_mode = 0600;
constexpr mode_t metrics_mode = 0644;
constexpr size_t most_pid = 32;

// The directory is one agent's: its lock holds who that is.
class DirectoryLock {
 public:
  explicit DirectoryLock(const std::string& directory) : file_(directory + "/lock") {
    descriptor_ = open(file_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, private_mode);
    if (descriptor_ < 0) {
      throw Error("cannot open " + qimctl::quoted(file_) + ": " + strerror(errno) +
                  "; make the directory, or let this user write there");
    }
    is_ours_ = flock(descriptor_, LOCK_EX | LOCK_NB) == 0;
  }
  ~DirectoryLock() { close(descriptor_); }
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;

  bool is_ours() const { return is_ours_; }
  void sign() const {
    const std::string pid = std::to_string(getpid()) + "\n";
    if (ftruncate(descriptor_, 0) != 0 ||
        pwrite(descriptor_, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
      throw Error("cannot write " + qimctl::quoted(file_) + ": " + strerror(errno));
    }
  }
  pid_t holder() const { return static_cast<pid_t>(std::stol("0" + read_file(file_, most_pid))); }

 private:
  std::string file_;
  int descriptor_ = -1;
  bool is_ours_ = false;
};

sigset_t awaited_signals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&set, signal);
  return set;
}

// Takes signals in a thread of its own, as a wait for the store can be ended from another one only; so
// it ends what takes too long, too.
class Signals {
 public:
  Signals(Agent& agent, std::optional<Clock::Steady> end)
      : agent_(agent), end_(end), thread_([this] { take(); }) {}
  ~Signals() {
    kill(getpid(), SIGTERM);
    thread_.join();
  }
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;
  bool is_over() const { return over_; }
  bool is_late() const { return late_; }

 private:
  // 0: the time is over.
  int next() const {
    const sigset_t set = awaited_signals();
    int signal = 0;
    if (!end_) sigwait(&set, &signal);
    while (end_ && signal <= 0) {
      const auto left = *end_ - system_clock().steady();
      if (left.count() <= 0) return 0;
      const auto whole = std::chrono::duration_cast<std::chrono::seconds>(left);
      const timespec time{static_cast<time_t>(whole.count()),
                          static_cast<long>(std::chrono::nanoseconds(left - whole).count())};
      signal = sigtimedwait(&set, nullptr, &time);
    }
    return signal;
  }

  void take() {
    while (!over_) {
      const int signal = next();
      late_ = signal == 0;
      if (signal == SIGHUP) {
        agent_.interrupt();
        continue;
      }
      over_ = true;
      agent_.stop();
    }
  }

  Agent& agent_;
  std::optional<Clock::Steady> end_;
  std::atomic<bool> over_{false};
  std::atomic<bool> late_{false};
  std::thread thread_;
};

class Service {
 public:
  Service(const Options& options, Agent& agent) : options_(options), agent_(agent) {
    const milliseconds watchdog = process::watchdog_time();
    if (watchdog.count() != 0) wait_ = std::min(wait_, watchdog);
  }

  ExitCode run(unsigned once_seconds) {
    std::optional<Clock::Steady> end;
    if (once_seconds != 0) end = system_clock().steady() + std::chrono::seconds(once_seconds);
    const Signals signals(agent_, end);
    for (bool first = true; !signals.is_over(); first = false) {
      agent_.work();
      tell(first ? "READY=1\n" : "WATCHDOG=1\n");
      if (once_seconds != 0 && is_there()) return exit_good;
      agent_.wait(once_seconds != 0 ? milliseconds(1000) : wait_);
    }
    if (signals.is_late()) return exit_refused;
    process::notify("STOPPING=1");
    say(LogLevel::info, "stops; the database keeps what it has");
    return exit_good;
  }

 private:
  bool is_there() const {
    const Machine& machine = agent_.machine();
    return machine.is_settled() && machine.standing() == Standing::followed &&
           machine.wanted() == machine.held().number;
  }

  void tell(const std::string& what) {
    const Machine& machine = agent_.machine();
    process::notify(what + "STATUS=revision " + std::to_string(machine.held().number) + " of " +
                    std::to_string(machine.wanted()) +
                    (machine.in_contact() ? "" : ", without contact"));
    if (options_.metrics.empty()) return;
    const std::string text = metrics_text(machine, agent_.counts());
    if (text == metrics_) return;
    try {
      write_file(options_.metrics, text, metrics_mode);
      metrics_ = text;
    } catch (const Error& error) {
      say(LogLevel::warning, error.what());
    }
  }

  const Options& options_;
  Agent& agent_;
  milliseconds wait_ = longest_wait;
  std::string metrics_;
};

// Tries something, and says what is wrong with it.
class Checks {
 public:
  template <typename Try>
  bool good(Try attempt) {
    try {
      attempt();
      return true;
    } catch (const std::exception& error) {
      wrong(error.what());
      return false;
    }
  }
  void wrong(const std::string& what) {
    printf("%s\n", qimctl::harmless(what).c_str());
    any_ = true;
  }
  bool any() const { return any_; }

 private:
  bool any_ = false;
};

}  // namespace

ExitCode run(const Options& options, unsigned once_seconds) {
  // Before any thread: all of them leave these signals to one.
  const sigset_t set = awaited_signals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  const DirectoryLock lock(options.agent.directory);
  if (!lock.is_ours()) {
    say(LogLevel::error,
        "another agent, process " + std::to_string(lock.holder()) + ", works with this directory");
    return exit_failed;
  }
  lock.sign();
  const TrustedKeys publishers = TrustedKeys::load(options.publishers);
  const PrivateKey signer = PrivateKey::load(options.signing_key);
  Device device(options.device);
  const std::unique_ptr<Store> store = connect_etcd(options.store);
  Agent agent({device, *store, system_clock(), publishers, signer}, options.agent, random_seed(),
              say);
  return Service(options, agent).run(once_seconds);
}

ExitCode check(const std::string& file) {
  Checks checks;
  Options options;
  std::vector<std::string> problems;
  if (!checks.good([&] { options = read_options(file, problems); })) return exit_refused;
  for (const std::string& problem : problems) checks.wrong(problem);
  if (!problems.empty()) return exit_refused;
  TrustedKeys publishers;
  checks.good([&] { publishers = TrustedKeys::load(options.publishers); });
  checks.good([&] { PrivateKey::load(options.signing_key); });
  checks.good([&] { const DirectoryLock lock(options.agent.directory); });
  checks.good([&] { Device(options.device).held(); });
  checks.good([&] {
    const std::string& scope = options.agent.identity.scope;
    const std::unique_ptr<Store> store = connect_etcd(options.store);
    const GetAnswer answer = store->get(Keys(options.agent.prefix).head(scope));
    if (!answer.found) throw Error("the store has no policy for scope " + qimctl::quoted(scope));
    if (!publishers.all().empty()) open_head(answer.found->value, publishers, scope);
  });
  if (checks.any()) return exit_refused;
  printf("%s is good\n", qimctl::printable(file).c_str());
  return exit_good;
}

ExitCode ask(const Options& options, Request request) {
  write_file(options.agent.directory + "/" + request_file(request), "", private_mode);
  const DirectoryLock lock(options.agent.directory);
  if (lock.is_ours()) {
    printf("no agent runs; it will be done when one is started\n");
    return exit_good;
  }
  const pid_t agent = lock.holder();
  if (agent > 0 && kill(agent, SIGHUP) == 0) {
    printf("told process %d\n", static_cast<int>(agent));
    return exit_good;
  }
  say(LogLevel::error,
      std::string("the agent cannot be told: ") + strerror(errno) + "; it will look by itself");
  return exit_failed;
}

}  // namespace qimd
