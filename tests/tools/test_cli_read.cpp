// `qimctl list`, `show` and `tree` as processes, on a database that another process wrote.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "policy/formats/native/native.h"
#include "policy/store/database.h"
#include "rov_edit.h"
#include "tests/tools/example_database.h"
#include "tests/tools/support.h"
#include "tools/cli.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using tools_test::Outcome;
using tools_test::run_qimctl;

class Read : public tools_test::ExampleDatabase {};

TEST_F(Read, lists_all_nodes) {
  const std::string out = output({"list"});
  EXPECT_THAT(out,
              StartsWith("NODE        TYPE        GROUP  FLAGS       LINKS  REFS  CONTENTS\n"));
  EXPECT_THAT(out, HasSubstr("\n0x04100011  Filter      7      0x0         2      1     \"voice\", "
                             "match True, nomatch Next, crit_cnt 1, crit_bytes 33\n"));
  EXPECT_THAT(out, HasSubstr("\n23 nodes\n"));
}

TEST_F(Read, lists_nodes_of_one_type) {
  const std::string out = output({"list", "--type", "hfilter"});
  EXPECT_THAT(out, HasSubstr("0x04100020  Hfilter"));
  EXPECT_THAT(out, HasSubstr("\n1 node\n"));
  EXPECT_EQ(output({"list", "--type", "4"}), out);
  EXPECT_THAT(output({"list", "--type", "DsetNoname"}), HasSubstr("\n1 node\n"));
}

TEST_F(Read, lists_as_json) {
  const json all = json::parse(output({"list", "--json"}));
  ASSERT_EQ(all.size(), 23u);
  EXPECT_EQ(all[0]["id"], "0x04100001");
  EXPECT_EQ(all[0]["type"], "Group");
  EXPECT_EQ(all[0]["computed"]["links_total"], 2);
  EXPECT_EQ(json::parse(output({"list", "--json", "--type", "police"})).size(), 1u);
}

TEST_F(Read, shows_a_node_by_decimal_and_hexadecimal_identifier) {
  EXPECT_EQ(output({"show", "0x04100010"}), output({"show", "68157456"}));
}

TEST_F(Read, shows_a_node_whole) {
  EXPECT_EQ(output({"show", "0x04100010"}),
            "node 0x04100010  Filter\n"
            "  flags  0\n"
            "  group  7\n"
            "  body\n"
            "    flags    1\n"
            "    match    True\n"
            "    nomatch  Next\n"
            "    crit\n"
            "      type 773  args 06  comment ipv4.protocol 6\n"
            "      type 778  args c000020018  comment ipv4.destination-ipv4-network 192.0.2.0/24\n"
            "      type 1290  args 0100160016  comment tcp.destination-port eq 22\n"
            "  links\n"
            "    ln_081  -> 0x04100011 Filter\n"
            "    0x8082  -> 0x04100031 Action\n"
            "  priv   6d676d742d737368  \"mgmt-ssh\"\n"
            "  computed\n"
            "    links_total    2\n"
            "    links_unfixed  1\n"
            "    refs           1\n"
            "    priv_len       8\n"
            "    priv_ptr       0\n"
            "    crit_cnt       3\n"
            "    crit_bytes     107\n");
}

TEST_F(Read, shows_what_links_carry) {
  EXPECT_THAT(
      output({"show", "0x04100040"}),
      HasSubstr("ln_182  -> 0x04100050 Police, node2 0x04100002 Group, val 1, tag 65535\n"));
}

TEST_F(Read, shows_data_set_names_parsed) {
  const std::string out = output({"show", "0x04100091"});
  EXPECT_THAT(out, HasSubstr("  dset\n"
                             "    dest\n"
                             "      fmt      service\n"
                             "      srv_id   9\n"
                             "      srv_def  2\n"
                             "      srv_vdc  1\n"
                             "    type  5\n"
                             "    dir   in\n"));
}

