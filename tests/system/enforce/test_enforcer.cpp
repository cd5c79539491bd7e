// What is done when the packet filter fails, lacks interfaces or was changed by others.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "policy/formats/nft/commands.h"
#include "processes/enforce/enforcer.h"
#include "tests/policy/nft/nft_support.h"
#include "tests/system/enforce/fake_filter.h"
#include "tests/system/enforce/net.h"
#include "tests/system/enforce/process.h"

namespace {

using enforce::Enforcer;
using enforce::Outcome;
using process::entry;
using process::list;
using testing::HasSubstr;
using testing::Not;

// For a process opens a database once: before an Enforcer does.
qimctl::nft::Ruleset ruleset_of(const process::Place& place) {
  const qimctl::Database database(place.path("db"), qimctl::OpenMode::read);
  return enforce::read_revision(database).made.ruleset;
}

class EnforcerTest : public testing::Test {
 protected:
  void SetUp() override {
    fake_filter::state() = {};
    ASSERT_TRUE(place_.apply(list("a", entry("x", 1, "accept")), {"a"}));
  }

  // Does what is asked, and gives what was said meanwhile.
  template <class Do>
  std::string said(Do what) {
    testing::internal::CaptureStderr();
    what();
    return testing::internal::GetCapturedStderr();
  }

