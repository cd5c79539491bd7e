// An agent and a store, one thing at a time.
#include <gmock/gmock.h>

#include "fleet/base/backoff.h"
#include "fleet/state/state_digest.h"
#include "tests/fleet/agent/small_device.h"

namespace {

using namespace std::chrono_literals;
using namespace qim::fleet;
using fleet_test::FakeStore;
using fleet_test::Publisher;
using fleet_test::SmallDevice;
using fleet_test::SmallPolicy;
using testing::HasSubstr;

SmallPolicy policy(uint32_t count, const std::string& text = "text") {
  SmallPolicy made;
  for (uint32_t id = 1; id <= count; id++) made.actions[id] = text;
  for (uint32_t id = 2; id <= count; id++) made.links[id] = id - 1;
  return made;
}

class AgentTest : public testing::Test {
 protected:
  Status status(const SmallDevice& device) const {
    return open_status(store_.value(device.status_key()), nullptr, "edge", "d1");
  }
  // A rollout of the newest revision to `percent`.
  void stage(uint32_t percent, uint32_t confirm_seconds = 0) {
    Stage stage;
    stage.percent = percent;
    stage.confirm_seconds = confirm_seconds;
    publisher_.move(publisher_.last() - 1, publisher_.last(), stage);
  }
  void unreachable(bool is) {
    store_.on_call([is](const std::string&, const std::string&) {
      return is ? FakeStore::Fault::unreachable : FakeStore::Fault::none;
    });
  }

  FakeStore store_;
  Publisher publisher_{store_, "edge"};
};

TEST_F(AgentTest, TakesWhatTheHeadSaysAndSaysSo) {
  SmallDevice device(store_, publisher_, "d1");
  device.work();
  EXPECT_EQ(device.held().number, 0U);
  publisher_.publish(policy(20).state(), true);
  publisher_.publish(policy(25).state());
  device.pass(3min, 20s);
  EXPECT_EQ(device.held().number, 2U);
  EXPECT_EQ(device.state(), publisher_.state(2));
  EXPECT_EQ(status(device).applied, 2U);
  EXPECT_EQ(status(device).state, state_digest(publisher_.state(2)));
  EXPECT_TRUE(device.machine().is_settled());
}

TEST_F(AgentTest, FollowsDifferencesFromWhatItHolds) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state());
  device.work();
  for (uint32_t count = 21; count < 26; count++) publisher_.publish(policy(count).state());
  device.pass(3min, 20s);
  EXPECT_EQ(device.held().number, 6U);
  EXPECT_EQ(device.held().previous, 1U);
  EXPECT_EQ(device.state(), publisher_.state(6));
}

TEST_F(AgentTest, GoesOnWhereItWasAfterANewStart) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state());
  device.work();
  device.start();
  publisher_.publish(policy(21).state());
  device.work();
  EXPECT_EQ(device.held().number, 2U);
  EXPECT_EQ(device.machine().memory().seen.sequence, 2U);
}

TEST_F(AgentTest, TakesTheNextRevisionWhenItsStageComes) {
  SmallDevice device(store_, publisher_, "d1", {"early"});
  publisher_.publish(policy(20).state());
  publisher_.add(policy(21).state(), false);
  stage(0);
  device.work();
  EXPECT_EQ(device.held().number, 1U);
  stage(100);
  device.pass(3min, 20s);
  EXPECT_EQ(device.held().number, 2U);
  publisher_.add(policy(22).state(), false);
  Stage labelled;
  labelled.labels = {"early"};
  publisher_.move(2, 3, labelled);
  device.pass(3min, 20s);
  EXPECT_EQ(device.held().number, 3U);
}

TEST_F(AgentTest, GoesBackOverTheWayThatItKept) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state(), true);
  device.work();
  publisher_.publish(policy(30, "other").state());
  device.pass(3min, 20s);
  ASSERT_EQ(device.held().number, 2U);
  // Not a revision of the store is needed for that.
  for (const std::string& key : store_.keys()) {
    if (key.find("/r/") != key.npos || key.find("/c/") != key.npos) store_.erase(key);
  }
  publisher_.move(1, 1);
  device.pass(3min, 20s);
  EXPECT_EQ(device.held().number, 1U);
  EXPECT_EQ(device.state(), publisher_.state(1));
}

