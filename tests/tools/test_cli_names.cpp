// `qimctl name`, which needs no database.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/tools/support.h"
#include "tools/cli.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using tools_test::Outcome;
using tools_test::run_qimctl;

std::string output(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "name");
  const Outcome outcome = run_qimctl(arguments);
  EXPECT_EQ(outcome.code, qimctl::exit_ok) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  return outcome.out;
}

void expect_name_usage(std::vector<std::string> arguments, const std::string& complaint) {
  arguments.insert(arguments.begin(), "name");
  const Outcome outcome = run_qimctl(arguments);
  EXPECT_EQ(outcome.code, qimctl::exit_usage);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, HasSubstr(complaint));
}

TEST(Name, is_built_of_an_interface) {
  EXPECT_EQ(output({"build", "interface", "287454020", "vrf", "16909060", "vlan", "100", "vdc", "1",
                    "--type", "5"}),
            "011122334401020304006400010000000000000501\n");
  EXPECT_EQ(output({"build", "interface", "5"}), "010000000500000000000000000000000000000001\n");
}

TEST(Name, is_built_of_a_service_and_of_the_generic_format) {
  EXPECT_EQ(output({"build", "service", "9", "srv_def", "2", "srv_vdc", "1", "--dir", "out"}),
            "020000000900000002000100000000000000000002\n");
  EXPECT_EQ(output({"build", "generic", "vdc", "1", "v8", "2", "v16a", "3", "v16b", "4", "v32a",
                    "5", "v32b", "6", "--type", "0xffffffff", "--dir", "in"}),
            "03000102000300040000000500000006ffffffff01\n");
  EXPECT_EQ(json::parse(output({"build", "service", "9", "--json"})),
            "020000000900000000000000000000000000000001");
}

TEST(Name, is_read) {
  EXPECT_EQ(output({"parse", "011122334401020304006400010000000000000501"}),
            "interface 287454020 vrf 16909060 vlan 100 vdc 1, type 5, in\n");
  EXPECT_EQ(output({"parse", "03000102000300040000000500000006FFFFFFFF02"}),
            "generic vdc 1 v8 2 v16a 3 v16b 4 v32a 5 v32b 6, type 4294967295, out\n");
}

TEST(Name, is_read_as_json) {
  EXPECT_EQ(json::parse(output({"parse", "--json", "020000000900000002000100000000000000000501"})),
            json::parse(R"({"dest": {"fmt": "service", "srv_id": 9, "srv_def": 2, "srv_vdc": 1},
                            "type": 5, "dir": "in"})"));
}

TEST(Name, of_a_format_without_structure_stays_digits) {
  const std::string digits = "090102030405060708090a0b0c0d0e0f0000000501";
  EXPECT_EQ(json::parse(output({"parse", "--json", digits})), digits);
  EXPECT_THAT(output({"parse", digits}), HasSubstr("type 5, in"));
}

TEST(Name, must_have_21_bytes) {
  const std::string good = "011122334401020304006400010000000000000501";
  for (const std::string& wrong :
       {good + "00", good.substr(2), good.substr(1), "zz" + good.substr(2), std::string("5")}) {
    expect_name_usage({"parse", wrong},
                      "'" + wrong + "' is no data-set name: give 42 hexadecimal digits");
  }
  expect_name_usage({"parse"}, "HEX is required");
}

TEST(Name, must_be_of_a_destination) {
  expect_name_usage({}, "a command is required: one of build, parse");
  expect_name_usage({"build"}, "DESTINATION is required");
  expect_name_usage({"build", "port", "1"}, "DESTINATION: not understood; give interface INDEX");
  expect_name_usage({"build", "service", "9", "--dir", "up"}, "up");
  expect_name_usage({"build", "service", "9", "--type", "4294967296"}, "4294967296");
}

}  // namespace
