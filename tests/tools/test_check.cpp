// `qimctl check`: each kind of defect is found, and a damaged file is named.

#include <gmock/gmock.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "policy/formats/native/native.h"
#include "policy/store/store_policy.h"
#include "rov_edit.h"
#include "tests/tools/support.h"
#include "tools/cli.h"
#include "tools/commands/check.h"
#include "tools/nodes/defects.h"

namespace {

using namespace qimctl;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tools_test::Outcome;

class Check : public testing::Test {
 protected:
  // Stores nodes in the native format, whatever they say.
  void store(const std::string& nodes) {
    const Policy policy = read_native(
        R"({"format": "qim-policy", "version": 1, "nodes": [)" + nodes + "]}", "nodes.json");
    const Database database(dir_ / "db", OpenMode::create);
    WriteSession session(database);
    write_policies({policy}, session, {.replace = true, .dangling = true});
    session.commit();
  }

  // "1 dangling"
  std::vector<std::string> defects() {
    const Database database(dir_ / "db", OpenMode::change);
    std::vector<std::string> list;
    for (const Found& found : find_defects(ReadSession(database))) {
      list.push_back(std::to_string(found.node) + " " + defect_name(found.defect));
    }
    return list;
  }

  Outcome check(const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments{"--db", dir_ / "db", "check"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return tools_test::run_qimctl(arguments);
  }

  tools_test::TempDir dir_;
};

// A policy instance that a data set leads to, with a group.
const char* const good = R"(
  {"id": 1, "type": "Dset", "dset": {"dest": {"fmt": "generic", "v32a": 1}, "type": 5},
   "links": {"ln_2c1": 2}},
  {"id": 2, "type": "Pinst", "dset": {"dest": {"fmt": "generic", "v32a": 2}, "type": 5},
   "links": {"ln_2c1": 3}},
  {"id": 3, "type": "Group"},
  {"id": 4, "type": "Edest", "dset": {"dest": {"fmt": "interface", "ifix": 7}, "type": 5},
   "links": {"ln_2c1": 2}})";

TEST_F(Check, finds_nothing_in_a_good_policy) {
  store(good);
  EXPECT_THAT(defects(), IsEmpty());
  const Outcome outcome = check();
  EXPECT_EQ(outcome.code, exit_ok) << outcome.out << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("policy good"));
}

TEST_F(Check, finds_links_that_lead_nowhere) {
  store(std::string(good) + R"(, {"id": 3, "type": "Group", "links": {"0x8001": 99}})");
  EXPECT_THAT(defects(), ElementsAre("3 dangling"));
  store(R"({"id": 3, "type": "Group", "links": {"0x8001": {"node": 2, "node2": 98}}})");
  EXPECT_THAT(defects(), ElementsAre("3 dangling"));
}

TEST_F(Check, finds_targets_of_a_wrong_type) {
  store(std::string(good) + R"(,
    {"id": 5, "type": "Filter", "links": {"ln_081": 3}},
    {"id": 6, "type": "Group", "links": {"ln_281": 5, "ln_282": 3}},
    {"id": 7, "type": "DsetNoname", "links": {"0x8001": 6}},
    {"id": 4, "type": "Edest", "dset": {"dest": {"fmt": "interface", "ifix": 7}, "type": 5},
     "links": {"ln_2c1": 3}})");
  EXPECT_THAT(defects(), ElementsAre("4 target_type", "5 target_type", "6 target_type"));
}

TEST_F(Check, finds_nodes_that_nothing_refers_to) {
  store(std::string(good) + R"(, {"id": 5, "type": "Action"}, {"id": 6, "type": "DsetNoname"})");
  EXPECT_THAT(defects(), ElementsAre("5 unreferenced"));
}