TEST_F(Read, shows_json_that_can_be_imported_again) {
  json document = {{"format", qimctl::native_format_name}, {"version", 1}};
  for (const json& entry : json::parse(output({"list", "--json"}))) {
    json node = json::parse(output({"show", entry["id"].get<std::string>(), "--json"}));
    node.erase("computed");
    document["nodes"].push_back(node);
  }
  const tools_test::TempDir copy;
  tools_test::write_text(copy / "copy.json", document.dump());
  ASSERT_EQ(tools_test::run_qimctl({"--db", copy / "db", "import", copy / "copy.json"}).code, 0);
  EXPECT_EQ(tools_test::run_qimctl({"--db", copy / "db", "list"}).out, output({"list"}));
}

TEST_F(Read, says_that_a_node_is_not_there) {
  for (const char* command : {"show", "tree"}) {
    const Outcome outcome = tools_test::run_qimctl({"--db", database(), command, "0x77"});
    EXPECT_EQ(outcome.code, qimctl::exit_not_found);
    EXPECT_THAT(outcome.err, StartsWith("qimctl: cannot read node 0x00000077: "));
    EXPECT_THAT(outcome.out, IsEmpty());
  }
}

TEST_F(Read, draws_a_tree) {
  const std::string out = output({"tree", "0x04100060"});
  EXPECT_THAT(out,
              StartsWith("0x04100060 Ifelse\n"
                         "├─ ln_241 val 1 -> 0x04100013 Filter  0xdeadbeef, ipv6, match False, "
                         "nomatch Nomatch\n"
                         "│  └─ 0x8082 -> 0x04100032 Action  type 2 (drop)\n"
                         "├─ ln_242 tag 1 -> 0x04100031 Action  type 1 (accept)\n"
                         "├─ ln_243 tag 2 -> 0x04100032 Action  type 2 (drop)  (shared)\n"
                         "├─ ln_244 -> 0x04100001 Group  \"cust-ide-in\", type 2, subtype 2\n"));
  EXPECT_THAT(out, HasSubstr("ln_081 => 0x04100012 Filter"));
  EXPECT_THAT(out, HasSubstr("Ifelse  (cycle)\n"));
}

TEST_F(Read, draws_a_tree_as_json) {
  const json tree = json::parse(output({"tree", "0x04100090", "--json"}));
  EXPECT_EQ(tree["type"], "Edest");
  const json& pinst = tree["nodes"][0];
  EXPECT_EQ(pinst["via"], "ln_2c1");
  EXPECT_EQ(pinst["val"], 1);
  const json& group = pinst["nodes"][0];
  EXPECT_EQ(group["id"], "0x04100001");
  EXPECT_EQ(group["nodes"].size(), 5u);
  EXPECT_EQ(group["nodes"][1]["next"], true);
  EXPECT_EQ(group["nodes"][1]["id"], "0x04100011");
}

TEST_F(Read, cuts_a_tree_at_a_depth) {
  EXPECT_EQ(output({"tree", "0x04100090", "--depth", "0"}),
            "0x04100090 Edest  \"ge-0/0/0\", interface 287454020 vrf 16909060 vlan 100 vdc 1, "
            "type 5, in  (deeper: see --depth)\n");
}

// A node that can't be made sense of is not missing.
TEST(Show, tells_what_its_links_lead_to) {
  const tools_test::TempDir dir;
  const std::string database = dir / "db";
  tools_test::write_text(dir / "nodes.json", R"({"format": "qim-policy", "version": 1, "nodes": [
    {"id": 1, "type": "Group", "links": {"0x8001": 2, "0x8002": {"node": 3, "node2": 4}}},
    {"id": 2, "type": "Action"}, {"id": 4, "type": "Action"}, {"id": 3, "type": "Raw", "body": {"tlv": "0001000200000fff"}}]})");
  ASSERT_EQ(run_qimctl({"--db", database, "import", dir / "nodes.json"}).code, 0);
  {
    const qimctl::Database opened(database, qimctl::OpenMode::read);
    qimctl::WriteSession session(opened);
    ASSERT_EQ(rov_edit_node_del(session.handle(), qimctl::database_id(4)), uint32_t{ROV_OK});
    session.commit();
  }
  const std::string out = run_qimctl({"--db", database, "show", "1"}).out;
  EXPECT_THAT(out, HasSubstr("-> 0x00000002 Action\n"));
  EXPECT_THAT(out, HasSubstr("-> 0x00000003 (undecodable), node2 0x00000004 (missing)\n"));
}

}  // namespace
