// The decisions of an agent.
#include "fleet/agent/machine.h"

#include <algorithm>
#include <utility>

#include "fleet/proto/stage.h"

namespace qim::fleet {

namespace {

using std::chrono::milliseconds;

constexpr int64_t least_absence = 10;  // seconds, of one that is told

// A database is looked at soon after the start: nobody watched it before, and what is read then makes
// the first change that comes a short one.
uint64_t first_drift_part(const Timing& timing) {
  return static_cast<uint64_t>(timing.drift.count()) / 60 + 1;
}

}  // namespace

Machine::Machine(Identity identity, const Timing& timing, Held held, Memory memory,
                 const Moment& now, uint64_t seed)
    : identity_(std::move(identity)),
      timing_(timing),
      held_(std::move(held)),
      memory_(std::move(memory)),
      random_(seed),
      head_pause_(timing.retry_first, timing.retry_most, random_.next()),
      watch_pause_(timing.retry_first, timing.retry_most, random_.next()),
      take_pause_(timing.retry_first, timing.retry_most, random_.next()),
      report_pause_(timing.retry_first, timing.retry_most, random_.next()),
      contact_wall_(now.wall),
      head_due_(now.steady),
      take_due_(now.steady),
      drift_due_(now.steady + milliseconds(random_.below(first_drift_part(timing)))),
      report_due_(now.steady),
      confirm_due_(now.steady + std::chrono::seconds(held_.confirm_seconds)) {
  // The mark is written with what a head led to, the memory a little later.
  const bool is_newer = held_.scope == identity_.scope && held_.seen.count > memory_.seen.count;
  if (is_newer) memory_.seen = held_.seen;
}

bool Machine::is_unconfirmed() const {
  return held_.confirm_seconds != 0 && held_.previous != 0 && memory_.confirmed != held_.number;
}

bool Machine::is_refused(const Target& target) const {
  return memory_.refused.number == target.number && memory_.refused.state == target.state;
}

bool Machine::has_to_take() const {
  return standing_ == Standing::followed && target_ && drift_.empty() &&
         (target_->number != held_.number || target_->state != held_.state) &&
         !is_refused(*target_);
}

bool Machine::is_settled() const {
  return contact_ && !has_to_take() && !has_news_ && !is_unconfirmed() && !repair_;
}

Task Machine::next(const Moment& now) {
  // Before it goes back: a device that slept has not tried to reach anybody yet.
  if (now.steady >= head_due_) return {TaskKind::read_head, {}};
  if (is_unconfirmed() && now.steady >= confirm_due_) {
    return {TaskKind::go_back, {held_.previous, held_.previous_state, 0}};
  }
  if (repair_ && now.steady >= take_due_) {
    return {TaskKind::repair, {held_.number, held_.state, held_.confirm_seconds}};
  }
  if (has_to_take() && now.steady >= take_due_) return {TaskKind::take, *target_};
  if (now.steady >= drift_due_) return {TaskKind::check_drift, {}};
  if (contact_ && now.steady >= report_due_) return {TaskKind::report, {}};
  return {};
}

Clock::Steady Machine::wake() const {
  Clock::Steady first = std::min(head_due_, drift_due_);
  if (is_unconfirmed()) first = std::min(first, confirm_due_);
  if (repair_ || has_to_take()) first = std::min(first, take_due_);
  if (contact_) first = std::min(first, report_due_);
  return first;
}

void Machine::news(const Moment& now) {
  head_due_ = std::min(head_due_, now.steady);
}

void Machine::touch(const Moment& now) {
  if (has_news_) return;
  has_news_ = true;
  const auto spread = static_cast<uint64_t>(timing_.report_spread.count()) + 1;
  report_due_ = now.steady + milliseconds(random_.below(spread));
}

void Machine::tell(const std::string& trouble, const Moment& now) {
  if (trouble_ != trouble) touch(now);
  trouble_ = trouble;
}

void Machine::contact(const Moment& now) {
  if (!contact_ && now.wall - contact_wall_ >= least_absence) away_since_ = contact_wall_;
  if (!contact_) touch(now);
  contact_ = true;
  contact_wall_ = now.wall;
  head_due_ = now.steady + with_jitter(timing_.poll, random_);
}

Standing Machine::judge(const Head& head, uint64_t cluster, const Digest& bytes) const {
  if (memory_.cluster != 0 && memory_.cluster != cluster && !accept_cluster_) {
    return Standing::foreign;
  }
  if (force_) return Standing::followed;
  if (head.sequence < memory_.seen.sequence) return Standing::behind;
  const bool same = head.sequence == memory_.seen.sequence;
  return same && bytes != memory_.seen.bytes ? Standing::changed : Standing::followed;
}

std::optional<Target> Machine::wanted_target(const Head& head) const {
  const uint64_t number = wanted_revision(head, identity_.device, identity_.labels, held_.number);
  if (number == 0) return std::nullopt;
  const bool forward = number == head.next && number > held_.number;
  return Target{number, number == head.next ? head.next_state : head.base_state,
                forward ? head.stage.confirm_seconds : 0};
}

std::string Machine::complaint_of(Standing standing, const Head& head) const {
  switch (standing) {
    case Standing::foreign:
      return "the store is another cluster than before; accept it if it is the right one";
    case Standing::behind:
      return "the head went back from move " + std::to_string(memory_.seen.sequence) + " to " +
             std::to_string(head.sequence) + "; the store may be an old copy";
    case Standing::changed:
      return "there are two heads of move " + std::to_string(head.sequence) +
             "; the store may be an old copy";
    default:
      return "";
  }
}

void Machine::head_read(const Head& head, uint64_t cluster, const Digest& bytes,
                        const Moment& now) {
  standing_ = judge(head, cluster, bytes);
  tell(complaint_of(standing_, head), now);
  contact(now);
  head_pause_.reset();
  if (standing_ != Standing::followed) return;
  if (bytes != memory_.seen.bytes) {
    memory_.seen = {memory_.seen.count + 1, head.sequence, bytes};
    touch(now);
  }
  accept_cluster_ = false;
  force_ = false;
  memory_.cluster = cluster;
  memory_.confirmed = held_.number;
  const std::optional<Target> target = wanted_target(head);
  if (target != target_) take_due_ = now.steady;
  target_ = target;
}

void Machine::head_missing(const Moment& now) {
  // Nothing to go by: whatever is held stays. That a head is withheld confirms nothing.
  tell("there is no policy for scope " + identity_.scope, now);
  contact(now);
  target_.reset();
}

void Machine::head_forged(const std::string& why, const Moment& now) {
  tell(why, now);
  contact(now);
  head_due_ = now.steady + head_pause_.next();
}

void Machine::head_failed(const Moment& now) {
  contact_ = false;
  head_due_ = now.steady + head_pause_.next();
}

void Machine::watch_lost(const Moment& now) {
  head_due_ = std::min(head_due_, now.steady + watch_pause_.next());
}

void Machine::hold(const Held& held, const Moment& now) {
  held_ = held;
  take_pause_.reset();
  drift_.clear();
  repair_ = false;
  trouble_.clear();
  confirm_due_ = now.steady + std::chrono::seconds(held.confirm_seconds);
  touch(now);
}

void Machine::taken(const Held& held, const Moment& now) {
  hold(held, now);
  if (memory_.refused.number == held.number) memory_.refused = {};
  // What was just taken is confirmed when the store can be reached with it.
  if (is_unconfirmed()) head_due_ = now.steady;
}

void Machine::went_back(const Held& held, const Moment& now) {
  memory_.refused = {held_.number, held_.state,
                     "the store could not be reached for " + std::to_string(held_.confirm_seconds) +
                         " s after it was taken"};
  hold(held, now);
}

void Machine::could_not_go_back(const std::string& why, const Moment& now) {
  tell(why, now);
  confirm_due_ = now.steady + take_pause_.next();
}

void Machine::refused(const Target& target, const std::string& reason, const Moment& now) {
  memory_.refused = {target.number, target.state, reason};
  take_pause_.reset();
  touch(now);
}

void Machine::postponed(const std::string& why, const Moment& now) {
  take_due_ = now.steady + take_pause_.next();
  tell(why, now);
}

void Machine::drift_checked(const std::string& drift, const Moment& now) {
  drift_due_ = now.steady + with_jitter(timing_.drift, random_);
  if (drift_ != drift) touch(now);
  drift_ = drift;
}

void Machine::reported(const Moment& now) {
  has_news_ = false;
  memory_.status_sequence++;
  report_pause_.reset();
  report_due_ = now.steady + with_jitter(timing_.status, random_);
}

void Machine::report_failed(const Moment& now) {
  memory_.status_sequence++;  // it may have arrived
  report_due_ = now.steady + report_pause_.next();
}

void Machine::accept_cluster(const Moment& now) {
  accept_cluster_ = true;
  news(now);
}

void Machine::force(const Moment& now) {
  force_ = true;
  memory_.refused = {};
  news(now);
}

Status Machine::status() const {
  Status status;
  status.scope = identity_.scope;
  status.device = identity_.device;
  status.labels = identity_.labels;
  status.sequence = memory_.status_sequence + 1;
  status.applied = held_.number;
  status.state = held_.state;
  status.refused = memory_.refused.number;
  status.reason = memory_.refused.number != 0 ? memory_.refused.reason : trouble_;
  status.away_since = away_since_;
  status.drifted = !drift_.empty();
  status.drift = drift_;
  status.head_sequence = memory_.seen.sequence;
  return status;
}

}  // namespace qim::fleet
