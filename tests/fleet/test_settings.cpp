// Settings, and all that can be wrong with them.
#include "fleet/base/error.h"
#include "fleet/base/settings.h"

namespace qim::fleet {
namespace {

using std::chrono::milliseconds;
using Problems = std::vector<std::string>;

TEST(FleetSettings, AreRead) {
  Settings settings = Settings::parse(
      "# a comment\n scope = edge\nlimit=7\nrepair = yes\nstrict = no\nwait = 5min\n"
      "endpoints = a:1, b:2 c:3\n",
      "qimd.conf");
  EXPECT_EQ(settings.required("scope"), "edge");
  EXPECT_EQ(settings.number("limit", 1, 10, 3), 7u);
  EXPECT_TRUE(settings.flag("repair", false));
  EXPECT_FALSE(settings.flag("strict", true));
  EXPECT_EQ(settings.duration("wait", milliseconds(1)), milliseconds(300000));
  EXPECT_EQ(settings.words("endpoints"), (Problems{"a:1", "b:2", "c:3"}));
  EXPECT_EQ(settings.problems(), Problems{});
  settings.require_good();
}

TEST(FleetSettings, HaveDefaults) {
  Settings settings;
  EXPECT_EQ(settings.text("a", "x"), "x");
  EXPECT_EQ(settings.number("b", 1, 10, 3), 3u);
  EXPECT_TRUE(settings.flag("c", true));
  EXPECT_EQ(settings.duration("d", milliseconds(9)), milliseconds(9));
  EXPECT_TRUE(settings.words("e").empty());
}

TEST(FleetSettings, CanBeSetOnTheCommandLine) {
  Settings settings = Settings::parse("scope = edge", "f");
  settings.set("scope", "core");
  EXPECT_TRUE(settings.has("scope"));
  EXPECT_EQ(settings.text("scope"), "core");
}

TEST(FleetSettings, AllThatIsWrongIsSaidAtOnce) {
  Settings settings = Settings::parse(
      "scope =\nlimit = 11\nrepair = perhaps\nwait = 5 eggs\njust words\n= x\nlimit = 3\n"
      "oops = 1\nb\x1b = 2\n",
      "f");
  settings.required("scope");
  settings.required("device");
  settings.number("limit", 1, 10, 3);
  settings.flag("repair", false);
  settings.duration("wait", milliseconds(1));
  EXPECT_EQ(
      settings.problems(),
      (Problems{"f:5: this is no \"name = value\"", "f:6: this is no \"name = value\"",
                "f:7: \"limit\" stands here twice", "f: scope is missing", "f: device is missing",
                "f:2: limit is \"11\"; it must be a number from 1 to 10",
                "f:3: repair is \"perhaps\"; it must be yes or no",
                "f:4: wait is \"5 eggs\"; it must be a time such as 250ms, 30s, 5min or 1h",
                "f:9: there is no setting \"b\\x1b\"", "f:8: there is no setting \"oops\""}));
  EXPECT_THROW(settings.require_good(), ConfigError);
}

TEST(FleetSettings, DurationsHaveUnits) {
  milliseconds time{};
  EXPECT_TRUE(parse_duration("250ms", time));
  EXPECT_EQ(time, milliseconds(250));
  EXPECT_TRUE(parse_duration("2h", time));
  EXPECT_EQ(time, milliseconds(7200000));
  for (const char* wrong : {"", "5", "s", "-5s", "5 s", "99999999999h", "99999999999999999999999s"})
    EXPECT_FALSE(parse_duration(wrong, time)) << wrong;
}

TEST(FleetSettings, OfAFileThatIsNotThereAreRefused) {
  EXPECT_THROW(Settings::load("/none/such"), ConfigError);
}

}  // namespace
}  // namespace qim::fleet
