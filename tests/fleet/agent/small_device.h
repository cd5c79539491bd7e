// A device in a directory of its own, with a clock that a test sets.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "fleet/agent/agent.h"
#include "tests/fleet/agent/publisher.h"
#include "tests/tools/support.h"

namespace fleet_test {

class SetClock : public qim::fleet::Clock {
 public:
  int64_t now() override { return wall_; }
  Steady steady() override { return steady_; }
  void pass(std::chrono::milliseconds time) {
    steady_ += time;
    wall_ += time.count() / 1000;
  }
  void jump(int64_t seconds) { wall_ += seconds; }

 private:
  Steady steady_{std::chrono::hours(1)};
  int64_t wall_ = 1'700'000'000;
};

class SmallDevice {
 public:
  SmallDevice(FakeStore& store, const Publisher& publisher, const std::string& name,
              std::vector<std::string> labels = {})
      : publisher_(publisher), connection_(store.connect()) {
    options_.identity = {publisher.scope(), name, std::move(labels)};
    options_.prefix = "/qim/";
    options_.directory = dir_ / "kept";
    options_.version = "test";
    std::filesystem::create_directory(options_.directory);
    device_options_ = {dir_ / "db", options_.directory, {}};
    start();
  }

  // As a process that ends and begins again.
  void start(bool allow_unknown = false) {
    agent_.reset();
    device_.reset();
    device_options_.checks.allow_unknown = allow_unknown;
    device_ = std::make_unique<qim::fleet::Device>(device_options_);
    agent_ = std::make_unique<qim::fleet::Agent>(
        qim::fleet::AgentParts{*device_, *connection_, clock_, publisher_.trusted(), key_},
        options_, seed_++,
        [this](qim::fleet::LogLevel, const std::string& text) { said_ += text + "\n"; });
  }
  // The same with an earlier memory: what was kept last did not reach the disk.
  void start_without_memory(const std::string& memory) {
    agent_.reset();
    tools_test::write_text(options_.directory + "/memory", memory);
    start();
  }
  void work() { agent_->work(); }
  // Works as time passes.
  void pass(std::chrono::milliseconds time, std::chrono::milliseconds step) {
    for (std::chrono::milliseconds passed(0); passed < time; passed += step) {
      clock_.pass(step);
      work();
    }
  }
  void ask(qim::fleet::Request request) const {
    tools_test::write_text(options_.directory + "/" + request_file(request), "");
  }

  qim::fleet::Held held() const { return device_->held(); }
  qim::fleet::State state() const {
    return qim::fleet::read_state(qimctl::ReadSession(device_->database()).handle());
  }
  // Somebody else edits the database.
  void tamper(uint32_t node) const {
    qimctl::WriteSession writer(device_->database());
    SmallPolicy policy;
    policy.actions[node] = "tampered";
    const qim::fleet::State state = policy.state();
    const std::string change = difference(qim::fleet::State(), state);
    qim::fleet::apply_changes(writer, qim::fleet::parse_difference(change));
    writer.commit();
  }
  std::string status_key() const {
    return publisher_.keys().status(publisher_.scope(), options_.identity.device);
  }
  qim::fleet::Agent& agent() { return *agent_; }
  const qim::fleet::Machine& machine() const { return agent_->machine(); }
  SetClock& clock() { return clock_; }
  const std::string& said() const { return said_; }
  const std::string& directory() const { return options_.directory; }
  qim::fleet::AgentOptions& options() { return options_; }

 private:
  const Publisher& publisher_;
  std::unique_ptr<qim::fleet::Store> connection_;
  tools_test::TempDir dir_;
  SetClock clock_;
  qim::fleet::PrivateKey key_ = qim::fleet::PrivateKey::generate();
  qim::fleet::AgentOptions options_;
  qim::fleet::DeviceOptions device_options_;
  uint64_t seed_ = 1;
  std::string said_;
  std::unique_ptr<qim::fleet::Device> device_;
  std::unique_ptr<qim::fleet::Agent> agent_;
};

}  // namespace fleet_test
