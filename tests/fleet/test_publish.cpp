// Pushing, rolling out and looking on, on a store that fails as it is told.
#include <set>

#include "fleet/publish/device_status.h"
#include "fleet/publish/prune.h"
#include "fleet/publish/push.h"
#include "fleet/publish/rollout.h"
#include "fleet/publish/verify.h"
#include "fleet/state/state_digest.h"
#include "tests/fleet/support/fake_store.h"

namespace fleet_test {
namespace {

using namespace qim::fleet;
using qimctl::AccessList;
using qimctl::Entry;
using Fault = FakeStore::Fault;

// A list of so many entries, that have different names.
Wanted lists(const std::string& name, size_t entries, bool prune = false) {
  Wanted wanted;
  AccessList list;
  list.name = name;
  for (size_t i = 0; i < entries; i++) {
    Entry entry;
    entry.name = "entry-" + std::to_string(i);
    list.entries.push_back(std::move(entry));
  }
  wanted.model.lists.push_back(std::move(list));
  wanted.prune = prune;
  return wanted;
}

class FleetPublish : public testing::Test {
 protected:
  Revision push_lists(Wanted wanted, const std::string& message = "") {
    return push(scope_, plan_push(scope_, std::move(wanted), {}), message);
  }
  // Pushes, and rolls out to all.
  Revision publish(const std::string& name, size_t entries) {
    const Revision revision = push_lists(lists(name, entries));
    all();
    return revision;
  }
  void all() {
    Stage stage;
    stage.percent = 100;
    start_rollout(scope_, stage);
  }
  Head head() { return scope_.head().head; }

  void say(const std::string& device, const PrivateKey& key, uint64_t applied, uint64_t refused = 0,
           bool drifted = false) {
    Status status;
    status.scope = "edge";
    status.device = device;
    status.applied = applied;
    status.refused = refused;
    status.reason = refused == 0 ? "" : "it is bad";
    status.drifted = drifted;
    fake_.put(publisher_.keys.status("edge", device), seal_status(status, key));
  }

  template <typename Wrong, typename Call>
  std::string said(Call call) {
    try {
      call();
    } catch (const Wrong& error) {
      return error.what();
    }
    return "nothing was thrown";
  }

