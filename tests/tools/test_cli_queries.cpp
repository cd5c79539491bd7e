// The commands that ask one thing of one node or data set, as processes.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/tools/example_database.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

const char* const no_such_node =
    "it is not in the database; 'qimctl list' names the nodes that are (ROV_ERR_NO_ITEM, "
    "0x41170006)\n";

class Query : public tools_test::ExampleDatabase {
 protected:
  static json parsed(std::vector<std::string> arguments) {
    arguments.push_back("--json");
    return json::parse(output(std::move(arguments)));
  }
};

TEST_F(Query, refuses_a_node_that_is_not_there) {
  const std::vector<std::vector<std::string>> commands = {{"refs", "0x77"},
                                                          {"criteria", "0x77"},
                                                          {"args", "0x77"},
                                                          {"edest", "0x77"},
                                                          {"edest", "0x77", "service", "9"},
                                                          {"priv", "get", "0x77"},
                                                          {"priv", "set", "0x77", "00"},
                                                          {"show", "--engine", "0x77"}};
  for (const std::vector<std::string>& command : commands) {
    expect_failure(command, qimctl::exit_not_found, no_such_node);
    expect_failure(command, qimctl::exit_not_found, "0x00000077");
  }
}

TEST_F(Query, refuses_what_is_no_node) {
  for (const char* command : {"refs", "criteria", "args", "edest"}) {
    expect_failure({command}, qimctl::exit_usage, "is required");
    expect_failure({command, "0"}, qimctl::exit_usage, "'0' is no node identifier");
    expect_failure({command, "x"}, qimctl::exit_not_found,
                   "cannot find \"x\": there is no access list of that name");
  }
  expect_failure({"refs", "1", "2"}, qimctl::exit_usage, "2");
}

TEST_F(Query, lists_referrers) {
  EXPECT_EQ(
      output({"refs", "0x04100080"}),
      "NODE        TYPE   CONTENTS\n"
      "0x04100090  Edest  \"ge-0/0/0\", interface 287454020 vrf 16909060 vlan 100 vdc 1, type 5, "
      "in\n"
      "0x04100091  Edest  service 9 srv_def 2 srv_vdc 1, type 5, in\n"
      "0x04100092  Edest  generic vdc 1 v32a 70000, type 5, out\n"
      "0x041000a0  Dset   interface 287454021 vrf 16909060 vlan 101 vdc 1, type 5, in\n"
      "4 referrers\n");
  EXPECT_EQ(output({"refs", "0x04100090"}), "0 referrers\n");
}

TEST_F(Query, lists_referrers_as_json) {
  const json list = parsed({"refs", "0x04100080"});
  ASSERT_EQ(list.size(), 4u);
  EXPECT_EQ(list[0]["id"], "0x04100090");
  EXPECT_EQ(list[0]["dset"]["dest"]["ifix"], 287454020);
  EXPECT_EQ(list[3]["type"], "Dset");
  EXPECT_EQ(list[3]["computed"]["links_total"], 2);
  EXPECT_EQ(parsed({"refs", "0x04100090"}), json::array());
}

TEST_F(Query, shows_criteria) {
  EXPECT_EQ(output({"criteria", "0x04100010"}),
            "ipv4.protocol 6\n"
            "ipv4.destination-ipv4-network 192.0.2.0/24\n"
            "tcp.destination-port eq 22\n");
  EXPECT_THAT(output({"criteria", "0x04100013"}), StartsWith("0xdeadbeef\n"));
  EXPECT_EQ(output({"criteria", "0x04100012"}), "none\n");
}

TEST_F(Query, shows_criteria_as_json) {
  const json list = parsed({"criteria", "0x04100010"});
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list[1], json::parse(R"({"type": 778, "args": "c000020018",
                                     "text": "ipv4.destination-ipv4-network 192.0.2.0/24"})"));
  EXPECT_EQ(parsed({"criteria", "0x04100012"}), json::array());
}

TEST_F(Query, has_criteria_of_filters_only) {
  expect_failure({"criteria", "0x04100020"}, qimctl::exit_database,
                 "cannot read the criteria of 0x04100020: it is of type Hfilter, not Filter "
                 "(QIM_ERR_NODE_TYPE, 0x41160002)");
}

TEST_F(Query, shows_arguments_of_actions_and_defaults) {
  EXPECT_EQ(output({"args", "0x04100030"}), "0000000600000001\n");
  EXPECT_EQ(output({"args", "0x04100070"}), "00ff\n");
  EXPECT_EQ(output({"args", "0x04100031"}), "none\n");
  EXPECT_EQ(parsed({"args", "0x04100030"}), "0000000600000001");
  EXPECT_EQ(parsed({"args", "0x04100071"}), "");
  expect_failure({"args", "0x04100010"}, qimctl::exit_database,
                 "cannot read the arguments of 0x04100010: it is of type Filter, not Action or "
                 "Def (QIM_ERR_NODE_TYPE");
}

TEST_F(Query, lists_enforcement_destinations) {
  const std::string out = output({"edest", "0x04100080"});
  EXPECT_THAT(out, StartsWith("NODE        TYPE   CONTENTS\n0x04100090  Edest  \"ge-0/0/0\""));
  EXPECT_THAT(out, HasSubstr("\n3 enforcement destinations\n"));
  const json list = parsed({"edest", "0x04100080"});
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list[1]["dset"]["dest"]["srv_id"], 9);
  EXPECT_EQ(list[2]["dset"]["dir"], "out");
}

