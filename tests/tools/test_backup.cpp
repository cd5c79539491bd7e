// `qimctl backup` as a process.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/tools/support.h"
#include "tools/cli.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using tools_test::Outcome;

class Backup : public testing::Test {
 protected:
  void SetUp() override {
    const auto examples = tools_test::source_dir() / "examples";
    good({"import", examples / "edge-all-types.json"});
  }
  Outcome run(std::vector<std::string> arguments, const std::string& database = "db") const {
    arguments.insert(arguments.begin(), {"--db", dir_ / database});
    return tools_test::run_qimctl(arguments);
  }
  std::string good(const std::vector<std::string>& arguments,
                   const std::string& database = "db") const {
    const Outcome outcome = run(arguments, database);
    EXPECT_EQ(outcome.code, qimctl::exit_ok) << outcome.err;
    return outcome.out;
  }

  tools_test::TempDir dir_;
};

TEST_F(Backup, holds_what_the_database_holds) {
  const std::string place = dir_ / "copy";
  EXPECT_THAT(good({"backup", place}), HasSubstr("backed up revision "));
  EXPECT_EQ(good({"dump"}, "copy"), good({"dump"}));
  const Outcome again = run({"backup", place});
  EXPECT_NE(again.code, qimctl::exit_ok);
  EXPECT_THAT(again.err, HasSubstr("there is something at "));
  const json told = json::parse(good({"backup", "--force", place, "--json"}));
  EXPECT_EQ(told["backup"], place);
  EXPECT_GT(told["revision"], 0);
}

TEST_F(Backup, may_be_of_a_snapshot) {
  good({"snapshot", "make", "kept"});
  const std::string before = good({"dump"});
  good({"priv", "set", "0x04100001", "01"});
  good({"backup", "--at", "kept", dir_ / "copy"});
  EXPECT_EQ(good({"dump"}, "copy"), before);
}

}  // namespace