TEST_F(AgentTest, AsksForNothingThatTheHeadCarries) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state(), true);
  device.work();
  publisher_.add(policy(21).state(), false);
  const std::string key = publisher_.keys().revision("edge", 2);
  Head head = publisher_.head();
  head.sequence++;
  head.last = head.next = 2;
  head.next_state = state_digest(publisher_.state(2));
  head.stage.percent = 100;
  head.carried = store_.value(key);
  store_.erase(key);
  store_.put(publisher_.keys().head("edge"), publisher_.sealed_head(head));
  device.agent().wait(1ms);
  const size_t calls = store_.calls();
  device.work();
  EXPECT_EQ(device.held().number, 2U);
  EXPECT_EQ(device.state(), publisher_.state(2));
  // What is told is as good as what is read: nothing was asked but to take the report.
  EXPECT_LE(store_.calls() - calls, 1U);
}

TEST_F(AgentTest, DoesNotGoBackToWhatAWatchIsLateWith) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state(), true);
  device.work();
  publisher_.publish(policy(21).state());
  device.pass(2min, 20s);  // reads it before the watch tells
  ASSERT_EQ(device.held().number, 2U);
  device.agent().wait(1ms);
  EXPECT_EQ(device.machine().standing(), Standing::followed);
  EXPECT_EQ(device.machine().memory().seen.sequence, 2U);
}

TEST_F(AgentTest, RemembersTheHeadWithWhatItLedTo) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state(), true);
  device.work();
  const auto old = store_.save();
  const std::string memory = tools_test::read_text(device.directory() + "/memory");
  publisher_.publish(policy(21).state());
  device.pass(2min, 20s);
  // As after a loss of power before the file was written.
  device.start_without_memory(memory);
  store_.restore(old);
  device.work();
  EXPECT_EQ(device.machine().standing(), Standing::behind);
  EXPECT_EQ(device.held().number, 2U);
  device.ask(Request::force);
  device.work();
  EXPECT_EQ(device.held().number, 1U);
  // What was forced stays so.
  device.start();
  device.work();
  EXPECT_EQ(device.machine().standing(), Standing::followed);
}

TEST_F(AgentTest, TakesTheSnapshotWhereTheChainIsPruned) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state(), true);
  device.work();
  for (uint32_t count = 21; count < 26; count++)
    publisher_.publish(policy(count).state(), count == 24);
  for (uint64_t number = 1; number < 5; number++)
    store_.erase(publisher_.keys().revision("edge", number));
  device.pass(3min, 20s);
  EXPECT_EQ(device.held().number, 6U);
  EXPECT_EQ(device.state(), publisher_.state(6));
}

TEST_F(AgentTest, KeepsALongWayBackInAFile) {
  SmallDevice device(store_, publisher_, "d1");
  SmallPolicy noise;
  for (uint32_t id = 1; id <= 400; id++) noise.actions[id] = to_hex(sha256(std::to_string(id)));
  publisher_.publish(noise.state(), true);
  device.work();
  publisher_.publish(policy(400).state());
  device.pass(3min, 20s);
  ASSERT_EQ(device.held().number, 2U);
  EXPECT_TRUE(std::filesystem::exists(device.directory() + "/back"));
  publisher_.move(1, 1);
  device.pass(3min, 20s);
  EXPECT_EQ(device.state(), publisher_.state(1));
}

