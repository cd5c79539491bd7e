// Input and output around the machine.
#include "fleet/agent/agent.h"

#include <unistd.h>

#include <algorithm>
#include <thread>
#include <utility>

#include "fleet/base/files.h"

namespace qim::fleet {

namespace {

using std::chrono::milliseconds;

constexpr size_t most_memory = size_t{64} * 1024;
constexpr mode_t memory_mode = 0600;
// A wait without a watch is cut into such pieces, so that an interruption ends it.
constexpr milliseconds piece{50};

std::string memory_file(const AgentOptions& options) {
  return options.directory + "/memory";
}

Memory read_memory(const AgentOptions& options) {
  const std::string file = memory_file(options);
  Memory memory;
  if (file_exists(file)) memory = parse_memory(read_file(file, most_memory), file);
  if (memory.scope == options.identity.scope) return memory;
  // What was seen of another scope says nothing of this one.
  Memory fresh;
  fresh.scope = options.identity.scope;
  fresh.cluster = memory.cluster;
  fresh.status_sequence = memory.status_sequence;
  return fresh;
}

std::string revision_name(uint64_t number) {
  return "revision " + std::to_string(number);
}

}  // namespace

const char* request_file(Request request) {
  switch (request) {
    case Request::repair:
      return "repair";
    case Request::accept_cluster:
      return "accept-cluster";
    default:
      return "force";
  }
}

Agent::Agent(const AgentParts& parts, const AgentOptions& options, uint64_t seed, Say say)
    : parts_(parts),
      options_(options),
      say_(std::move(say)),
      keys_(options.prefix),
      machine_(options.identity, options.timing, parts.device.held(), read_memory(options),
               {parts.clock.steady(), parts.clock.now()}, seed),
      remembered_(machine_.memory()) {}

Agent::~Agent() {
  remember(true);
}

Moment Agent::now() {
  return {parts_.clock.steady(), parts_.clock.now()};
}

void Agent::work() {
  look_for_requests();
  for (Task task = machine_.next(now()); task.kind != TaskKind::wait && !interrupted_;
       task = machine_.next(now())) {
    perform(task);
    remember(false);
  }
  remember(false);
}

void Agent::perform(const Task& task) {
  switch (task.kind) {
    case TaskKind::read_head:
      return read_head();
    case TaskKind::take:
      return take(task.target);
    case TaskKind::go_back:
      return go_back(task.target);
    case TaskKind::repair:
      return repair(task.target);
    case TaskKind::check_drift:
      return check_drift();
    default:
      return report();
  }
}

void Agent::wait(milliseconds longest) {
  const Moment from = now();
  const Clock::Steady wake =
      remember_due_ ? std::min(*remember_due_, machine_.wake()) : machine_.wake();
  const auto due = std::chrono::ceil<milliseconds>(wake - from.steady);
  const milliseconds time = std::clamp(due, milliseconds(0), longest);
  if (interrupted_) return end_watch();
  if (time.count() == 0) return;
  if (watch_ == nullptr) {
    for (milliseconds slept(0); slept < time && !interrupted_; slept += piece) {
      std::this_thread::sleep_for(std::min(piece, time - slept));
    }
    if (interrupted_) end_watch();
    return;
  }
  try {
    const WatchNews news = watch_->wait(time);
    machine_.watch_works();
    if (news == WatchNews::changed) take_news(watch_->told());
  } catch (const StoreError&) {
    const std::lock_guard lock(mutex_);
    watch_.reset();
    machine_.watch_lost(now());
  }
  if (interrupted_) end_watch();
}

// A watch that was interrupted waits no more: the head is read, and watched anew.
void Agent::end_watch() {
  const std::lock_guard lock(mutex_);
  interrupted_ = false;
  watch_.reset();
  machine_.news(now());
}

void Agent::interrupt() {
  const std::lock_guard lock(mutex_);
  interrupted_ = true;
  if (watch_ != nullptr) watch_->interrupt();
}

void Agent::stop() {
  parts_.store.give_up();
  interrupt();
}

void Agent::read_head() {
  try {
    const GetAnswer answer = parts_.store.get(keys_.head(options_.identity.scope));
    read_until_ = answer.header.revision;
    if (!answer.found) machine_.head_missing(now());
    if (answer.found) use_head(answer);
    if (watch_ == nullptr) watch(answer.header.revision);
  } catch (const StoreError& error) {
    if (machine_.in_contact()) say_(LogLevel::warning, error.what());
    counts_.failures++;
    machine_.head_failed(now());
  }
}

void Agent::use_head(const GetAnswer& answer) {
  const std::string& value = answer.found->value;
  try {
    head_ = open_head(value, parts_.publishers, options_.identity.scope);
    machine_.head_read(head_, answer.header.cluster, sha256(value), now());
  } catch (const ForgedError& error) {
    say_(LogLevel::error, error.what());
    counts_.forged++;
    machine_.head_forged(error.what(), now());
  }
}

// News that have the head are as good as a reading of it, unless it was read since they were sent.
void Agent::take_news(const std::optional<GetAnswer>& told) {
  if (!told) return machine_.news(now());
  if (told->found->modified <= read_until_) return;
  read_until_ = told->found->modified;
  use_head(*told);
}

void Agent::watch(int64_t after) {
  std::unique_ptr<Watch> made;
  try {
    made = parts_.store.watch(keys_.head(options_.identity.scope), after);
  } catch (const StoreError&) {
    machine_.watch_lost(now());
  }
  const std::lock_guard lock(mutex_);
  watch_ = std::move(made);
}

// Runs what makes the database hold something else, and tells the machine what came of it.
void Agent::change(const Target& target, const std::function<Held()>& make) {
  std::string refusal;
  parts_.device.goes_by(machine_.memory().seen);
  try {
    const Held held = make();
    counts_.taken++;
    say_(LogLevel::notice, "holds " + revision_name(held.number));
    machine_.taken(held, now());
    return;
  } catch (const DriftError& error) {
    say_(LogLevel::error, error.what());
    machine_.drift_checked(error.what(), now());
    return;
  } catch (const RefusedError& error) {
    refusal = error.what();
  } catch (const ForgedError& error) {
    refusal = error.what();  // its publisher signed what can't be
  } catch (const std::exception& error) {
    say_(LogLevel::warning, error.what());
    machine_.postponed(error.what(), now());
    return;
  }
  counts_.refused++;
  say_(LogLevel::error, "refuses " + revision_name(target.number) + ": " + refusal);
  machine_.refused(target, refusal, now());
}

// Throws nothing but what the store or somebody on the way does: it may be better another time.
Supply Agent::fetch_supply(const Target& target, const Held& held) {
  return fetch({parts_.store, keys_, parts_.publishers, options_.identity.scope, &head_}, target,
               held);
}

void Agent::take(const Target& target) {
  Supply supply;
  const bool knows_way = parts_.device.can_go_back(target);
  try {
    if (!knows_way) supply = fetch_supply(target, machine_.held());
  } catch (const std::exception& error) {
    const bool forged = dynamic_cast<const ForgedError*>(&error) != nullptr;
    (forged ? counts_.forged : counts_.failures)++;
    say_(LogLevel::warning, error.what());
    return machine_.postponed(error.what(), now());
  }
  change(target, [&] {
    return knows_way ? parts_.device.go_back(target)
                     : parts_.device.take(supply, target, options_.identity.scope);
  });
}

void Agent::go_back(const Target& target) {
  parts_.device.goes_by(machine_.memory().seen);
  try {
    const Held held = parts_.device.go_back(target);
    say_(LogLevel::warning, "went back to " + revision_name(held.number));
    machine_.went_back(held, now());
  } catch (const std::exception& error) {
    say_(LogLevel::error, error.what());
    machine_.could_not_go_back(error.what(), now());
  }
}

void Agent::repair(const Target& target) {
  Supply supply;
  const bool has_it = parts_.device.can_repair();
  try {
    if (!has_it) supply = fetch_supply(target, {});
  } catch (const std::exception& error) {
    say_(LogLevel::warning, error.what());
    return machine_.postponed(error.what(), now());
  }
  change(target, [&] { return parts_.device.repair(has_it ? nullptr : &supply); });
}

void Agent::check_drift() {
  std::string drift = machine_.drift();
  try {
    drift = parts_.device.find_drift();
  } catch (const std::exception& error) {
    say_(LogLevel::error, error.what());
  }
  if (!drift.empty() && drift != machine_.drift()) say_(LogLevel::error, drift);
  machine_.drift_checked(drift, now());
}

void Agent::report() {
  Status status = machine_.status();
  status.time = parts_.clock.now();
  status.database = options_.database;
  status.version = options_.version;
  const Identity& identity = options_.identity;
  const Write write{keys_.status(identity.scope, identity.device),
                    seal_status(status, parts_.signer)};
  try {
    parts_.store.change({{}, {write}});
    counts_.reports++;
    machine_.reported(now());
  } catch (const StoreError& error) {
    counts_.failures++;
    if (error.failure() == StoreFailure::denied) say_(LogLevel::error, error.what());
    machine_.report_failed(now());
  }
}

void Agent::look_for_requests() {
  for (const Request request : {Request::repair, Request::accept_cluster, Request::force}) {
    const std::string file = options_.directory + "/" + request_file(request);
    if (!file_exists(file)) continue;
    unlink(file.c_str());
    say_(LogLevel::notice, std::string("was asked to ") + request_file(request));
    if (request == Request::repair) machine_.ask_repair();
    if (request == Request::accept_cluster) machine_.accept_cluster(now());
    if (request == Request::force) machine_.force(now());
  }
}

// Which head was seen last is in the database's mark, too, once it led to something, so that a device
// that has to take something does not write a file first. The rest is written at once.
bool Agent::can_remember_later() const {
  const Memory& memory = machine_.memory();
  return memory.cluster == remembered_.cluster && memory.refused == remembered_.refused &&
         memory.status_sequence == remembered_.status_sequence;
}

void Agent::remember(bool at_once) {
  if (machine_.memory() == remembered_) return;
  const Clock::Steady at = parts_.clock.steady();
  if (!remember_due_) remember_due_ = at + options_.timing.report_spread;
  if (!at_once && can_remember_later() && at < *remember_due_) return;
  remember_due_.reset();
  try {
    write_file(memory_file(options_), to_text(machine_.memory()), memory_mode);
    remembered_ = machine_.memory();
  } catch (const Error& error) {
    say_(LogLevel::error, error.what());
  }
}

}  // namespace qim::fleet
