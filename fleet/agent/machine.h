// What a device does next, decided from what it has seen: no input or output, and no clock.
//
// The head says what the device should hold; the machine says when to read it, what to take, when to
// go back, when to look for drift and when to report. Whoever drives it does what next() says and
// tells it what came of that.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fleet/agent/records.h"
#include "fleet/base/backoff.h"
#include "fleet/base/clock.h"
#include "fleet/proto/messages.h"

namespace qim::fleet {

struct Identity {
  std::string scope;
  std::string device;
  std::vector<std::string> labels;
};

struct Timing {
  std::chrono::milliseconds poll{60'000};          // the head is read so often without news, too
  std::chrono::milliseconds drift{3'600'000};      // the database is compared with its mark
  std::chrono::milliseconds status{3'600'000};     // a device reports without news, too
  std::chrono::milliseconds report_spread{2'000};  // and with news within that time
  std::chrono::milliseconds retry_first{500};
  std::chrono::milliseconds retry_most{30'000};
};

struct Moment {
  Clock::Steady steady;
  int64_t wall = 0;
};

enum class TaskKind { wait, read_head, take, go_back, repair, check_drift, report };

struct Target {
  uint64_t number = 0;
  Digest state{};
  uint32_t confirm_seconds = 0;

  bool operator==(const Target&) const = default;
};

struct Task {
  TaskKind kind = TaskKind::wait;
  Target target;  // what to take or to go back to
};

// What the head is to a device.
enum class Standing { none, followed, foreign, behind, changed };

class Machine {
 public:
  Machine(Identity identity, const Timing& timing, Held held, Memory memory, const Moment& now,
          uint64_t seed);

  Task next(const Moment& now);
  // When next() has something to do without any news.
  Clock::Steady wake() const;

  // ---- What happened ----
  void news(const Moment& now);  // the watch tells that the head changed
  // The head as it was read; `bytes` is the digest of its value.
  void head_read(const Head& head, uint64_t cluster, const Digest& bytes, const Moment& now);
  void head_missing(const Moment& now);
  void head_forged(const std::string& why, const Moment& now);
  void head_failed(const Moment& now);  // the store could not be reached
  // The watch on the head ended, or there is none; or it waits as it should.
  void watch_lost(const Moment& now);
  void watch_works() { watch_pause_.reset(); }
  void taken(const Held& held, const Moment& now);
  void went_back(const Held& held, const Moment& now);
  // It is tried again, unless there is contact before.
  void could_not_go_back(const std::string& why, const Moment& now);
  void refused(const Target& target, const std::string& reason, const Moment& now);
  // Taking, going back or repairing failed for a reason that may pass.
  void postponed(const std::string& why, const Moment& now);
  void drift_checked(const std::string& drift, const Moment& now);  // "" = none
  void reported(const Moment& now);
  void report_failed(const Moment& now);

  // ---- What somebody asks for ----
  void ask_repair() { repair_ = held_.number != 0; }
  // Takes the store for the right one whatever it was before, and forgets refusals.
  void accept_cluster(const Moment& now);
  void force(const Moment& now);

  // ---- What is known ----
  const Held& held() const { return held_; }
  const Memory& memory() const { return memory_; }
  Standing standing() const { return standing_; }
  bool in_contact() const { return contact_; }
  bool is_settled() const;  // holds what it should, and has said so
  const std::string& drift() const { return drift_; }
  // What the device says of itself. Time, database and version are the caller's.
  Status status() const;
  uint64_t wanted() const { return target_ ? target_->number : held_.number; }

 private:
  std::optional<Target> wanted_target(const Head& head) const;
  Standing judge(const Head& head, uint64_t cluster, const Digest& bytes) const;
  std::string complaint_of(Standing standing, const Head& head) const;
  void tell(const std::string& trouble, const Moment& now);
  void contact(const Moment& now);
  void hold(const Held& held, const Moment& now);
  void touch(const Moment& now);  // there is something to report
  bool is_unconfirmed() const;
  bool is_refused(const Target& target) const;
  bool has_to_take() const;

  Identity identity_;
  Timing timing_;
  Held held_;
  Memory memory_;
  Random random_;
  Backoff head_pause_;
  Backoff watch_pause_;
  Backoff take_pause_;
  Backoff report_pause_;

  std::optional<Target> target_;
  Standing standing_ = Standing::none;
  bool contact_ = false;
  int64_t contact_wall_ = 0;  // when there was contact last
  int64_t away_since_ = 0;
  std::string trouble_;  // why the head is not followed, or nothing is taken
  std::string drift_;
  bool repair_ = false;
  bool accept_cluster_ = false;
  bool force_ = false;
  bool has_news_ = true;  // to report

  Clock::Steady head_due_;
  Clock::Steady take_due_;
  Clock::Steady drift_due_;
  Clock::Steady report_due_;
  Clock::Steady confirm_due_;
};

}  // namespace qim::fleet