  process::Place place_;
  fake_filter::State& filter_ = fake_filter::state();
};

TEST_F(EnforcerTest, PutsTheWholeTableWhereDifferencesFail) {
  const qimctl::nft::Ruleset ruleset = ruleset_of(place_);
  Enforcer enforcer(place_.path("db"));
  filter_.answers = {"can't be decoded"};
  const std::string text = said([&] { EXPECT_EQ(enforcer.update(), Outcome::good); });
  EXPECT_THAT(text, HasSubstr("the whole table is put anew: can't be decoded"));
  ASSERT_EQ(filter_.commands.size(), 2u);
  EXPECT_EQ(filter_.commands[1], qimctl::nft::to_json(ruleset));
  EXPECT_FALSE(enforcer.is_waiting());
}

TEST_F(EnforcerTest, CountsFailuresAndIsBehindUntilTheyAreOver) {
  Enforcer enforcer(place_.path("db"));
  filter_.can_be_read = false;
  const std::string text = said([&] { EXPECT_EQ(enforcer.update(), Outcome::failed); });
  EXPECT_THAT(text, HasSubstr("the kernel keeps what it has: can't be read"));
  EXPECT_EQ(enforcer.metrics().failures, 1u);
  EXPECT_EQ(enforcer.metrics().revision, 0u);
  EXPECT_GT(enforcer.metrics().lag_seconds, 0);
  filter_.can_be_read = true;
  EXPECT_EQ(enforcer.update(), Outcome::good);
  EXPECT_EQ(enforcer.metrics().revision, 2u);
  EXPECT_EQ(enforcer.metrics().lag_seconds, 0);
}

TEST_F(EnforcerTest, SaysThatNothingChanges) {
  filter_.table = nft_test::table_of(ruleset_of(place_));
  Enforcer enforcer(place_.path("db"));
  const std::string text = said([&] { EXPECT_EQ(enforcer.update(), Outcome::good); });
  EXPECT_THAT(text, HasSubstr("revision 2 changes nothing in the kernel"));
  EXPECT_TRUE(filter_.commands.empty());
}

TEST_F(EnforcerTest, PutsBackWhatOthersChange) {
  const qimctl::nft::Ruleset ruleset = ruleset_of(place_);
  Enforcer enforcer(place_.path("db"));
  EXPECT_EQ(enforcer.repair(), Outcome::good) << "nothing was put yet";
  EXPECT_TRUE(filter_.commands.empty());
  EXPECT_EQ(enforcer.update(), Outcome::good);
  filter_.table = nft_test::table_of(ruleset);
  EXPECT_EQ(enforcer.repair(), Outcome::good);
  EXPECT_EQ(filter_.commands.size(), 1u);
  EXPECT_EQ(enforcer.metrics().repairs, 0u);
  filter_.table = {};
  const std::string text = said([&] { EXPECT_EQ(enforcer.repair(), Outcome::good); });
  EXPECT_THAT(text, HasSubstr("somebody else had changed the table"));
  EXPECT_EQ(enforcer.metrics().repairs, 1u);
  filter_.can_be_read = false;
  EXPECT_EQ(enforcer.repair(), Outcome::failed);
  EXPECT_EQ(enforcer.metrics().repairs, 1u);
}

TEST_F(EnforcerTest, FailsWhereNoInterfaceIsMissing) {
  Enforcer enforcer(place_.path("db"));
  ASSERT_TRUE(place_.apply("", {}));
  EXPECT_TRUE(enforcer.take_news());
  filter_.table = nft_test::table_of(
      qimctl::nft::translate(nft_test::model_of({nft_test::list_of({})})).ruleset);
  filter_.answers = {"no", "no", "no", "no"};
  EXPECT_EQ(enforcer.update(), Outcome::failed);
}

TEST_F(EnforcerTest, WaitsForInterfacesThatAKernelMustSeeFirst) {
  NEEDS_NET();
  ASSERT_TRUE(net::shell("ip link del far"));
  Enforcer enforcer(place_.path("db"));
  filter_.answers = {"no such device", "no such device"};
  const std::string text = said([&] { EXPECT_EQ(enforcer.update(), Outcome::good); });
  EXPECT_THAT(text, HasSubstr("there is no interface \"far\" yet"));
  ASSERT_EQ(filter_.commands.size(), 3u);
  EXPECT_THAT(filter_.commands[1], HasSubstr("\"far\""));
  EXPECT_THAT(filter_.commands[2], Not(HasSubstr("\"far\"")));
  EXPECT_TRUE(enforcer.is_waiting());
  EXPECT_FALSE(enforcer.has_come());
  filter_.answers = {"no", "no", "no", "no"};
  EXPECT_EQ(enforcer.update(), Outcome::failed);
  filter_.answers = {"no such device", "no such device"};
  EXPECT_EQ(enforcer.update(), Outcome::good);
  ASSERT_TRUE(net::shell("ip link add near type veth peer name far"));
  EXPECT_TRUE(enforcer.has_come());
  EXPECT_EQ(enforcer.update(), Outcome::good);
  EXPECT_FALSE(enforcer.is_waiting());
}

TEST_F(EnforcerTest, SaysSoManyObstaclesAndHowManyMore) {
  std::string entries;
  for (int i = 0; i < 23; i++)
    entries += (i == 0 ? "" : ",") + (R"({"name":"e)" + std::to_string(i) +
                                      R"(","matches":{"egress-interface":"near"},)"
                                      R"("actions":{"forwarding":"accept"}})");
  Enforcer enforcer(place_.path("db"));
  EXPECT_EQ(enforcer.update(), Outcome::good);
  ASSERT_TRUE(place_.apply(list("a", entries), {"a"}));
  EXPECT_TRUE(enforcer.take_news());
  const std::string text = said([&] { EXPECT_EQ(enforcer.update(), Outcome::refused); });
  EXPECT_THAT(text, HasSubstr("\"a/e19\": the match "));
  EXPECT_THAT(text, Not(HasSubstr("\"a/e20\"")));
  EXPECT_THAT(text, HasSubstr("and 3 more obstacles"));
  EXPECT_THAT(text, HasSubstr("revision 3 is refused as a whole; the kernel keeps revision 2"));
  EXPECT_GT(enforcer.metrics().lag_seconds, 0);
}

TEST_F(EnforcerTest, RefusesWhatCannotBeReadAsAList) {
  std::ofstream(place_.path("group.json")) << R"({"format": "qim-policy", "version": 1, "nodes":
            [{"id": 5, "type": "Group", "body": {"type": 2, "subtype": 2}}]})";
  ASSERT_TRUE(process::qimctl(place_, "import " + place_.path("group.json")));
  Enforcer enforcer(place_.path("db"));
  const std::string text = said([&] { EXPECT_EQ(enforcer.update(), Outcome::refused); });
  EXPECT_THAT(text, HasSubstr("0x00000005"));
  EXPECT_TRUE(filter_.commands.empty());
}

}  // namespace