TEST_F(AgentTest, RefusesWhatItsChecksFindAndAsksNoMore) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state());
  device.work();
  StateBuilder bad;
  bad.add({5, 0, "", "no TLV", {}});
  publisher_.publish(bad.finish());
  device.pass(3min, 20s);
  EXPECT_EQ(device.held().number, 1U);
  EXPECT_EQ(status(device).refused, 2U);
  EXPECT_THAT(status(device).reason, HasSubstr("node 0x00000005 is not understood"));
  const uint64_t refused = device.agent().counts().refused;
  device.start();
  device.pass(10min, 20s);
  EXPECT_EQ(device.agent().counts().refused, 0U);
  EXPECT_EQ(refused, 1U);
  publisher_.publish(policy(22).state(), true);
  device.pass(3min, 20s);
  EXPECT_EQ(device.held().number, 3U);
  EXPECT_EQ(device.state(), publisher_.state(3));
}

TEST_F(AgentTest, RefusesLinksThatLeadNowhere) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state());
  device.work();
  // Node 7 goes, and node 8 still leads to it.
  SmallPolicy next = policy(20);
  StateBuilder bad;
  const State whole = next.state();
  for (size_t n = 0; n < whole.size(); n++) {
    if (whole.at(n).id != 7) bad.add(whole.at(n));
  }
  publisher_.publish(bad.finish());
  device.pass(3min, 20s);
  EXPECT_THAT(status(device).reason,
              HasSubstr("node 0x00000008 leads to node 0x00000007, which is not there"));
  EXPECT_EQ(device.state(), publisher_.state(1));
}

TEST_F(AgentTest, RefusesADifferenceThatMakesAnotherState) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state());
  device.work();
  publisher_.add_false(policy(21).state(), policy(22).state());
  publisher_.move(2, 2);
  device.pass(3min, 20s);
  EXPECT_EQ(device.held().number, 1U);
  EXPECT_EQ(device.state(), publisher_.state(1));
  EXPECT_THAT(status(device).reason, HasSubstr("revision 2 makes the state "));
}

TEST_F(AgentTest, TellsDriftAndRepairsItOnlyWhenAsked) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state(), true);
  device.work();
  device.tamper(99);
  device.pass(2h, 5min);
  EXPECT_TRUE(status(device).drifted);
  EXPECT_THAT(status(device).drift, HasSubstr("as of revision 1"));
  publisher_.publish(policy(21).state());
  device.pass(10min, 20s);
  EXPECT_EQ(device.held().number, 1U);
  device.ask(Request::repair);
  device.pass(3min, 20s);
  EXPECT_EQ(device.held().number, 2U);
  EXPECT_EQ(device.state(), publisher_.state(2));
  EXPECT_FALSE(status(device).drifted);
}

TEST_F(AgentTest, RepairsFromWhatItKept) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state(), true);
  device.work();
  device.pass(2h, 5min);  // the state was looked at, and kept
  device.tamper(99);
  unreachable(true);
  device.ask(Request::repair);
  device.pass(3min, 20s);
  EXPECT_EQ(device.state(), publisher_.state(1));
}

TEST_F(AgentTest, NoticesDriftBeforeItTakesAnything) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state());
  device.work();
  device.tamper(99);
  publisher_.publish(policy(21).state());
  device.pass(3min, 20s);
  EXPECT_EQ(device.held().number, 1U);
  EXPECT_TRUE(status(device).drifted);
}

TEST_F(AgentTest, GoesBackByItselfWithoutContact) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state());
  device.work();
  publisher_.add(policy(21).state(), false);
  // The network goes with the revision.
  store_.on_call([&](const std::string& call, const std::string& key) {
    static bool s_gone = false;
    if (call == "get" && key.find("/r/") != key.npos) s_gone = true;
    return s_gone && call == "get" && key.find("/h/") != key.npos ? FakeStore::Fault::unreachable
                                                                  : FakeStore::Fault::none;
  });
  stage(100, 120);
  device.pass(90s, 10s);
  EXPECT_EQ(device.held().number, 2U);
  device.pass(150s, 10s);
  EXPECT_EQ(device.held().number, 1U);
  EXPECT_EQ(device.state(), publisher_.state(1));
  unreachable(false);
  device.pass(5min, 20s);
  EXPECT_EQ(device.held().number, 1U);
  EXPECT_EQ(status(device).refused, 2U);
  EXPECT_THAT(status(device).reason, HasSubstr("could not be reached for 120 s"));
}