TEST_F(Check, finds_names_that_disagree_with_their_node) {
  // A filter with a name; a destination without; a name of no destination; another policy type.
  store(std::string(good) + R"(,
    {"id": 5, "type": "Edest", "links": {"ln_2c1": 2}, "priv": "61"},
    {"id": 6, "type": "Pinst", "dset": "ffffffffffffffffffffffffffffffffffffffffff"},
    {"id": 7, "type": "Edest", "dset": {"dest": {"fmt": "interface", "ifix": 8}, "type": 6},
     "links": {"ln_2c1": 2}})");
  EXPECT_THAT(defects(), ElementsAre("5 data_set_name", "5 unreferenced", "6 data_set_name",
                                     "7 data_set_name"));
}

TEST_F(Check, finds_names_on_nodes_that_have_none) {
  store(good);
  {
    const Database database(dir_ / "db", OpenMode::change);
    WriteSession session(database);
    Node group;
    group.record.type = QIM_NODE_GROUP;
    const std::vector<uint8_t> tlv = encode_node(group);
    const std::vector<uint8_t> name(21, 1);
    rov_edit_node_t node{};
    node.id = database_id(3);
    node.tlv_len = static_cast<uint32_t>(tlv.size());
    node.tlv = tlv.data();
    node.dset_len = 21;
    node.dset = name.data();
    ASSERT_EQ(rov_edit_node_put(session.handle(), &node), 0u);
    session.commit();
  }
  EXPECT_THAT(defects(), ElementsAre("3 data_set_name"));
}

TEST_F(Check, finds_two_destinations_at_one_place) {
  const char* const again = R"(,
    {"id": 5, "type": "Edest", "dset": {"dest": {"fmt": "interface", "ifix": 7}, "type": 5,
     "dir": "in"}, "links": {"ln_2c1": 2}})";
  store(std::string(good) + again);
  EXPECT_THAT(defects(), ElementsAre("5 same_place"));
}

TEST_F(Check, finds_nodes_that_are_not_understood) {
  store(std::string(good) + R"(, {"id": 3, "type": "Raw", "body": {"tlv": "0001000200000fff"}})");
  EXPECT_THAT(defects(), ElementsAre("3 undecodable"));
}

TEST_F(Check, tells_as_json_and_by_its_code) {
  store(std::string(good) + R"(, {"id": 5, "type": "Action"})");
  const Outcome outcome = check({"--json"});
  EXPECT_EQ(outcome.code, exit_defects);
  const json value = json::parse(outcome.out);
  EXPECT_EQ(value["nodes"], 5);
  EXPECT_EQ(value["defects"].size(), 1u);
  EXPECT_EQ(value["defects"][0]["defect"], "unreferenced");
  EXPECT_EQ(value["defects"][0]["node"], "0x00000005");
}

TEST_F(Check, names_the_damage_of_a_file) {
  store(good);
  {
    std::fstream file(dir_ / "db" / "data.mdb", std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(3 * 4096 + 2);
    file.write("\xff\xff\xff\xff", 4);
  }
  const Outcome outcome = check();
  EXPECT_EQ(outcome.code, exit_database) << outcome.out;
  EXPECT_THAT(outcome.err, HasSubstr("damaged at page"));
  EXPECT_THAT(outcome.err, HasSubstr("restore the database from a dump"));
}

TEST(CheckOfFiles, tells_where_an_entry_stands) {
  const auto file = (tools_test::source_dir() / "examples" / "edge-router.rfc8519.json").string();
  const tools_test::Outcome found = tools_test::run_qimctl({"check", file});
  EXPECT_EQ(found.code, qimctl::exit_ok);
  EXPECT_THAT(found.out,
              testing::ContainsRegex("edge-router.rfc8519.json:[0-9]+: "
                                     "/ietf-access-control-list:acls/acl/0/aces/ace/[0-9]+: "
                                     "transit-v4-in/ntp-answers-to-clock is never reached"));
  EXPECT_THAT(found.out, HasSubstr("12 lists looked at\naccess lists: "));
  EXPECT_EQ(tools_test::run_qimctl({"check", "--strict", file}).code, qimctl::exit_defects);
  const tools_test::Outcome all = tools_test::run_qimctl({"check", "-v", file});
  EXPECT_THAT(all.out, HasSubstr(" is in conflict with "));
}

}  // namespace
