// Who takes the next revision, and where things lie.
#include "fleet/proto/keys.h"
#include "fleet/proto/stage.h"

namespace qim::fleet {
namespace {

Stage stage_of(uint32_t percent, const std::string& salt = "") {
  Stage stage;
  stage.percent = percent;
  stage.salt = salt;
  return stage;
}

TEST(FleetStage, TakesAboutItsShare) {
  int taken = 0;
  for (int i = 0; i < 10000; i++) {
    if (is_in_stage(stage_of(20, "a"), "device" + std::to_string(i), {})) taken++;
  }
  EXPECT_NEAR(taken, 2000, 150);
}

TEST(FleetStage, KeepsWhoWasInAnEarlierOne) {
  for (int i = 0; i < 1000; i++) {
    const std::string device = std::to_string(i);
    const bool early = is_in_stage(stage_of(20, "a"), device, {});
    EXPECT_TRUE(!early || is_in_stage(stage_of(50, "a"), device, {}));
    EXPECT_TRUE(is_in_stage(stage_of(100), device, {}));
    EXPECT_FALSE(is_in_stage(stage_of(0), device, {}));
  }
}

TEST(FleetStage, OthersAreFirstWithAnotherSalt) {
  int same = 0;
  for (int i = 0; i < 1000; i++)
    same += place_of(std::to_string(i), "a") == place_of(std::to_string(i), "b") ? 1 : 0;
  EXPECT_LT(same, 40);
}

TEST(FleetStage, TakesWhoBearsALabel) {
  Stage stage = stage_of(0);
  stage.labels = {"lab", "canary"};
  EXPECT_TRUE(is_in_stage(stage, "d", {"x", "canary"}));
  EXPECT_FALSE(is_in_stage(stage, "d", {"x"}));
}

TEST(FleetStage, SaysWhichRevisionADeviceShouldHold) {
  Head head;
  head.base = 4;
  head.next = 5;
  head.stage.percent = 100;
  EXPECT_EQ(wanted_revision(head, "d", {}, 4), 5u);
  head.stage.hold = true;
  EXPECT_EQ(wanted_revision(head, "d", {}, 4), 4u);
  EXPECT_EQ(wanted_revision(head, "d", {}, 5), 5u) << "who has it keeps it";
  head.stage = stage_of(0);
  EXPECT_EQ(wanted_revision(head, "d", {}, 4), 4u);
  head.next = 4;
  EXPECT_EQ(wanted_revision(head, "d", {}, 5), 4u) << "rolled back";
}

TEST(FleetKeys, AreInTheOrderOfNumbers) {
  const Keys keys("/qim/");
  EXPECT_EQ(keys.head("edge"), "/qim/h/edge");
  EXPECT_EQ(keys.revision("edge", 7), "/qim/r/edge/000000000007");
  EXPECT_LT(keys.revision("edge", 9), keys.revision("edge", 10));
  EXPECT_EQ(keys.revision("edge", 1234567890123), "/qim/r/edge/1234567890123");
  EXPECT_EQ(keys.status("edge", "d1"), "/qim/s/edge/d1");
  EXPECT_EQ(keys.chunk(Digest{}), "/qim/c/" + std::string(64, '0'));
  EXPECT_EQ(Keys::last_part("/qim/h/edge"), "edge");
  EXPECT_EQ(Keys::last_part("edge"), "edge");
}

TEST(FleetKeys, NamesAreSimple) {
  EXPECT_TRUE(is_name("edge-1.site_B"));
  for (const char* wrong : {"", ".hidden", "a/b", "a b", "\xc3\xa4"}) EXPECT_FALSE(is_name(wrong));
  EXPECT_TRUE(is_name(std::string(128, 'a')));
  EXPECT_FALSE(is_name(std::string(129, 'a')));
}

}  // namespace
}  // namespace qim::fleet