TEST_F(Query, looks_an_enforcement_destination_up) {
  EXPECT_EQ(
      output({"edest", "0x04100080", "interface", "287454020", "vrf", "0x01020304", "vlan", "100",
              "vdc", "1"}),
      "0x04100090  Edest  \"ge-0/0/0\", interface 287454020 vrf 16909060 vlan 100 vdc 1, type 5, "
      "in\n");
  EXPECT_EQ(output({"edest", "0x04100080", "generic", "v32a", "70000", "vdc", "1"}),
            "0x04100092  Edest  generic vdc 1 v32a 70000, type 5, out\n");
  const json found =
      parsed({"edest", "0x04100080", "service", "9", "srv_def", "2", "srv_vdc", "1"});
  EXPECT_EQ(found["id"], "0x04100091");
}

TEST_F(Query, says_where_a_policy_instance_is_not_enforced) {
  expect_failure({"edest", "0x04100080", "service", "9"}, qimctl::exit_not_found,
                 "cannot find that enforcement destination of 0x04100080: the policy instance is "
                 "not enforced there (QIM_ERR_NO_EDEST");
}

TEST_F(Query, has_enforcement_destinations_of_policy_instances_only) {
  expect_failure({"edest", "0x04100010"}, qimctl::exit_database,
                 "cannot list the enforcement destinations of 0x04100010: it is of type Filter, "
                 "not Pinst");
  expect_failure({"edest", "0x04100010", "service", "9"}, qimctl::exit_database,
                 "it is of type Filter, not Pinst");
}

TEST_F(Query, refuses_what_is_no_destination) {
  const std::vector<std::vector<std::string>> wrong = {{"port", "1"},
                                                       {"interface"},
                                                       {"interface", "x"},
                                                       {"interface", "1", "vlan"},
                                                       {"interface", "1", "vlan", "65536"},
                                                       {"service", "1", "vlan", "1"},
                                                       {"service", "4294967296"},
                                                       {"generic", "7"}};
  for (const std::vector<std::string>& words : wrong) {
    std::vector<std::string> command = {"edest", "0x04100080"};
    command.insert(command.end(), words.begin(), words.end());
    expect_failure(command, qimctl::exit_usage,
                   "DESTINATION: not understood; give interface INDEX [vrf N]");
  }
}

TEST_F(Query, finds_data_sets_by_number) {
  EXPECT_EQ(output({"pinst", "0"}), "0x041000a1  DsetNoname\n");
  EXPECT_THAT(output({"pinst", "1"}),
              StartsWith("0x04100090  Edest  \"ge-0/0/0\", interface 287454020"));
  EXPECT_EQ(parsed({"pinst", "5"})["id"], "0x04100080");
  expect_failure({"pinst", "6"}, qimctl::exit_not_found,
                 "cannot find data set number 6: the database has no data set number 6");
}

TEST_F(Query, finds_data_sets_by_name) {
  EXPECT_EQ(
      output({"pinst", "011122334401020304006400010000000000000501"}),
      "0x04100090  Edest  \"ge-0/0/0\", interface 287454020 vrf 16909060 vlan 100 vdc 1, type 5, "
      "in\n");
  EXPECT_EQ(parsed({"pinst", "030001020003000400000005000000060000000501"})["type"], "Pinst");
  expect_failure({"pinst", "011122334401020304006400010000000000000502"}, qimctl::exit_not_found,
                 "cannot find that data set: no data set of the database has that name");
}

TEST_F(Query, refuses_what_is_neither_name_nor_number_of_a_data_set) {
  const std::string name = "011122334401020304006400010000000000000501";
  for (const std::string& wrong : {std::string("xyz"), std::string("4294967296"), name + "00",
                                   name.substr(2), "z" + name.substr(1)}) {
    expect_failure(
        {"pinst", wrong}, qimctl::exit_usage,
        "'" + wrong + "' is neither a data set's number nor a name of 42 hexadecimal digits");
  }
  expect_failure({"pinst"}, qimctl::exit_usage, "NAME|NUMBER is required");
}

TEST_F(Query, shows_a_node_through_the_databases_own_show) {
  const std::string out = output({"show", "--engine", "0x04100010"});
  EXPECT_THAT(out, StartsWith("node 0x04100010: flags 0x0, 2 links, 1 referrers, 176 bytes of TLV "
                              "data, 8 bytes of private data\n"
                              "  node:\n"
                              "    flags 0 (0x0)\n"
                              "    group 7 (0x7)\n"
                              "    type Filter (1)\n"
                              "      fltr:\n"));
  EXPECT_THAT(out, HasSubstr("        match True (1)\n"));
  EXPECT_THAT(out, HasSubstr("            args c0 00 02 00 18\n"));
  EXPECT_THAT(out, HasSubstr("\n  link 0x8082 node 0x04100031 "));
  EXPECT_THAT(output({"show", "0x04100090", "--engine"}), HasSubstr("vlan 0x64"));
  expect_failure({"show", "--engine", "--json", "0x04100010"}, qimctl::exit_usage,
                 "--engine prints text alone");
}

}  // namespace