TEST_F(AgentTest, StaysWhereThereIsContact) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state());
  device.work();
  publisher_.add(policy(21).state(), false);
  stage(100, 120);
  device.pass(2min, 20s);
  EXPECT_EQ(device.machine().memory().confirmed, 2U);
  unreachable(true);
  device.pass(30min, 20s);
  EXPECT_EQ(device.held().number, 2U);
  unreachable(false);
  device.pass(3min, 20s);
  EXPECT_NE(status(device).away_since, 0);
}

TEST_F(AgentTest, AClockThatJumpsChangesNothingButWhatPeopleRead) {
  constexpr int64_t year = 365 * 24 * 3600;
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state(), true);
  device.work();
  publisher_.add(policy(21).state(), false);
  stage(100, 600);
  device.pass(2min, 20s);
  ASSERT_EQ(device.held().number, 2U);
  for (const int64_t jump : {year, -2 * year, year}) {
    device.clock().jump(jump);
    device.pass(2min, 20s);
    EXPECT_EQ(device.held().number, 2U);
    EXPECT_EQ(device.machine().standing(), Standing::followed);
  }
  // Without contact it is the time that passes that counts, and that was confirmed before.
  unreachable(true);
  device.clock().jump(year);
  device.pass(20min, 20s);
  EXPECT_EQ(device.held().number, 2U);
  unreachable(false);
  publisher_.publish(policy(22).state());
  device.pass(3min, 20s);
  EXPECT_EQ(device.held().number, 3U);
}

TEST_F(AgentTest, FollowsNoOtherClusterUntilItIsTold) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state());
  device.work();
  store_.set_cluster(77);
  publisher_.publish(policy(21).state());
  device.pass(5min, 20s);
  EXPECT_EQ(device.held().number, 1U);
  EXPECT_THAT(status(device).reason, HasSubstr("another cluster"));
  device.ask(Request::accept_cluster);
  device.pass(3min, 20s);
  EXPECT_EQ(device.held().number, 2U);
  EXPECT_EQ(status(device).reason, "");
}

TEST_F(AgentTest, FollowsNoHeadThatWentBackUntilItIsForced) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state());
  const auto backup = store_.save();
  publisher_.publish(policy(21).state());
  device.work();
  ASSERT_EQ(device.held().number, 2U);
  store_.restore(backup);
  device.pass(5min, 20s);
  EXPECT_EQ(device.held().number, 2U);
  EXPECT_THAT(status(device).reason, HasSubstr("the head went back from move 2 to 1"));
  device.ask(Request::force);
  device.pass(3min, 20s);
  EXPECT_EQ(device.held().number, 1U);
  EXPECT_EQ(device.state(), publisher_.state(1));
}

TEST_F(AgentTest, FollowsNoSecondHeadOfOneMove) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state());
  device.work();
  Head other = publisher_.head();
  other.what = "another one";
  store_.put(publisher_.keys().head("edge"), publisher_.sealed_head(other));
  device.pass(5min, 20s);
  EXPECT_THAT(status(device).reason, HasSubstr("two heads of move 1"));
}

TEST_F(AgentTest, BelievesNobodyWhoIsNotTrusted) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state());
  device.work();
  Publisher stranger(store_, "edge");
  stranger.publish(policy(5).state());
  device.pass(5min, 20s);
  EXPECT_EQ(device.held().number, 1U);
  EXPECT_GT(device.agent().counts().forged, 0U);
  EXPECT_NE(status(device).reason, "");
}

TEST_F(AgentTest, WaitsForWhatIsWithheld) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state());
  const std::string key = publisher_.keys().revision("edge", 1);
  const std::string value = store_.value(key);
  store_.erase(key);
  device.pass(2min, 20s);
  EXPECT_EQ(device.held().number, 0U);
  EXPECT_THAT(status(device).reason, HasSubstr("the store has no revision 1"));
  store_.put(key, value);
  device.pass(2min, 20s);
  EXPECT_EQ(device.held().number, 1U);
}