  FakeStore fake_;
  std::unique_ptr<Store> store_ = fake_.connect();
  PrivateKey key_ = PrivateKey::generate();
  Publisher publisher_{*store_, Keys("/qim/"), TrustedKeys({{key_.public_key(), "me"}}),
                       nullptr, &key_,         "me"};
  Scope scope_{publisher_, "edge"};
};

TEST_F(FleetPublish, APushIsNextAndNobodyTakesItYet) {
  const Revision revision = push_lists(lists("guard", 3), "why");
  EXPECT_EQ(revision.number, 1u);
  EXPECT_EQ(head().next, 1u);
  EXPECT_EQ(head().base, 0u);
  EXPECT_EQ(head().sequence, 1u);
  EXPECT_EQ(stage_text(head()), "not begun");
  EXPECT_EQ(scope_.revision(1).message, "why");
  EXPECT_EQ(state_digest(scope_.state(1)), revision.state);
}

TEST_F(FleetPublish, WhatIsThereAlreadyIsNothingToPush) {
  publish("guard", 3);
  const PushPlan plan = plan_push(scope_, lists("guard", 3), {});
  EXPECT_FALSE(plan.any());
  EXPECT_TRUE(plan.target.lines.empty());
}

TEST_F(FleetPublish, ADifferenceIsSmallWhateverThePolicyIs) {
  publish("guard", 2000);
  const Revision revision = push_lists(lists("guard", 2001));
  EXPECT_TRUE(revision.has_difference);
  EXPECT_FALSE(revision.has_snapshot);
  EXPECT_LT(revision.difference.size(), 1024u);
}

TEST_F(FleetPublish, PushesFollowEachOtherAndOthersListsStay) {
  publish("guard", 2);
  const Revision second = push_lists(lists("gate", 2));
  EXPECT_EQ(second.predecessor, 1u);
  EXPECT_EQ(head().base, 1u);
  EXPECT_EQ(difference_of_lists(scope_.state(0), scope_.state(2)).size(), 6u);
  all();
  push_lists(lists("gate", 2, true));
  EXPECT_EQ(difference_of_lists(scope_.state(0), scope_.state(3)).size(), 3u);
}

TEST_F(FleetPublish, ARolloutThatHasNotBegunCanBeReplaced) {
  push_lists(lists("guard", 2));
  push_lists(lists("guard", 3));
  EXPECT_EQ(head().base, 0u);
  EXPECT_EQ(head().next, 2u);
  all();
  push_lists(lists("guard", 4));
  push_lists(lists("guard", 5));
  EXPECT_EQ(head().base, 2u);
  EXPECT_EQ(head().next, 4u);
}

TEST_F(FleetPublish, ARolloutUnderWayIsNotOvertaken) {
  push_lists(lists("guard", 2));
  Stage stage;
  stage.percent = 20;
  start_rollout(scope_, stage);
  EXPECT_NE(said<RefusedError>([&] { push_lists(lists("guard", 3)); }).find("20 %"),
            std::string::npos);
}

TEST_F(FleetPublish, WhatIsExpectedIsComparedFirst) {
  publish("guard", 2);
  EXPECT_NO_THROW(plan_push(scope_, lists("guard", 3), 1));
  EXPECT_THROW(plan_push(scope_, lists("guard", 3), 0), RefusedError);
}

TEST_F(FleetPublish, NobodyOvertakesUnnoticed) {
  const PushPlan mine = plan_push(scope_, lists("guard", 2), {});
  push_lists(lists("gate", 2));
  EXPECT_NE(said<RefusedError>([&] { push(scope_, mine, ""); }).find("somebody else"),
            std::string::npos);
  EXPECT_EQ(head().sequence, 1u);
  EXPECT_EQ(scope_.revisions().size(), 1u);
}

// Whatever is lost, a push is done once.
TEST_F(FleetPublish, ALostAnswerIsSettled) {
  uint64_t pushed = 0;
  for (const Fault fault : {Fault::lost_answer, Fault::lost_request, Fault::unreachable}) {
    for (size_t at = 0; at < 3; at++) {
      size_t calls = 0;
      fake_.on_call([&](const std::string& call, const std::string&) {
        return call == "change" && calls++ == at ? fault : Fault::none;
      });
      push_lists(lists("guard", 2 + static_cast<size_t>(pushed)));
      pushed++;
      EXPECT_EQ(head().last, pushed);
      EXPECT_EQ(head().sequence, pushed);
      EXPECT_EQ(scope_.revisions().size(), pushed);
    }
  }
}

TEST_F(FleetPublish, ThatNothingAnswersIsSaidInTheEnd) {
  const PushPlan plan = plan_push(scope_, lists("guard", 2), {});
  publisher_.tries = 2;
  fake_.on_call([](const std::string&, const std::string&) { return Fault::lost_request; });
  EXPECT_THROW(push(scope_, plan, ""), StoreError);
  fake_.on_call([](const std::string&, const std::string&) { return Fault::denied; });
  EXPECT_THROW(push(scope_, plan, ""), StoreError);
  fake_.on_call(nullptr);
  push(scope_, plan, "");
  EXPECT_EQ(head().last, 1u);
}

TEST_F(FleetPublish, ASnapshotComesWithEachSixtyFourthRevision) {
  for (size_t i = 1; i <= snapshot_revisions; i++) {
    const Revision revision = push_lists(lists("guard", i));
    EXPECT_EQ(revision.has_snapshot, i == snapshot_revisions) << i;
  }
  const Revision next = push_lists(lists("guard", 80));
  EXPECT_EQ(next.newest_snapshot, snapshot_revisions);
  EXPECT_EQ(state_digest(scope_.state(next.number)), next.state);
  EXPECT_EQ(next.chain_bytes, next.difference.size());
}

TEST_F(FleetPublish, WhatIsTooLongForADifferenceIsASnapshot) {
  PushPlan plan = plan_push(scope_, lists("guard", 20000), {});
  // Noise, which can't be compressed, stands for a policy many times as large.
  std::string noise;
  for (size_t i = 0; noise.size() <= most_difference; i++)
    noise += to_bytes(sha256(std::to_string(i)));
  plan.difference = noise;
  const Revision revision = push(scope_, plan, "");
  EXPECT_FALSE(revision.has_difference);
  EXPECT_TRUE(revision.has_snapshot);
  EXPECT_EQ(state_digest(scope_.state(1)), revision.state);
  for (const Chunk& chunk : revision.snapshot) EXPECT_LE(chunk.size, most_chunk);
}

TEST_F(FleetPublish, ARolloutGoesOnInStages) {
  push_lists(lists("guard", 2));
  EXPECT_THROW(advance_rollout(scope_, {}), RefusedError);
  Stage stage;
  stage.labels = {"lab\x1b", "canary"};
  EXPECT_EQ(stage_text(start_rollout(scope_, stage)), "0 % and lab\\x1b, canary");
  EXPECT_THROW(start_rollout(scope_, stage), RefusedError);
  EXPECT_EQ(stage_text(advance_rollout(scope_, {.percent = 20, .force = false})),
            "20 % and lab\\x1b, canary");
  EXPECT_EQ(stage_text(hold_rollout(scope_)), "20 % and lab\\x1b, canary, held");
  EXPECT_TRUE(is_under_way(head()));
  EXPECT_THROW(advance_rollout(scope_, {.percent = 10, .force = false}), RefusedError);
  advance_rollout(scope_, {});
  EXPECT_FALSE(is_under_way(head()));
  EXPECT_FALSE(head().stage.hold);
}

TEST_F(FleetPublish, SaltsDiffer) {
  std::set<std::string> salts;
  for (size_t i = 1; i <= 5; i++) {
    publish("guard", i);
    salts.insert(head().stage.salt);
  }
  EXPECT_EQ(salts.size(), 5u);
}

TEST_F(FleetPublish, FailuresHoldARollout) {
  push_lists(lists("guard", 2));
  Stage stage;
  stage.percent = 20;
  stage.max_failures = 1;
  start_rollout(scope_, stage);
  say("d1", key_, 0, 1);
  advance_rollout(scope_, {.percent = 50, .force = false});
  say("d2", key_, 0, 1);
  EXPECT_NE(said<RefusedError>([&] { advance_rollout(scope_, {}); }).find("2 devices refused"),
            std::string::npos);
  EXPECT_TRUE(head().stage.hold);
  EXPECT_EQ(head().stage.percent, 50u);
  EXPECT_EQ(stage_text(advance_rollout(scope_, {.percent = 100, .force = true})), "all");
}

TEST_F(FleetPublish, FailuresThatWereForcedAreNoneAnyMore) {
  push_lists(lists("guard", 2));
  Stage stage;
  stage.percent = 20;
  start_rollout(scope_, stage);
  say("d1", key_, 0, 1);
  EXPECT_TRUE(has_failed(progress_of(scope_)));
  advance_rollout(scope_, {.percent = 100, .force = true});
  EXPECT_FALSE(guard_rollout(scope_).held);
  say("d2", key_, 0, 1);
  EXPECT_TRUE(guard_rollout(scope_).held);
  EXPECT_TRUE(head().stage.hold);
}

TEST_F(FleetPublish, AGuardHoldsARolloutThatFails) {
  publish("guard", 1);
  say("d1", key_, 1);
  say("d2", key_, 1);
  push_lists(lists("guard", 2));
  say("d3", key_, 1, 2);  // before it began: nothing to hold yet
  EXPECT_FALSE(guard_rollout(scope_).held);
  Stage stage;
  stage.percent = 100;
  stage.max_failures = 1;
  start_rollout(scope_, stage);
  say("d1", key_, 2);
  EXPECT_EQ(to_string(guard_rollout(scope_)), "1 of 3 devices holds revision 2, 1 refused it");
  say("d2", key_, 1, 2);
  const Progress progress = guard_rollout(scope_);
  EXPECT_TRUE(progress.held);
  EXPECT_FALSE(progress.is_done());
  EXPECT_EQ(head().what, "held by failures");
  // Held already.
  EXPECT_FALSE(guard_rollout(scope_).held);
  EXPECT_NE(failures_text(head(), 2).find("2 devices refused revision 2, and 1 may"),
            std::string::npos);
}

TEST_F(FleetPublish, AStageCarriesWhatDevicesNeedForIt) {
  const Revision first = push_lists(lists("guard", 2));
  EXPECT_EQ(head().carried, "");
  all();
  EXPECT_EQ(head().carried, fake_.value(publisher_.keys.revision("edge", first.number)));
  hold_rollout(scope_);
  EXPECT_EQ(head().carried, "");
  advance_rollout(scope_, {});
  // A long one is asked for by those who take it.
  push_lists(lists("gate", 2000));
  EXPECT_EQ(head().carried, "");
  all();
  EXPECT_EQ(head().carried, "");
}

TEST_F(FleetPublish, ARollbackIsAMoveOfTheHead) {
  const Revision first = publish("guard", 2);
  publish("guard", 3);
  const Head back = roll_back(scope_, {});
  EXPECT_EQ(back.next, 1u);
  EXPECT_EQ(back.base, 1u);
  EXPECT_EQ(head().next_state, first.state);
  EXPECT_EQ(head().sequence, 5u);
  EXPECT_THROW(roll_back(scope_, {}), RefusedError);
  EXPECT_EQ(roll_back(scope_, 2).next, 2u);
  EXPECT_THROW(roll_back(scope_, 9), AbsentError);
  EXPECT_THROW(hold_rollout(scope_), RefusedError);
  // The next push has a number of its own, and follows what was gone back to.
  roll_back(scope_, 1);
  const Revision next = push_lists(lists("guard", 4));
  EXPECT_EQ(next.number, 3u);
  EXPECT_EQ(next.predecessor, 1u);
}

TEST_F(FleetPublish, TheFirstRevisionCanBeTakenBack) {
  publish("guard", 2);
  EXPECT_EQ(roll_back(scope_, {}).next, 0u);
  const Revision second = push_lists(lists("guard", 3));
  EXPECT_EQ(second.number, 2u);
  EXPECT_EQ(second.predecessor, 0u);
  EXPECT_EQ(verify_scope(scope_).defects, std::vector<std::string>{});
}

TEST_F(FleetPublish, WhatIsNotThereIsSaid) {
  EXPECT_THROW(scope_.require_head(), AbsentError);
  EXPECT_THROW(roll_back(scope_, 1), AbsentError);
  EXPECT_THROW(Scope(publisher_, "a/b"), ConfigError);
}

TEST_F(FleetPublish, StatusSaysWhoIsWhere) {
  publish("guard", 2);
  say("d1", key_, 1);
  say("d2", key_, 0);
  say("d3", key_, 0, 1);
  say("d4", key_, 1, 0, true);
  fake_.put(publisher_.keys.status("edge", "d5"), "no status");
  std::vector<std::string> states;
  for (const DeviceStatus& device : read_statuses(scope_))
    states.emplace_back(to_string(state_of(head(), device)));
  EXPECT_EQ(states,
            (std::vector<std::string>{"current", "behind", "refused", "drifted", "forged"}));
}

TEST_F(FleetPublish, StatusIsBelievedOfTheDeviceAlone) {
  publish("guard", 2);
  const PrivateKey d1 = PrivateKey::generate();
  const PrivateKey d2 = PrivateKey::generate();
  const TrustedKeys devices({{d1.public_key(), "d1"}, {d2.public_key(), "d2"}});
  publisher_.devices = &devices;
  say("d1", d1, 1);
  say("d2", d1, 1);
  say("d3", key_, 1);
  const auto statuses = read_statuses(scope_);
  ASSERT_EQ(statuses.size(), 3u);
  EXPECT_EQ(statuses[0].problem, "");
  EXPECT_NE(statuses[1].problem.find("the key of \"d1\""), std::string::npos);
  EXPECT_NE(statuses[2].problem.find("not trusted"), std::string::npos);
}

TEST_F(FleetPublish, NothingIsWantedBeforeTheFirstRollout) {
  push_lists(lists("guard", 2));
  say("d1", key_, 0);
  EXPECT_EQ(state_of(head(), read_statuses(scope_)[0]), DeviceState::current);
}

TEST_F(FleetPublish, VerifyFindsWhatIsWrong) {
  for (size_t i = 1; i <= snapshot_revisions + 2; i++) push_lists(lists("guard", i));
  Verification found = verify_scope(scope_);
  EXPECT_EQ(found.revisions, snapshot_revisions + 2);
  EXPECT_EQ(found.snapshots, 1u);
  EXPECT_EQ(found.defects, std::vector<std::string>{});

  const Revision at = scope_.revision(snapshot_revisions);
  const std::string chunk = publisher_.keys.chunk(at.snapshot.at(0).digest);
  const std::string kept = fake_.value(chunk);
  fake_.erase(chunk);
  EXPECT_FALSE(verify_scope(scope_).defects.empty());
  fake_.put(chunk, "lie");
  EXPECT_FALSE(verify_scope(scope_).defects.empty());
  fake_.put(chunk, kept);

  Revision wrong = scope_.revision(3);
  wrong.state = sha256("other");
  const std::string place = publisher_.keys.revision("edge", 3);
  const std::string sound = fake_.value(place);
  fake_.put(place, seal_revision(wrong, key_));
  EXPECT_NE(verify_scope(scope_).defects.at(0).find("does not make its state"), std::string::npos);
  wrong = open_revision(sound, publisher_.trusted, "edge", 3);
  wrong.predecessor_state = sha256("other");
  fake_.put(place, seal_revision(wrong, key_));
  EXPECT_NE(verify_scope(scope_).defects.at(0).find("follows another"), std::string::npos);
  fake_.put(place, sound);
  fake_.put(publisher_.keys.revisions("edge") + "x", "y");
  EXPECT_FALSE(verify_scope(scope_).defects.empty());
}

TEST_F(FleetPublish, VerifyLooksAtTheHead) {
  publish("guard", 2);
  Head wrong = head();
  wrong.next_state = sha256("other");
  fake_.put(publisher_.keys.head("edge"), seal_head(wrong, key_));
  EXPECT_NE(verify_scope(scope_).defects.at(0).find("head's next"), std::string::npos);
  wrong = head();
  wrong.last = 0;
  wrong.next = wrong.base = 0;
  fake_.put(publisher_.keys.head("edge"), seal_head(wrong, key_));
  EXPECT_NE(verify_scope(scope_).defects.at(0).find("last one"), std::string::npos);
  fake_.on_call([](const std::string&, const std::string&) { return Fault::unreachable; });
  EXPECT_THROW(verify_scope(scope_), StoreError);
}

TEST_F(FleetPublish, StatesThatAreNotWhatTheySayAreRefused) {
  publish("guard", 2);
  Revision wrong = scope_.revision(1);
  wrong.state = sha256("other");
  fake_.put(publisher_.keys.revision("edge", 1), seal_revision(wrong, key_));
  EXPECT_THROW(scope_.state(1), ForgedError);
  fake_.put(publisher_.keys.revisions("edge") + "x", "y");
  EXPECT_THROW(scope_.revisions(), ForgedError);
}

// A scope with so many revisions, that all devices hold; each fifth one has a snapshot.
class FleetPrune : public FleetPublish {
 protected:
  void push_next() {
    PushPlan plan = plan_push(scope_, lists("guard", head().last + 2), {});
    if (plan.number % 5 == 0) plan.chain_bytes = snapshot_bytes;
    push(scope_, plan, "");
  }
  void grow(size_t revisions) {
    for (size_t i = 0; i < revisions; i++) {
      push_next();
      all();
    }
  }
  std::set<std::string> keys() const {
    const std::vector<std::string> all = fake_.keys();
    return {all.begin(), all.end()};
  }
};

TEST_F(FleetPrune, TakesAwayWhatNobodyNeeds) {
  grow(13);
  const std::set<std::string> before = keys();
  const Pruned would = prune(scope_, 4, true);
  EXPECT_EQ(keys(), before);
  const Pruned done = prune(scope_, 5, false);
  EXPECT_EQ(would.revisions, 9u);
  // Back to the snapshot that the oldest of the five is made of.
  EXPECT_EQ(done.first, 5u);
  EXPECT_EQ(done.revisions, 4u);
  EXPECT_EQ(done.chunks, 0u);
  for (uint64_t n = done.first; n <= head().last; n++) EXPECT_NO_THROW(scope_.state(n)) << n;
  EXPECT_THROW(scope_.state(done.first - 1), AbsentError);
  EXPECT_EQ(verify_scope(scope_).defects, std::vector<std::string>{});
  grow(3);
  const Pruned second = prune(scope_, 1, false);
  EXPECT_EQ(second.first, 15u);
  EXPECT_EQ(second.chunks, 2u);
  EXPECT_EQ(verify_scope(scope_).defects, std::vector<std::string>{});
}

TEST_F(FleetPrune, LeavesWhatDevicesAndTheHeadNeed) {
  grow(7);
  say("d1", key_, 3);
  EXPECT_EQ(prune(scope_, 1, false).revisions, 0u);
  say("d1", key_, 6);
  roll_back(scope_, 2);
  EXPECT_EQ(prune(scope_, 1, false).revisions, 0u);
  roll_back(scope_, 7);
  EXPECT_EQ(prune(scope_, 1, false).first, 5u);
}

TEST_F(FleetPrune, LeavesWhatOtherScopesHave) {
  grow(5);
  const Scope other(publisher_, "other");
  push(other, plan_push(other, lists("guard", 3), {}), "");
  const std::string left = publisher_.keys.chunk(sha256("left"));
  fake_.put(left, "left");
  const Pruned done = prune(other, 1, false);
  EXPECT_EQ(done.chunks, 1u);
  EXPECT_EQ(fake_.value(left), "");
  EXPECT_EQ(verify_scope(scope_).defects, std::vector<std::string>{});
}

TEST_F(FleetPrune, StopsWhenAHeadIsMovedMeanwhile) {
  grow(6);
  bool moved = false;
  fake_.on_call([&](const std::string& call, const std::string&) {
    if (call == "change" && !moved) {
      moved = true;
      fake_.put(publisher_.keys.head("edge"), fake_.value(publisher_.keys.head("edge")));
    }
    return Fault::none;
  });
  EXPECT_THROW(prune(scope_, 1, false), RefusedError);
  EXPECT_NO_THROW(scope_.state(1));
}

TEST_F(FleetPrune, APushPutsBackWhatWasPrunedMeanwhile) {
  grow(4);
  bool pruned = false;
  fake_.on_call([&](const std::string& call, const std::string& key) {
    if (call != "change" || key != publisher_.keys.head("edge") || pruned) return Fault::none;
    pruned = true;
    for (const std::string& each : fake_.keys())
      if (each.starts_with(publisher_.keys.chunks())) fake_.erase(each);
    return Fault::none;
  });
  push_next();
  EXPECT_TRUE(pruned);
  EXPECT_EQ(verify_scope(scope_).defects, std::vector<std::string>{});
}

TEST_F(FleetPrune, DoesNotCompareTooManyScopes) {
  grow(1);
  for (int i = 0; i < 130; i++)
    fake_.put(publisher_.keys.head("s" + std::to_string(i)), "anything");
  EXPECT_NE(said<RefusedError>([&] { prune(scope_, 1, true); }).find("more than 120 scopes"),
            std::string::npos);
}

}  // namespace
}  // namespace fleet_test
