// A device that is killed while it takes one revision after the other: what it then holds is one of
// them, and its mark says which. Devices that are broken on purpose are caught.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <thread>

#include "fleet/agent/device.h"
#include "fleet/base/backoff.h"
#include "fleet/state/state_digest.h"
#include "tests/fleet/agent/publisher.h"
#include "tests/support/pace.h"
#include "tests/tools/support.h"

namespace {

using namespace qim::fleet;
using fleet_test::SmallPolicy;
using std::chrono::microseconds;

// How a device takes the step from `held` to the target.
using Take = std::function<void(Device& device, const std::string& change, const Held& next)>;

void take_well(Device& device, const std::string& change, const Held& next) {
  Supply supply;
  supply.differences.push_back(change);
  device.take(supply, {next.number, next.state, 0}, next.scope);
}

void take_whole(Device& device, const State& state, const Held& next) {
  Supply supply;
  supply.snapshot = state;
  device.take(supply, {next.number, next.state, 0}, next.scope);
}

void take_in_two_commits(Device& device, const std::string& change, const Held& next) {
  {
    qimctl::WriteSession writer(device.database());
    apply_changes(writer, parse_difference(change));
    writer.commit();
  }
  std::this_thread::sleep_for(microseconds(500));
  qimctl::WriteSession writer(device.database());
  write_mark(writer.handle(), next);
  writer.commit();
}

void take_unchecked(Device& device, const std::string& change, const Held& next) {
  // What came is not quite what was published.
  std::string damaged = change;
  damaged.back() = static_cast<char>(damaged.back() ^ 1);
  qimctl::WriteSession writer(device.database());
  apply_changes(writer, parse_difference(damaged));
  write_mark(writer.handle(), next);
  writer.commit();
}

void take_by_message(Device& device, const std::string& change, const Held& next) {
  const std::vector<NodeChange> changes = parse_difference(change);
  for (size_t n = 0; n < changes.size(); n++) {
    qimctl::WriteSession writer(device.database());
    apply_changes(writer, {changes[n]});
    if (n + 1 == changes.size()) write_mark(writer.handle(), next);
    writer.commit();
  }
}

class KilledDevice : public testing::Test {
 protected:
  static constexpr uint32_t kRevisions = 400;

  KilledDevice() {
    SmallPolicy policy;
    for (uint32_t id = 1; id <= 30; id++) policy.actions[id] = "first";
    for (uint32_t n = 1; n <= kRevisions; n++) {
      for (uint32_t id = 1; id <= 6; id++) policy.actions[id * 300] = std::to_string(n);
      policy.actions[1 + n % 30] = "revision " + std::to_string(n);
      states_.push_back(policy.state());
    }
    std::filesystem::create_directory(dir_ / "kept");
  }

  Held held_of(uint64_t number) const {
    Held held;
    held.scope = "edge";
    held.number = number;
    held.state = state_digest(states_[number - 1]);
    return held;
  }

  // The child's part: takes all revisions from where the device is, the first one whole.
  [[noreturn]] void take_all(const Take& take) const {
    try {
      Device device(options_);
      uint64_t number = device.held().number;
      if (number == 0) {
        number = 1;
        take_whole(device, states_.front(), held_of(number));
      }
      for (; number < kRevisions; number++) {
        take(device, difference(states_[number - 1], states_[number]), held_of(number + 1));
      }
    } catch (const std::exception& error) {
      fprintf(stderr, "%s\n", error.what());
      _exit(2);
    }
    _exit(0);
  }

  // Starts a device, and kills it a little later. False when it ended by itself, and not well.
  bool run(const Take& take, microseconds time) const {
    const pid_t child = fork();
    if (child == 0) take_all(take);
    std::this_thread::sleep_for(time);
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) || WEXITSTATUS(status) == 0;
  }

  // The checker: is what the database holds the revision that its mark says?
  bool is_whole(uint64_t* number) const {
    const Device device(options_);
    const qimctl::ReadSession session(device.database());
    *number = read_mark(session.handle()).number;
    const State state = read_state(session.handle());
    return state == (*number == 0 ? State() : states_[*number - 1]);
  }

  // In how many of some rounds the checker found something.
  int caught(const Take& take, int rounds) {
    Random random(7);
    int found = 0;
    for (int round = 0; round < rounds && found == 0; round++) {
      const auto most = static_cast<uint64_t>(pace::paced(microseconds(60'000)).count());
      const bool ended_well = run(take, microseconds(random.below(most)));
      uint64_t number = 0;
      if (!is_whole(&number)) found++;
      EXPECT_TRUE(ended_well || found != 0);
      EXPECT_GE(number, highest_);
      highest_ = number;
      if (number == kRevisions) start_anew();
    }
    return found;
  }

  void start_anew() {
    std::filesystem::remove_all(options_.database);
    highest_ = 0;
  }

  tools_test::TempDir dir_;
  DeviceOptions options_{dir_ / "db", dir_ / "kept", {}};
  std::vector<State> states_;
  uint64_t highest_ = 0;
};

TEST_F(KilledDevice, HoldsARevisionAndItsMark) {
  EXPECT_EQ(caught(take_well, 25), 0);
}

TEST_F(KilledDevice, ThatWritesTwiceIsCaught) {
  EXPECT_EQ(caught(take_in_two_commits, 400), 1);
}

TEST_F(KilledDevice, ThatDoesNotLookIsCaught) {
  EXPECT_EQ(caught(take_unchecked, 400), 1);
}

TEST_F(KilledDevice, ThatTakesNodeByNodeIsCaught) {
  EXPECT_EQ(caught(take_by_message, 400), 1);
}

}  // namespace