TEST_F(AgentTest, SaysThatThereIsNoPolicy) {
  SmallDevice device(store_, publisher_, "d1");
  device.pass(2min, 20s);
  EXPECT_EQ(status(device).reason, "there is no policy for scope edge");
}

TEST_F(AgentTest, IsWokenByTheWatch) {
  SmallDevice device(store_, publisher_, "d1");
  device.work();
  publisher_.publish(policy(20).state());
  device.agent().wait(10s);
  device.work();
  EXPECT_EQ(device.held().number, 1U);
  store_.break_watches();
  device.agent().wait(10s);  // ends at once
  device.pass(1min, 10s);
  publisher_.publish(policy(21).state());
  device.agent().wait(10s);
  device.work();
  EXPECT_EQ(device.held().number, 2U);
  // What is interrupted while it works waits again afterwards.
  device.agent().interrupt();
  device.agent().wait(10s);
  device.work();
  const auto before = std::chrono::steady_clock::now();
  device.agent().wait(50ms);
  EXPECT_GE(std::chrono::steady_clock::now() - before, 40ms);
}

TEST_F(AgentTest, AsksNothingMoreOnceItIsStopped) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state());
  device.agent().stop();
  device.work();
  device.agent().wait(10s);  // ends at once
  device.work();
  EXPECT_EQ(device.held().number, 0U);
}

TEST_F(AgentTest, BeginsAnewInAnotherScope) {
  SmallDevice device(store_, publisher_, "d1");
  publisher_.publish(policy(20).state());
  publisher_.publish(policy(21).state());
  device.work();
  device.options().identity.scope = "lab";
  device.start();
  EXPECT_EQ(device.machine().memory().seen.sequence, 0U);
  EXPECT_EQ(device.machine().memory().cluster, 1U);
}

TEST_F(AgentTest, ComesBackAfterAllFaults) {
  for (uint64_t seed = 1; seed <= 6; seed++) {
    FakeStore store;
    Publisher publisher(store, "edge");
    SmallDevice device(store, publisher, "d1");
    Random random(seed);
    SmallPolicy now = policy(20);
    publisher.publish(now.state(), true);
    store.on_call([&](const std::string&, const std::string&) {
      constexpr FakeStore::Fault faults[] = {
          FakeStore::Fault::unreachable, FakeStore::Fault::lost_request,
          FakeStore::Fault::lost_answer, FakeStore::Fault::denied, FakeStore::Fault::refused};
      return random.below(3) == 0 ? faults[random.below(5)] : FakeStore::Fault::none;
    });
    store.on_answer([&](KeyValue& item) {
      if (random.below(4) != 0 || item.value.empty()) return;
      char& byte = item.value[random.below(item.value.size())];
      byte = static_cast<char>(byte ^ 1);
    });
    uint64_t highest = 0;
    for (int round = 0; round < 60; round++) {
      const uint64_t what = random.below(8);
      if (what < 3) {
        now.actions[static_cast<uint32_t>(1 + random.below(40))] = std::to_string(round);
        publisher.publish(now.state(), random.below(6) == 0);
      }
      if (what == 3) device.start();
      if (what == 4) device.clock().jump(static_cast<int64_t>(random.below(200'000)) - 100'000);
      if (what == 5) store.break_watches();
      device.pass(20s, 5s);
      const Held held = device.held();
      EXPECT_GE(held.number, highest) << seed;
      highest = held.number;
      const State state = device.state();
      EXPECT_EQ(state, held.number == 0 ? State() : publisher.state(held.number)) << seed;
    }
    store.on_call({});
    store.on_answer({});
    device.pass(5min, 10s);
    EXPECT_EQ(device.held().number, publisher.last()) << seed;
  }
}

}  // namespace
