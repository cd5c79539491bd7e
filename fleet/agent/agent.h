// The agent of a device: does what the machine decides.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "fleet/agent/device.h"
#include "fleet/agent/machine.h"
#include "fleet/base/clock.h"
#include "fleet/base/signature.h"
#include "fleet/etcd/store.h"
#include "fleet/proto/keys.h"

namespace qim::fleet {

// As the journal numbers them.
enum class LogLevel { error = 3, warning = 4, notice = 5, info = 6 };
using Say = std::function<void(LogLevel, const std::string&)>;

struct AgentParts {
  Device& device;
  Store& store;
  Clock& clock;
  const TrustedKeys& publishers;
  const PrivateKey& signer;  // of what the device says of itself
};

struct AgentOptions {
  Identity identity;
  Timing timing;
  std::string prefix;
  std::string directory;  // for what is kept: the memory, and what somebody asks for
  std::string database;   // which it is, for people
  std::string version;
};

// Somebody asks a running agent for something by a file of that name in its directory.
enum class Request { repair, accept_cluster, force };
const char* request_file(Request request);

struct AgentCounts {
  uint64_t taken = 0;
  uint64_t refused = 0;
  uint64_t failures = 0;  // of the store
  uint64_t forged = 0;    // of what came from there
  uint64_t reports = 0;
};

class Agent {
 public:
  Agent(const AgentParts& parts, const AgentOptions& options, uint64_t seed, Say say);
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  // Does all there is to do now.
  void work();
  // Waits for news until there is something to do, but not longer than that.
  void wait(std::chrono::milliseconds longest);
  // Ends a wait, from another thread.
  void interrupt();
  // The same, and no call of the store is waited for any more: the agent is about to end.
  void stop();

  const Machine& machine() const { return machine_; }
  const AgentCounts& counts() const { return counts_; }

 private:
  Moment now();
  void perform(const Task& task);
  void read_head();
  void use_head(const GetAnswer& answer);
  void take_news(const std::optional<GetAnswer>& told);
  void watch(int64_t after);
  void take(const Target& target);
  Supply fetch_supply(const Target& target, const Held& held);
  void change(const Target& target, const std::function<Held()>& make);
  void go_back(const Target& target);
  void repair(const Target& target);
  void check_drift();
  void report();
  void look_for_requests();
  void end_watch();
  bool can_remember_later() const;
  void remember(bool at_once);

  AgentParts parts_;
  AgentOptions options_;
  Say say_;
  Keys keys_;
  Machine machine_;
  Head head_;               // as it was read last
  int64_t read_until_ = 0;  // the store's revision that it was read at
  Memory remembered_;
  std::optional<Clock::Steady> remember_due_;
  AgentCounts counts_;
  std::mutex mutex_;  // of the watch's pointer
  std::unique_ptr<Watch> watch_;
  std::atomic<bool> interrupted_{false};
};

}  // namespace qim::fleet
